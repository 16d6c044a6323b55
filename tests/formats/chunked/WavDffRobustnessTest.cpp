// Robustness of the WAV and DSDIFF checkers: every third-party corpus file
// and every truncation of well-formed files is checked to the end without a
// crash, and damaged files never pass silently.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/WavBuilder.h"

namespace sondrel {
namespace {

namespace fs = std::filesystem;
using namespace fixtures;

std::vector<fs::path> corpusFiles() {
    std::vector<fs::path> out;
    const fs::path root = fs::path(SONDREL_SHARED_DIR) / "corpus";
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (!it->is_regular_file()) continue;
        std::string ext = it->path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        if (ext == ".wav" || ext == ".dff") out.push_back(it->path());
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Damaged files (by their makers' own descriptions) that must draw problems.
const std::set<std::string> kDamaged = {
    "taglib/infloop.wav",         "taglib/segfault.wav",    "taglib/invalid-chunk.wav",
    "taglib/zero-size-chunk.wav", "tinytag/empty_file.wav", "tinytag/invalid_file.wav",
};
// Ordinary files written by common tools that must pass without a problem.
const std::set<std::string> kClean = {
    "taglib/rf64.wav",
    "taglib/empty.wav",
    "tinytag/16bit_pcm.wav",
    "tinytag/8bit_pcm_lavf.wav",
    "mutagen/5644800-2ch-s01-silence.dff",
    "taglib/empty10ms.dff",
};

TEST(WavDffCorpus, EveryFileIsCheckedWithASensibleVerdict) {
    const auto files = corpusFiles();
    if (files.empty()) GTEST_SKIP() << "no corpus";
    const fs::path root = fs::path(SONDREL_SHARED_DIR) / "corpus";
    size_t damagedSeen = 0, cleanSeen = 0;
    for (const auto& file : files) {
        const std::string name = file.lexically_relative(root).generic_string();
        const std::string problems = problemsForFile(file.string());
        if (kDamaged.count(name)) {
            ++damagedSeen;
            EXPECT_NE(problems, "") << name;
        }
        if (kClean.count(name)) {
            ++cleanSeen;
            EXPECT_EQ(problems, "") << name;
        }
    }
    EXPECT_EQ(damagedSeen, kDamaged.size());
    EXPECT_EQ(cleanSeen, kClean.size());
}

// Every prefix of a well-formed file, and the file with each byte flipped,
// is checked to the end; every prefix short of the whole file draws a
// problem, since the declared size no longer matches.
void checkAllDamage(const char* name, const Bytes& whole) {
    for (size_t n = 0; n + 1 < whole.size(); ++n) {
        const Bytes prefix(whole.begin(), whole.begin() + std::ptrdiff_t(n));
        EXPECT_NE(problemsFor(name, prefix), "") << name << " cut at " << n;
    }
    for (size_t i = 0; i < whole.size(); ++i) {
        Bytes flipped = whole;
        flipped[i] ^= 0xFF;
        problemsFor(name, flipped);
    }
}

Bytes tag() {
    return id3Tag(3, id3Frame("TIT2", id3Text("Title")), 0, 4);
}

TEST(WavDffCorpus, TruncatedAndFlippedFilesAreCheckedToTheEnd) {
    checkAllDamage("x.wav",
                   wavFile({wavFmtChunk(), riffChunk("LIST", ByteBuilder().str("INFO").zeros(9)),
                            riffChunk("data", ByteBuilder().fill(33, 1)), riffChunk("id3 ", tag())}));
    checkAllDamage("x.wav",
                   rf64File({wavFmtChunk(), rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().fill(16, 1)),
                             riffChunk("ID3 ", tag())},
                            16));
    checkAllDamage("x.dff", dffFile({dffStandardProps(), dffDsdChunk(), iff64Chunk("ID3 ", tag())}));
    checkAllDamage("x.dff", dffFile({dffStandardProps("DST "), dffDstChunk(2), iff64Chunk("id3 ", tag())}));
}

}  // namespace
}  // namespace sondrel
