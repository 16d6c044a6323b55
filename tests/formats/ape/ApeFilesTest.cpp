// Whole files: WavPack files made by the real encoder during the test run,
// truncated and flipped files, and the shared third-party corpus.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
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
using namespace fixtures;

TEST(ApeFiles, EncodedWavPackWithApeV2TagIsClean) {
    if (!haveTool("sox") || !haveTool("wavpack")) GTEST_SKIP() << "sox or wavpack not installed";
    TempDir dir;
    const std::string wav = dir.path() + "/tone.wav";
    // Mono and stereo, short and long enough for several blocks, a 24-bit
    // file and a lossy (hybrid) one: {name, sox format, wavpack options}.
    const char* cases[][3] = {
        {"stereo", "-r 44100 -c 2 -b 16", ""},   {"mono", "-r 22050 -c 1 -b 16", ""},
        {"hires", "-r 96000 -c 2 -b 24", "-hh"}, {"lossy", "-r 44100 -c 2 -b 16", "-b256"},
        {"six", "-r 48000 -c 6 -b 16", ""},
    };
    for (const auto& [name, sox, wavpack] : cases) {
        const std::string out = dir.path() + "/" + name + ".wv";
        ASSERT_TRUE(run(std::string("sox -n ") + sox + " '" + wav + "' synth 3 sine 440 >/dev/null 2>&1"));
        ASSERT_TRUE(run(std::string("wavpack -q -y ") + wavpack +
                        " -w 'Title=Test tone' -w 'Artist=Somebody' '" + wav + "' -o '" + out +
                        "' >/dev/null 2>&1"))
            << name;
        EXPECT_EQ(problemsForFile(out), "") << name;
    }
}

// Every prefix of a well-formed file, and the file with each byte flipped,
// is checked without a fault (run under the sanitizers to make this count).
TEST(ApeFiles, TruncatedAndFlippedFilesStayInBounds) {
    const Bytes tag = apeTag(
        ApeTagSpec()
            .items({apeItem("Title", "Song"), apeItem("Cover Art (Front)", Bytes{'c', 0, 1, 2}, kItemBinary)})
            .headerFlag()
            .writeHeader());
    const Bytes id3 = ByteBuilder().str("ID3").u8(3).u8(0).u8(0).synchsafe32(20).zeros(20).take();
    const Bytes ape = concat({id3, macHeaderOld(3970), Bytes(50, 1), tag, id3v1Tag()});
    const Bytes wv = concat({wvBlock(WvBlockSpec().flags(kWvRate44100).totalSamples(0xFFFFFFFF)),
                             wvBlock(WvBlockSpec().blockIndex(4)), tag});
    for (const auto& [name, file] : {std::pair{"x.ape", ape}, std::pair{"x.wv", wv}}) {
        for (size_t n = 0; n <= file.size(); ++n)
            problemsFor(name, Bytes(file.begin(), file.begin() + std::ptrdiff_t(n)));
        for (size_t i = 0; i < file.size(); ++i) {
            Bytes flipped = file;
            flipped[i] ^= 0xFF;
            problemsFor(name, flipped);
        }
    }
}

}  // namespace
}  // namespace sondrel
