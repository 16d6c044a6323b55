// Files made to exhaust the ID3, chunked and APE/WavPack checkers: very many
// tiny structures, or one huge value. Just past a checker's budget the log
// ends in one line saying where and why the check stopped, after the lines
// found before it. (The memory these shapes cost is measured on the command
// line by the hostile-shape test.)
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <functional>

#include "tests/fixtures/AiffBuilder.h"
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/DsfBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/MpegBuilder.h"
#include "tests/fixtures/WavBuilder.h"

namespace sondrel::fixtures {
namespace {

using namespace chunked;

Bytes times(const Bytes& unit, size_t n) {
    Bytes out;
    for (size_t i = 0; i < n; ++i) out.insert(out.end(), unit.begin(), unit.end());
    return out;
}
// A v2.3 tag of `n` TXXX frames of 12 bytes: no description, no value.
Bytes txxxTag(size_t n) {
    return id3Tag(3, times(id3Frame("TXXX", {0, 0}), n));
}
Bytes wavWith(const Bytes& chunks) {
    return wavFile({wavFmtChunk(), riffChunk("data", Bytes(64)), chunks});
}
Bytes dffWith(const Bytes& properties, const Bytes& chunks) {
    return dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty(), dffCmprProperty(), properties}),
                    dffDsdChunk(), chunks});
}
Bytes apeWith(const Bytes& items, size_t count) {
    return concat({macHeaderNew(), apeTag(ApeTagSpec().items({items}).count(uint32_t(count)))});
}
std::string line(uint64_t offset, const std::string& text) {
    return fmt::format("    {:012}  {}\n", offset, text);
}
Bytes aiffWith(const Bytes& chunks) {
    return aiffForm({aiffComm(), aiffSsnd(), chunks});
}
Bytes dsfWith(const Bytes& tag) {
    DsfLayout layout;
    layout.tag = tag;
    return dsfFile(layout);
}

TEST(HostileFormats, OneBudgetLineJustPastTheBudget) {
    struct Shape {
        const char* name;
        const char* fileName;
        std::function<Bytes(size_t)> build;
        size_t pastBudget;        // count for the log check
        std::string first, last;  // expected first and last log lines
    };
    const std::string frames = "Fatal: Too many frames: the check stopped after 100000 frames";
    const std::string chunks = "Fatal: Too many chunks: the check stopped after 1000000 chunks";
    // The frame past the budget, in its tag; the tags start at 0 (MP3), 116
    // (WAV: header, fmt, data, chunk header), 78 (AIFF: header, COMM, SSND,
    // chunk header) and 8284 (DSF, after the audio). Extra chunks follow at
    // 108 (WAV), 100 (AIFF, after one real ID3 chunk) and 194 (DFF); extra
    // properties at 118; APE items at 80.
    const uint64_t f = 10 + 100000 * 12;
    const Bytes junk8 = rawRiffChunk("JUNK", 0), junk12 = iff64Chunk("JUNK", {});
    const std::vector<Shape> shapes = {
        {"mp3 TXXX", "a.mp3",
         [](size_t n) {
             return concat({txxxTag(n), mpegAudio(2048)});
         },
         100001, "", line(f, frames)},
        {"wav TXXX", "a.wav", [](size_t n) { return wavWith(riffChunk("id3 ", txxxTag(n))); }, 100001, "",
         line(116 + f, frames)},
        {"aiff TXXX", "a.aiff", [](size_t n) { return aiffWith(iffChunk("ID3 ", txxxTag(n))); }, 100001, "",
         line(78 + f, frames)},
        {"dsf TXXX", "a.dsf", [](size_t n) { return dsfWith(txxxTag(n)); }, 100001, "",
         line(8284 + f, frames)},
        {"wav JUNK", "a.wav", [&](size_t n) { return wavWith(times(junk8, n)); }, 1000000, "",
         line(108 + 999998 * 8, chunks)},
        {"aiff ID3", "a.aiff",
         [](size_t n) {
             return aiffWith(concat({iffChunk("ID3 ", txxxTag(1)), times(iffChunk("ID3 ", {}), n)}));
         },
         1001, line(100, "Container: Multiple ID3 chunks"),
         line(100 + 999 * 8, "Fatal: Too many ID3 chunks: the check stopped after 1000 ID3 chunks")},
        {"dff chunks", "a.dff", [&](size_t n) { return dffWith({}, times(junk12, n)); }, 1000000, "",
         line(194 + 999999 * 12, chunks)},
        {"dff properties", "a.dff", [&](size_t n) { return dffWith(times(junk12, n), {}); }, 1000000, "",
         line(118 + 999997 * 12, "Fatal: Too many properties: the check stopped after 1000000 properties")},
        {"ape items", "a.ape", [](size_t n) { return apeWith(times(apeItem("", Bytes{}), n), n); }, 50001,
         line(80, "File: Tag Item key is empty"),
         line(80 + 50000 * 9, "Fatal: Too many tag items: the check stopped after 50000 items")},
        {"wv blocks", "a.wv",
         [](size_t n) { return times(wvBlock(WvBlockSpec().blockSize(24).flags(kWvRate44100)), n); }, 100001,
         "", line(100000 * 32, "Fatal: Too many blocks: the check stopped after 100000 blocks")},
    };
    for (const Shape& s : shapes) {
        SCOPED_TRACE(s.name);
        const std::string log = problemsFor(s.fileName, s.build(s.pastBudget));
        EXPECT_EQ(log.substr(0, s.first.size()), s.first);
        EXPECT_EQ(log.substr(log.size() - std::min(log.size(), s.last.size())), s.last);
    }
}

// A tag is read whole, so one larger than the checker's budget is named and
// passed over; the frames after it are still found where the tag says.
TEST(HostileFormats, AnID3TagOverTheBudgetIsNamedAndPassedOver) {
    const uint32_t size = 64 * 1024 * 1024 + 2;
    Bytes file = ByteBuilder().str("ID3").bytes({3, 0, 0}).synchsafe32(size).take();
    file.resize(10 + size);
    const Bytes frames = mpegFrames(MpegSpec{}, 3);
    file.insert(file.end(), frames.begin(), frames.end());
    EXPECT_EQ(problemsFor("a.mp3", file),
              line(0,
                   "Fatal: ID3 tag of 67108876 bytes is larger than the 67108864 bytes this check reads; "
                   "it was not checked"));
}

}  // namespace
}  // namespace sondrel::fixtures
