// Files made to exhaust the chunked and WavPack checkers: very many tiny
// structures, or one huge ID3 tag. Just past a checker's budget the log ends
// in one line saying where and why the check stopped, after the lines found
// before it. (The budgets of the ID3 frame walk, the WAV chunk walk and the
// APE item walk, and the memory every shape costs, are pinned by the
// hostile-shape test on the command line.)
#include <gtest/gtest.h>

#include <functional>

#include "tests/fixtures/AiffBuilder.h"
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/LogCases.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel::fixtures {
namespace {

Bytes times(const Bytes& unit, size_t n) {
    Bytes out;
    for (size_t i = 0; i < n; ++i) out.insert(out.end(), unit.begin(), unit.end());
    return out;
}
Bytes dffWith(const Bytes& properties, const Bytes& chunks) {
    return dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty(), dffCmprProperty(), properties}),
                    dffDsdChunk(), chunks});
}

TEST(HostileFormats, OneBudgetLineJustPastTheBudget) {
    struct Shape {
        const char* name;
        const char* fileName;
        std::function<Bytes(size_t)> build;
        size_t pastBudget;        // count for the log check
        std::string first, last;  // expected first and last log lines
    };
    // Extra chunks follow at 100 (AIFF, after one real ID3 chunk) and 194
    // (DFF); extra properties at 118.
    const Bytes junk12 = iff64Chunk("JUNK", {});
    const std::vector<Shape> shapes = {
        {"aiff ID3", "a.aiff",
         [](size_t n) {
             const Bytes tag = id3Tag(3, id3Frame("TXXX", {0, 0}));
             return chunked::aiffForm({chunked::aiffComm(), chunked::aiffSsnd(), iffChunk("ID3 ", tag),
                                       times(iffChunk("ID3 ", {}), n)});
         },
         1001, line(100, "Container", "Multiple ID3 chunks"),
         line(100 + 999 * 8, "Fatal", "Too many ID3 chunks: the check stopped after 1000 ID3 chunks")},
        {"dff chunks", "a.dff", [&](size_t n) { return dffWith({}, times(junk12, n)); }, 1000000, "",
         line(194 + 999999 * 12, "Fatal", "Too many chunks: the check stopped after 1000000 chunks")},
        {"dff properties", "a.dff", [&](size_t n) { return dffWith(times(junk12, n), {}); }, 1000000, "",
         line(118 + 999997 * 12, "Fatal", "Too many properties: the check stopped after 1000000 properties")},
        {"wv blocks", "a.wv",
         [](size_t n) { return times(wvBlock(WvBlockSpec().blockSize(24).flags(kWvRate44100)), n); }, 100001,
         "", line(100000 * 32, "Fatal", "Too many blocks: the check stopped after 100000 blocks")},
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
    const Bytes file = ByteBuilder()
                           .str("ID3")
                           .bytes({3, 0, 0})
                           .synchsafe32(size)
                           .zeros(size)
                           .bytes(mpegFrames({}, 3))
                           .take();
    EXPECT_EQ(problemsFor("a.mp3", file),
              line(0, "Fatal",
                   "ID3 tag of 67108876 bytes is larger than the 67108864 bytes this check reads; it was not "
                   "checked"));
}

}  // namespace
}  // namespace sondrel::fixtures
