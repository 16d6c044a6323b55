// Whole files: WavPack files made by the real encoder during the test run,
// Monkey's Audio files from the builders written to disk, and the shared
// third-party corpus scanned for robustness.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>

#include "core/Settings.h"
#include "core/Tag.h"
#include "core/Text.h"
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

namespace fs = std::filesystem;
using fixtures::apeItem;
using fixtures::apeTag;
using fixtures::ApeTagSpec;
using fixtures::concat;
using fixtures::haveTool;
using fixtures::problemsForFile;
using fixtures::run;
using fixtures::TempDir;

TEST(ApeFiles, EncodedWavPackWithApeV2TagIsClean) {
    if (!haveTool("sox") || !haveTool("wavpack")) GTEST_SKIP() << "sox or wavpack not installed";
    TempDir dir;
    const std::string wav = dir.path() + "/tone.wav";
    // Mono and stereo, short and long enough for several blocks, a 24-bit
    // file and a lossy (hybrid) one.
    struct Case {
        const char* name;
        const char* sox;
        const char* wavpack;
    };
    const Case cases[] = {
        {"stereo", "-r 44100 -c 2 -b 16", ""},   {"mono", "-r 22050 -c 1 -b 16", ""},
        {"hires", "-r 96000 -c 2 -b 24", "-hh"}, {"lossy", "-r 44100 -c 2 -b 16", "-b256"},
        {"six", "-r 48000 -c 6 -b 16", ""},
    };
    for (const Case& c : cases) {
        const std::string out = dir.path() + "/" + c.name + ".wv";
        ASSERT_TRUE(run(std::string("sox -n ") + c.sox + " '" + wav + "' synth 3 sine 440 >/dev/null 2>&1"));
        ASSERT_TRUE(run(std::string("wavpack -q -y ") + c.wavpack +
                        " -w 'Title=Test tone' -w 'Artist=Somebody' '" + wav + "' -o '" + out +
                        "' >/dev/null 2>&1"))
            << c.name;
        EXPECT_EQ(problemsForFile(out), "") << c.name;
    }
}

TEST(ApeFiles, MonkeysAudioInBothLayoutsWithApeV2TagIsClean) {
    TempDir dir;
    const Bytes tag = apeTag(
        ApeTagSpec()
            .items({apeItem("Title", "Song"), apeItem("Album", "Caf\xc3\xa9"),
                    apeItem("Cover Art (Front)", concat({Bytes{'c', '.', 'j', 'p', 'g', 0}, Bytes(40, 0xFF)}),
                            fixtures::kItemBinary)})
            .headerFlag()
            .writeHeader());
    const Bytes audio(4000, 0x5A);
    EXPECT_EQ(problemsForFile(dir.write("old.ape", concat({fixtures::macHeaderOld(3970), audio, tag}))), "");
    EXPECT_EQ(problemsForFile(dir.write("new.ape", concat({fixtures::macHeaderNew(3990), audio, tag}))), "");
}

// Every prefix of a well-formed file, and the file with each byte flipped,
// is checked without a fault (run under the sanitizers to make this count).
TEST(ApeFiles, TruncatedAndFlippedFilesStayInBounds) {
    const Bytes tag =
        apeTag(ApeTagSpec()
                   .items({apeItem("Title", "Song"),
                           apeItem("Cover Art (Front)", Bytes{'c', 0, 1, 2}, fixtures::kItemBinary)})
                   .headerFlag()
                   .writeHeader());
    const Bytes id3 = fixtures::ByteBuilder().str("ID3").u8(3).u8(0).u8(0).synchsafe32(20).zeros(20).take();
    const Bytes ape = concat({id3, fixtures::macHeaderOld(3970), Bytes(50, 1), tag, fixtures::id3v1Tag()});
    const Bytes wv = concat(
        {fixtures::wvBlock(fixtures::WvBlockSpec().flags(fixtures::kWvRate44100).totalSamples(0xFFFFFFFF)),
         fixtures::wvBlock(fixtures::WvBlockSpec().blockIndex(4)), tag});
    for (const auto& [name, file] : {std::pair{"x.ape", ape}, std::pair{"x.wv", wv}}) {
        for (size_t n = 0; n <= file.size(); ++n)
            fixtures::problemsFor(name, Bytes(file.begin(), file.begin() + std::ptrdiff_t(n)));
        for (size_t i = 0; i < file.size(); ++i) {
            Bytes flipped = file;
            flipped[i] ^= 0xFF;
            fixtures::problemsFor(name, flipped);
        }
    }
}

// Every corpus file with our extensions is checked without a crash or hang.
// The files known to be damaged must draw problems (never a silent pass),
// the ordinary ones none; the rest may say anything within a few lines.
TEST(ApeFiles, CorpusScansWithoutFault) {
    const fs::path root = fs::path(SONDREL_SHARED_DIR) / "corpus";
    if (!fs::is_directory(root)) GTEST_SKIP() << "no corpus";
    const Settings settings = fixtures::settingsWith();
    size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file()) continue;
        const std::string path = entry.path().string();
        if (!text::endsWithCaseInsensitive(path, ".ape") && !text::endsWithCaseInsensitive(path, ".wv"))
            continue;
        ++files;
        const auto start = std::chrono::steady_clock::now();
        Tag tag(path, settings);
        const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(seconds, 5.0) << path;
        EXPECT_LE(tag.errorCount(), 20u) << path;
        const std::string name = entry.path().filename().string();
        const bool damaged = name == "infloop.wv" || name == "longloop.ape" || name == "zerodiv.ape";
        const bool ordinary = name == "silence-44-s.wv" || name == "click.wv" || name == "tagged.wv" ||
                              name == "mac-399.ape" || name == "mac-396.ape" || name == "mac-390-hdr.ape";
        if (damaged) {
            EXPECT_GT(tag.errorCount(), 0u) << path;
        }
        if (ordinary) {
            EXPECT_EQ(tag.errorCount(), 0u) << path;
        }
    }
    EXPECT_GT(files, 10u);
}

}  // namespace
}  // namespace sondrel
