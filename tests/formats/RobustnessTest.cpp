// Robustness of every checker: each third-party corpus file, and every
// truncation or byte flip of well-formed files, is checked to the end without
// a crash (run under the sanitizers to make this count), and damaged files
// never pass silently.
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
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/AtomBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/DsfBuilder.h"
#include "tests/fixtures/WavBuilder.h"

namespace sondrel {
namespace {

namespace fs = std::filesystem;
using namespace fixtures;

const fs::path kCorpus = fs::path(SONDREL_SHARED_DIR) / "corpus";

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

TEST(Corpus, EveryFileIsCheckedQuicklyWithASensibleVerdict) {
    if (!fs::exists(kCorpus)) GTEST_SKIP() << "no corpus";
    // A problem line; lines of a message that spans several are not checked.
    const std::regex problem(
        "    [0-9]{12,}  (File|Container|Framing|Tag|Fatal|Privacy|Rename\\(mp3\\)): .+");
    size_t scanned = 0, damagedSeen = 0, cleanSeen = 0;
    for (const auto& e : fs::recursive_directory_iterator(kCorpus)) {
        std::string ext = e.path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        if (!e.is_regular_file() || ext == ".md") continue;
        const std::string name = e.path().lexically_relative(kCorpus).generic_string();
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

// Every prefix of a well-formed file and the file with each byte flipped are
// checked to the end; in the formats that declare their size the whole file
// is clean and every prefix short of it draws a problem (in MPEG-4 the last atom is cut or
// a top-level atom is missing).
TEST(Robustness, TruncatedAndFlippedFilesAreCheckedToTheEnd) {
    const Bytes id3 =
        id3Tag(3, concat({id3TextFrame(3, "TIT2", "Title"), id3TextFrame(3, "TPE1", "Artist")}), 0, 6);
    const Bytes ape = apeTag(
        ApeTagSpec()
            .items({apeItem("Title", "Song"), apeItem("Cover Art (Front)", Bytes{'c', 0, 1, 2}, kItemBinary)})
            .headerFlag()
            .writeHeader());
    const struct {
        const char* name;
        Bytes file;
        bool cutsReported;
    } files[] = {
        {"x.wav",
         wavFile({wavFmtChunk(), riffChunk("LIST", ByteBuilder().str("INFO").zeros(9)),
                  riffChunk("data", ByteBuilder().fill(33, 1)), riffChunk("id3 ", id3)}),
         true},
        {"x.wav",
         rf64File({wavFmtChunk(), rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().fill(16, 1)),
                   riffChunk("ID3 ", id3)},
                  16),
         true},
        {"x.dff", dffFile({dffStandardProps(), dffDsdChunk(), iff64Chunk("ID3 ", id3)}), true},
        {"x.dff", dffFile({dffStandardProps("DST "), dffDstChunk(2), iff64Chunk("id3 ", id3)}), true},
        {"x.aiff", chunked::aiffForm({chunked::aiffComm(), chunked::aiffSsnd(15), iffChunk("ID3 ", id3)}),
         true},
        {"x.dsf", chunked::dsfFile({.blockSize = 24, .sampleCount = 2822400, .tag = id3}), true},
        {"x.ape", concat({id3Tag(3, {}, 0, 20), macHeaderOld(3970), Bytes(50, 1), ape, id3v1Tag()}), false},
        {"x.m4a",
         mp4::m4aFile({mp4::textItem("\251nam", "Title"), mp4::rdnsItem("MOOD", "calm"),
                       mp4::box("covr", {mp4::data(13, Bytes(20, 0xFF))}),
                       mp4::box("trkn", {mp4::data(0, Bytes(8, 0))})}),
         true},
        {"x.wv",
         concat({wvBlock(WvBlockSpec().flags(kWvRate44100).totalSamples(0xFFFFFFFF)),
                 wvBlock(WvBlockSpec().blockIndex(4)), ape}),
         false},
    };
    for (const auto& [name, whole, cutsReported] : files) {
        SCOPED_TRACE(name);
        if (cutsReported) {
            EXPECT_EQ(problemsFor(name, whole), "");
        }
        for (size_t n = 0; n < whole.size(); ++n) {
            const std::string log =
                problemsFor(name, Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(n)));
            if (cutsReported && n + 1 < whole.size()) {
                EXPECT_NE(log, "") << "cut at " << n;
            }
        }
        for (size_t i = 0; i < whole.size(); ++i) {
            for (uint8_t mask : {0x01, 0x80, 0xFF}) {
                Bytes flipped = whole;
                flipped[i] ^= mask;
                problemsFor(name, flipped);
            }
        }
    }
}

}  // namespace
}  // namespace sondrel
