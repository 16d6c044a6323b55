// Files made to exhaust the ID3, chunked and APE/WavPack checkers: very many
// tiny structures, or one huge value. Each shape is built small. Past the
// checker's budget the log ends in one line saying where and why the check
// stopped, after the lines found before it; and the command line's peak
// memory on a ten times larger variant must not grow with the count.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "tests/fixtures/AiffBuilder.h"
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/DsfBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/WavBuilder.h"

namespace sondrel::fixtures {
namespace {

using chunked::aiffComm;
using chunked::aiffForm;
using chunked::aiffSsnd;

Bytes repeated(const Bytes& unit, size_t n) {
    Bytes out;
    out.reserve(unit.size() * n);
    for (size_t i = 0; i < n; ++i) out.insert(out.end(), unit.begin(), unit.end());
    return out;
}

// A v2.3 tag of `n` TXXX frames of 12 bytes: no description, no value.
Bytes txxxTag(size_t n) {
    return id3Tag(3, repeated(id3Frame("TXXX", {0, 0}), n));
}
Bytes wavWith(const Bytes& chunks) {
    return wavFile({wavFmtChunk(), riffChunk("data", Bytes(64)), chunks});
}
Bytes dffWith(const Bytes& extraProperties, const Bytes& extraChunks) {
    return dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty(), dffCmprProperty(), extraProperties}),
                    dffDsdChunk(), extraChunks});
}
Bytes apeWithItems(const Bytes& items, uint32_t count) {
    return concat({macHeaderNew(), apeTag(ApeTagSpec().items({items}).count(count))});
}

// The builders of each shape, by count of structures.
Bytes mp3Txxx(size_t n) {
    return concat({txxxTag(n), mpegAudio(2048)});
}
Bytes wavTxxx(size_t n) {
    return wavWith(riffChunk("id3 ", txxxTag(n)));
}
Bytes aiffTxxx(size_t n) {
    return aiffForm({aiffComm(), aiffSsnd(), iffChunk("ID3 ", txxxTag(n))});
}
Bytes dsfTxxx(size_t n) {
    chunked::DsfLayout layout;
    layout.tag = txxxTag(n);
    return chunked::dsfFile(layout);
}
Bytes wavJunk(size_t n) {
    return wavWith(repeated(rawRiffChunk("JUNK", 0), n));
}
Bytes aiffID3Chunks(size_t n) {
    return aiffForm(
        {aiffComm(), aiffSsnd(), iffChunk("ID3 ", txxxTag(1)), repeated(iffChunk("ID3 ", {}), n)});
}
Bytes dffChunks(size_t n) {
    return dffWith({}, repeated(iff64Chunk("JUNK", {}), n));
}
Bytes dffProperties(size_t n) {
    return dffWith(repeated(iff64Chunk("JUNK", {}), n), {});
}
// Items with an empty key: each one draws a line.
Bytes apeItems(size_t n) {
    return apeWithItems(repeated(apeItem("", Bytes{}), n), uint32_t(n));
}
Bytes apeBigValue(size_t n) {
    return apeWithItems(apeItem("Title", Bytes(n, 'a')), 1);
}
// Blocks of the unknown rate (each draws a line) that never end a frame.
Bytes wvBlocks(size_t n) {
    return repeated(wvBlock(WvBlockSpec().blockSize(24).flags(kWvRateUnknown)), n);
}
Bytes wvQuietBlocks(size_t n) {
    return repeated(wvBlock(WvBlockSpec().blockSize(24).flags(kWvRate44100)), n);
}

std::string line(uint64_t offset, const std::string& text) {
    char head[32];
    std::snprintf(head, sizeof head, "    %012llu  ", static_cast<unsigned long long>(offset));
    return head + text + "\n";
}

// Just past each budget the log holds the lines found before it, then the
// budget line as its last line.
TEST(HostileFormats, BudgetEndsTheCheckWithOneLine) {
    struct Case {
        const char* name;
        const char* fileName;
        Bytes file;
        std::string firstLines;
        std::string lastLine;
    };
    const std::string frames = "Fatal: Too many frames: the check stopped after 100000 frames";
    // Where the frame past the budget stands in its tag. The tags start at 0
    // (MP3), behind a chunk header at 108 (WAV: header, fmt and data chunks)
    // and at 70 (AIFF: header, COMM, SSND), and at 8284 (DSF: after the audio).
    // Extra chunks follow the data chunk at 108 (WAV), the real ID3 chunk at
    // 100 (AIFF) and the sound chunk at 194 (DFF); extra properties stand at
    // 118. APE items start at 80, after the stream header.
    const uint64_t tag = 10 + 100000 * 12;
    const std::vector<Case> cases = {
        {"mp3 TXXX", "a.mp3", mp3Txxx(100001), "", line(tag, frames)},
        {"wav TXXX", "a.wav", wavTxxx(100001), "", line(108 + 8 + tag, frames)},
        {"aiff TXXX", "a.aiff", aiffTxxx(100001), "", line(70 + 8 + tag, frames)},
        {"dsf TXXX", "a.dsf", dsfTxxx(100001), "", line(8284 + tag, frames)},
        {"wav JUNK", "a.wav", wavJunk(1000000), "",
         line(108 + 999998 * 8, "Fatal: Too many chunks: the check stopped after 1000000 chunks")},
        {"aiff ID3", "a.aiff", aiffID3Chunks(1001), line(100, "Container: Multiple ID3 chunks"),
         line(100 + 999 * 8, "Fatal: Too many ID3 chunks: the check stopped after 1000 ID3 chunks")},
        {"dff chunks", "a.dff", dffChunks(1000000), "",
         line(194 + 999999 * 12, "Fatal: Too many chunks: the check stopped after 1000000 chunks")},
        {"dff properties", "a.dff", dffProperties(1000000), "",
         line(118 + 999997 * 12, "Fatal: Too many properties: the check stopped after 1000000 properties")},
        {"ape items", "a.ape", apeItems(100001), line(80, "File: Tag Item key is empty"),
         line(80 + 100000 * 9, "Fatal: Too many tag items: the check stopped after 100000 items")},
        {"wv blocks", "a.wv", wvBlocks(100001), line(0, "File: The sample rate is unknown"),
         line(100000 * 32, "Fatal: Too many blocks: the check stopped after 100000 blocks")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string log = problemsFor(c.fileName, c.file);
        EXPECT_EQ(log.substr(0, c.firstLines.size()), c.firstLines);
        ASSERT_GE(log.size(), c.lastLine.size());
        EXPECT_EQ(log.substr(log.size() - c.lastLine.size()), c.lastLine);
    }
}

// Peak resident memory (KB) of the command line checking `path`. Freed
// memory is not held back by the sanitizer's quarantine, so that the figure
// is the memory really in use.
long peakKilobytesOfCheck(const TempDir& dir, const std::string& path) {
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("XDG_CONFIG_HOME", (dir.path() + "/config").c_str(), 1);
        setenv("ASAN_OPTIONS", "quarantine_size_mb=0:detect_leaks=0", 1);
        const std::string log = dir.path() + "/log.txt";
        execl(SONDREL_CLI_PATH, SONDREL_CLI_PATH, "--jobs", "1", "--quiet", "--log", log.c_str(),
              path.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) > 1)
        return -1;
    return usage.ru_maxrss;
}

TEST(HostileFormats, MemoryDoesNotGrowWithTheCount) {
    struct Case {
        const char* name;
        const char* fileName;
        std::function<Bytes(size_t)> build;
        size_t count;   // of the small variant; the large one has ten times as many
        bool holdsTag;  // the ID3 tag is held whole: memory may grow by its size
    };
    // Counts past a budget stay past it ten times over; the others stay below.
    const std::vector<Case> cases = {
        {"mp3 TXXX", "a.mp3", mp3Txxx, 110000, true},
        {"wav TXXX", "a.wav", wavTxxx, 110000, true},
        {"aiff TXXX", "a.aiff", aiffTxxx, 110000, true},
        {"dsf TXXX", "a.dsf", dsfTxxx, 110000, true},
        {"wav JUNK", "a.wav", wavJunk, 40000, false},
        {"aiff ID3", "a.aiff", aiffID3Chunks, 5000, false},
        {"dff chunks", "a.dff", dffChunks, 30000, false},
        {"dff properties", "a.dff", dffProperties, 30000, false},
        {"ape items", "a.ape", apeItems, 110000, false},
        {"ape value", "a.ape", apeBigValue, 1000000, false},
        {"wv blocks", "a.wv", wvQuietBlocks, 9000, false},
    };
    TempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes small = c.build(c.count);
        const Bytes large = c.build(c.count * 10);
        const long smallPeak = peakKilobytesOfCheck(dir, dir.write(std::string("s") + c.fileName, small));
        const long largePeak = peakKilobytesOfCheck(dir, dir.write(std::string("l") + c.fileName, large));
        ASSERT_GT(smallPeak, 0);
        ASSERT_GT(largePeak, 0);
        // A few MB of slack; a held tag may add its size, and a quarter for
        // the sanitizer's shadow of it.
        long allowed = 6 * 1024;
        if (c.holdsTag) allowed += long((large.size() - small.size()) * 5 / 4 / 1024);
        EXPECT_LE(largePeak - smallPeak, allowed) << smallPeak << " KB against " << largePeak << " KB";
    }
}

}  // namespace
}  // namespace sondrel::fixtures
