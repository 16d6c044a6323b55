// Robustness of every checker: each third-party corpus file, and every
// truncation or byte flip of well-formed files, is checked to the end without
// a crash, and damaged files never pass silently.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tests/fixtures/AiffBuilder.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/DsfBuilder.h"
#include "tests/fixtures/WavBuilder.h"
#include "tests/formats/chunked/ChunkedTestUtil.h"

namespace sondrel {
namespace {

namespace fs = std::filesystem;
using namespace fixtures;

// Damaged files (by their makers' own descriptions) that must draw problems.
const std::set<std::string> kDamaged = {
    "taglib/infloop.wav",         "taglib/segfault.wav",       "taglib/invalid-chunk.wav",
    "taglib/zero-size-chunk.wav", "tinytag/empty_file.wav",    "tinytag/invalid_file.wav",
    "tinytag/empty_file.aiff",    "tinytag/invalid_file.aiff", "taglib/infloop.wv",
    "taglib/longloop.ape",        "taglib/zerodiv.ape",
};
// Ordinary files written by common tools that must pass without a problem.
const std::set<std::string> kClean = {
    "taglib/rf64.wav",           "taglib/empty.wav",     "tinytag/16bit_pcm.wav",
    "tinytag/8bit_pcm_lavf.wav", "taglib/empty10ms.dff", "mutagen/5644800-2ch-s01-silence.dff",
    "mutagen/silence-44-s.wv",   "taglib/click.wv",      "taglib/tagged.wv",
    "taglib/mac-399.ape",        "taglib/mac-396.ape",   "taglib/mac-390-hdr.ape",
    "mutagen/mac-399.ape",       "mutagen/mac-396.ape",  "mutagen/mac-390-hdr.ape",
};
// The smallest file each format can hold; anything shorter never passes.
const std::map<std::string, uint64_t> kMinimumSize = {
    {".mp3", 11},  {".mp2", 11}, {".flac", 42}, {".dsf", 128}, {".wav", 12}, {".aif", 12}, {".aiff", 12},
    {".aifc", 12}, {".dff", 12}, {".m4a", 12},  {".m4b", 12},  {".m4v", 12}, {".mp4", 12},
};

// Every audio file of the third-party corpus is checked quickly, into
// well-formed problem lines; damaged files never pass silently.
TEST(Corpus, EveryFileIsCheckedQuicklyWithASensibleVerdict) {
    const fs::path root = fs::path(SONDREL_SHARED_DIR) / "corpus";
    if (!fs::exists(root)) GTEST_SKIP() << "no corpus";
    // A problem line; lines of a message that spans several are not checked.
    const std::regex problem(
        "    [0-9]{12,}  (File|Container|Framing|Tag|Fatal|Privacy|Rename\\(mp3\\)): .+");
    size_t scanned = 0, damagedSeen = 0, cleanSeen = 0;
    for (const auto& e : fs::recursive_directory_iterator(root)) {
        std::string ext = e.path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        if (!e.is_regular_file() || ext == ".md") continue;
        const std::string name = e.path().lexically_relative(root).generic_string();
        const auto start = std::chrono::steady_clock::now();
        const std::string problems = problemsForFile(e.path().string());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << name;
        ++scanned;
        std::istringstream lines(problems);
        for (std::string l; std::getline(lines, l);)
            EXPECT_TRUE(!l.starts_with("    ") || std::regex_match(l, problem)) << name << ": " << l;
        const auto minimum = kMinimumSize.find(ext);
        if (kDamaged.count(name) || (minimum != kMinimumSize.end() && e.file_size() < minimum->second)) {
            damagedSeen += kDamaged.count(name);
            EXPECT_NE(problems, "") << name;
        }
        if (kClean.count(name)) {
            ++cleanSeen;
            EXPECT_EQ(problems, "") << name;
        }
    }
    EXPECT_GT(scanned, 300u);
    EXPECT_EQ(damagedSeen, kDamaged.size());
    EXPECT_EQ(cleanSeen, kClean.size());
}

// Every prefix of a well-formed file, and the file with each byte flipped,
// is checked to the end; every prefix short of the whole file draws a
// problem, since the declared size no longer matches.
void checkAllDamage(const char* name, const Bytes& whole) {
    SCOPED_TRACE(name);
    for (size_t n = 0; n + 1 < whole.size(); ++n) {
        const Bytes prefix(whole.begin(), whole.begin() + std::ptrdiff_t(n));
        EXPECT_NE(problemsFor(name, prefix), "") << "cut at " << n;
    }
    for (size_t i = 0; i < whole.size(); ++i) {
        Bytes flipped = whole;
        flipped[i] ^= 0xFF;
        problemsFor(name, flipped);
    }
}

TEST(ChunkedCorpus, TruncatedAndFlippedFilesAreCheckedToTheEnd) {
    const Bytes tag = chunkedtest::cleanTag();
    checkAllDamage("x.wav", wavFile({wavFmtChunk(), riffChunk("LIST", ByteBuilder().str("INFO").zeros(9)),
                                     riffChunk("data", ByteBuilder().fill(33, 1)), riffChunk("id3 ", tag)}));
    checkAllDamage("x.wav",
                   rf64File({wavFmtChunk(), rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().fill(16, 1)),
                             riffChunk("ID3 ", tag)},
                            16));
    checkAllDamage("x.dff", dffFile({dffStandardProps(), dffDsdChunk(), iff64Chunk("ID3 ", tag)}));
    checkAllDamage("x.dff", dffFile({dffStandardProps("DST "), dffDstChunk(2), iff64Chunk("id3 ", tag)}));
    checkAllDamage("x.aiff",
                   chunked::aiffForm({chunked::aiffComm(), chunked::aiffSsnd(15), iffChunk("ID3 ", tag)}));
    chunked::DsfLayout dsf;
    dsf.blockSize = 24;
    dsf.tag = tag;
    checkAllDamage("x.dsf", chunked::dsfFile(dsf));
}

// Drops the frame reader's remark on a terminated text value (ffmpeg ends
// every text frame of an ID3 tag with a nil, which the tag reader reports).
std::string withoutTrailingNilRemarks(const std::string& log) {
    std::string kept, l;
    std::istringstream in(log);
    while (std::getline(in, l))
        if (l.find("text string contains redundant trailing nil(s)") == std::string::npos) kept += l + "\n";
    return kept;
}

// Files written by real encoders during the test run draw no problem lines.
TEST(ChunkedRealFiles, EncoderOutputIsClean) {
    struct Made {
        const char* tool;
        const char* name;
        const char* options;
    };
    const Made files[] = {
        {"sox", "sox.wav", "-r 44100 -c 2 -b 16"},
        {"sox", "sox24.wav", "-r 48000 -c 1 -b 24"},
        {"sox", "sox.aiff", "-r 44100 -c 2"},
        {"sox", "sox.aifc", "-r 44100 -c 2"},
        {"sox", "sox-mono8.aiff", "-r 8000 -c 1 -b 8"},
        {"ffmpeg", "info.wav", "-metadata title=Sinewave -metadata artist=Tester"},
        {"ffmpeg", "rf64.wav", "-rf64 always -metadata title=Sinewave"},
        {"ffmpeg", "ff.aiff", ""},
        {"ffmpeg", "ff.aifc", "-c:a pcm_f32be"},
        {"ffmpeg", "ff-alaw.aifc", "-c:a pcm_alaw"},
        {"ffmpeg", "ff-id3.aiff",
         "-write_id3v2 1 -metadata title=Song -metadata artist=Someone -metadata album=Record"},
        {"ffmpeg", "ff-id3.aifc",
         "-c:a pcm_s24be -write_id3v2 1 -id3v2_version 3 -metadata title=Song -metadata date=2024"},
    };
    TempDir dir;
    int made = 0;
    for (const auto& f : files) {
        if (!haveTool(f.tool)) continue;
        const std::string path = dir.path() + "/" + f.name;
        const bool sox = std::string(f.tool) == "sox", aiff = !path.ends_with(".wav");
        ASSERT_TRUE(
            run(sox ? std::string("sox -n ") + f.options + " '" + path + "' synth 0.1 sine 440 2>/dev/null"
                    : "ffmpeg -v error -nostdin -f lavfi -i sine=duration=0.1:sample_rate=48000 " +
                          std::string(f.options) + " -y '" + path + "'"))
            << f.name;
        const std::string log = problemsForFile(path);
        EXPECT_EQ(aiff ? withoutTrailingNilRemarks(log) : log, "") << f.name;
        ++made;
    }
    if (made == 0) GTEST_SKIP() << "neither sox nor ffmpeg is installed";
}

}  // namespace
}  // namespace sondrel
