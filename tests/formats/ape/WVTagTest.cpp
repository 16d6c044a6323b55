// WavPack checker: the block chain up to the first final block, version and
// sample-rate checks, the end of the stream at the APE tag, and the
// backward search for the sample count at the end of the stream.
#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/LogCases.h"

namespace sondrel {
namespace {

using namespace fixtures;
using Block = WvBlockSpec;

constexpr uint32_t kRate = kWvRate44100;

std::string line(uint64_t offset, const std::string& message) {
    return fixtures::line(offset, "File", message);
}

const std::string kNoAudioInfo = line(0, "Cannot locate audio information");
const std::string kInvalidVersion = "Invalid codec version";
const std::string kNoMarker = "Missing 'wvpk' header";

// Blocks are walked up to the first one marked final, or to where an APE
// tag begins; the flags are those of the latest block with non-zero flags,
// so an unknown rate carries over. A bad block ends the walk; alone, it
// leaves the block index at 1, and the end search finds the block itself.
TEST(WVTag, BlockChain) {
    Bytes other = concat({wvBlock(Block()), apeTag(ApeTagSpec().items({apeItem("", "x")}))});
    other[0] = 'W';  // neither blocks nor the APE tag are examined
    Bytes broken = concat({wvBlock(Block().flags(kRate).blockIndex(5)), wvBlock(Block()), Bytes(64, 0)});
    broken[64] = 'x';  // a broken chain ends the checks at once, without the end search
    const uint32_t unknown = kWvRateUnknown;
    // The stream ends where the APE tag begins: a next block header needs its
    // 32 bytes before that point.
    const Bytes first = wvBlock(Block().blockSize(56).flags(kRate));  // next block at 64
    const Bytes title = apeItem("Title", "Song");
    const Bytes longBlock = truncated(wvBlock(Block().blockSize(1000).flags(kRate)), 64);
    expectLogs(
        "x.wv",
        {
            {"not WavPack", other, line(0, kNoMarker)},
            {"version 1026", wvBlock(Block().version(1026)), ""},
            {"version 1040", wvBlock(Block().version(1040)), ""},
            {"version 1025", wvBlock(Block().version(1025)), line(0, kInvalidVersion)},
            {"version 1041", wvBlock(Block().version(1041)), line(0, kInvalidVersion)},
            {"version 1041 second",
             concat({wvBlock(Block().flags(kRate)), wvBlock(Block().version(1041).blockIndex(1000))}),
             line(64, kInvalidVersion)},
            {"unknown rate",
             concat({wvBlock(Block().blockSize(100).flags(unknown)), wvBlock(Block().flags(0)),
                     wvBlock(Block().flags(kRate | kWvFinal)), wvBlock(Block().flags(unknown | kWvFinal))}),
             line(0, "The sample rate is unknown") + line(108, "The sample rate is unknown")},
            {"broken chain", broken, line(64, kNoMarker)},
            {"32 bytes before the tag",
             concat({first, Bytes(32, 0), apeTag(ApeTagSpec().items({title, apeItem("", "x")}))}),
             line(64, kNoMarker) + line(96 + title.size(), "Tag Item key is empty")},
            // A header in front of items, or one the footer does not
            // announce, does not shorten the stream.
            {"header before items",
             concat({first, apeTag(ApeTagSpec().items({title}).headerFlag(true).writeHeader(true))}),
             line(64, kNoMarker)},
            {"header not announced", concat({first, apeTag(ApeTagSpec().writeHeader(true))}),
             line(64, kNoMarker)},
            // An item area before the file's start leaves the stream unbounded.
            {"item area before the file",
             concat({longBlock, apeTag(ApeTagSpec().items({apeItem("", "x")}).tagSize(5000))}),
             line(0, "Read error") + line(1008, "Read error")},
        });
}

// A first block with index 0 and a known count needs no search; otherwise
// the last header before the end of the stream must be a final block, and
// its block index plus its total-samples field is the count. The search
// reads stretches of 10240 bytes, newest first, overlapping by 32 bytes.
TEST(WVTag, EndOfStreamSearch) {
    const Block unknownCount = Block().totalSamples(0xFFFFFFFF);
    const Bytes decoy = wvBlock(Block().flags(kRate));
    // A first block with a bad version starts the search; it is not final,
    // so finding it instead of the planted header gives the message. The
    // first stretch is 1760..12000, the next 0..1792.
    const std::string invalid = line(0, kInvalidVersion);
    auto lastHeaderAt = [](uint64_t at, const Block& last) {
        Bytes file = concat({wvBlock(Block().version(1025).flags(kRate)), Bytes(12000 - 64, 0xEE)});
        std::copy_n(wvBlock(last).begin(), 32, file.begin() + at);
        return file;
    };
    Bytes cut = lastHeaderAt(11000, Block().blockIndex(50));
    std::copy_n("wvpk", 4, cut.begin() + 11969);  // no whole header in the last 31 bytes
    expectLogs(
        "x.wv",
        {
            {"known count", concat({wvBlock(Block()), Bytes(100, 0xEE)}), ""},
            // The 40-bit count 0x1FFFFFFFF is not the "unknown" value.
            {"40-bit count", concat({wvBlock(Block().totalSamples(0x1FFFFFFFF)), Bytes(100, 0xEE)}), ""},
            // A lone final block with an unknown count finds itself: its sum is not 0.
            {"finds itself", concat({wvBlock(unknownCount), Bytes(100, 0xEE)}), ""},
            {"index only", concat({wvBlock(unknownCount), wvBlock(Block().totalSamples(0).blockIndex(500))}),
             ""},
            {"count only", concat({wvBlock(unknownCount), wvBlock(Block().totalSamples(500))}), ""},
            {"first index not 0", wvBlock(Block().blockIndex(7)), ""},
            {"tag not searched",
             concat({wvBlock(Block().flags(kRate | kWvFinal).blockIndex(3)), Bytes(40, 0),
                     apeTag(ApeTagSpec().items({apeItem("Comment", decoy, kItemBinary)}))}),
             ""},
            {"final across the stretch start", lastHeaderAt(1759, Block().blockIndex(50)), invalid},
            {"final at the end", lastHeaderAt(11968, Block().blockIndex(50)), invalid},
            {"not final at the end", lastHeaderAt(11968, Block().flags(kRate)), invalid + kNoAudioInfo},
            {"marker in the last 31 bytes", cut, invalid},
        });
}

}  // namespace
}  // namespace sondrel
