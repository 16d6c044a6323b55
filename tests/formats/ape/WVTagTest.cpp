// WavPack checker: the block chain up to the first final block, version and
// sample-rate checks, the end of the stream at the APE tag, and the
// backward search for the sample count at the end of the stream.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/FileHandle.h"
#include "formats/ape/WVTag.h"
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::apeItem;
using fixtures::apeTag;
using fixtures::ApeTagSpec;
using fixtures::concat;
using fixtures::problemsFor;
using fixtures::wvBlock;
using fixtures::WvBlockSpec;

constexpr uint32_t kRate = fixtures::kWvRate44100;
constexpr uint32_t kFinal = fixtures::kWvFinal;

std::string line(uint64_t offset, const std::string& message) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "    %012llu  File: ", static_cast<unsigned long long>(offset));
    return buf + message + "\n";
}

const std::string kNoAudioInfo = line(0, "Cannot locate audio information");

TEST(WVTag, FileSizeAndFirstHeader) {
    const Bytes block = wvBlock(WvBlockSpec().blockSize(34));
    ASSERT_EQ(block.size(), 42u);
    EXPECT_EQ(problemsFor("x.wv", block), "");
    EXPECT_EQ(problemsFor("x.wv", Bytes(block.begin(), block.end() - 1)),
              line(0, "Invalid file size for APE file"));
    // Not a WavPack file: neither blocks nor the APE tag are examined.
    Bytes other = concat({wvBlock(WvBlockSpec()), apeTag(ApeTagSpec().items({apeItem("", "x")}))});
    other[0] = 'W';
    EXPECT_EQ(problemsFor("x.wv", other), line(0, "Missing 'wvpk' header"));
}

TEST(WVTag, CodecVersionRange) {
    for (uint16_t v : {1026, 1040})
        EXPECT_EQ(problemsFor("x.wv", wvBlock(WvBlockSpec().version(v))), "") << v;
    // The walk ends at the bad block. Alone, it leaves the block index at 1,
    // and the end search finds the block itself.
    for (uint16_t v : {1025, 1041}) {
        EXPECT_EQ(problemsFor("x.wv", wvBlock(WvBlockSpec().version(v))), line(0, "Invalid codec version"))
            << v;
        const Bytes chain =
            concat({wvBlock(WvBlockSpec().flags(kRate)), wvBlock(WvBlockSpec().version(v).blockIndex(1000))});
        EXPECT_EQ(problemsFor("x.wv", chain), line(64, "Invalid codec version")) << v;
    }
}

// Blocks are walked up to the first one marked final; the flags are those of
// the latest block with non-zero flags, so an unknown rate carries over.
TEST(WVTag, BlockChainAndUnknownSampleRate) {
    const uint32_t unknown = fixtures::kWvRateUnknown;
    const Bytes chain = concat({wvBlock(WvBlockSpec().blockSize(100).flags(unknown)),
                                wvBlock(WvBlockSpec().flags(0)), wvBlock(WvBlockSpec().flags(kRate | kFinal)),
                                wvBlock(WvBlockSpec().flags(unknown | kFinal))});
    EXPECT_EQ(problemsFor("x.wv", chain),
              line(0, "The sample rate is unknown") + line(108, "The sample rate is unknown"));

    // A broken chain ends the block checks at once, without the end search.
    Bytes broken =
        concat({wvBlock(WvBlockSpec().flags(kRate).blockIndex(5)), wvBlock(WvBlockSpec()), Bytes(64, 0)});
    broken[64] = 'x';
    EXPECT_EQ(problemsFor("x.wv", broken), line(64, "Missing 'wvpk' header"));
}

// The stream ends where the APE tag begins: a next block header needs its 32
// bytes before that point.
TEST(WVTag, ApeTagStartEndsTheStream) {
    const Bytes first = wvBlock(WvBlockSpec().blockSize(56).flags(kRate));  // next block at 64
    const Bytes tail = apeTag(ApeTagSpec().items({apeItem("Title", "Song"), apeItem("", "x")}));
    const Bytes file = concat({first, Bytes(16, 0), tail});
    EXPECT_EQ(problemsFor("x.wv", file),
              line(64, "The audio stream appears to be damaged") +
                  line(80 + apeItem("Title", "Song").size(), "Tag Item key is empty"));
    // With exactly 32 bytes before the tag the next header is read.
    EXPECT_EQ(problemsFor("x.wv", concat({first, Bytes(32, 0), tail})),
              line(64, "Missing 'wvpk' header") +
                  line(96 + apeItem("Title", "Song").size(), "Tag Item key is empty"));

    // An item-less tag with its header right before the footer: the header
    // shortens the stream ...
    EXPECT_EQ(problemsFor("x.wv", concat({first, apeTag(ApeTagSpec().headerFlag(true).writeHeader(true))})),
              line(64, "The audio stream appears to be damaged"));
    // ... but in front of items it is not looked for, so it counts as stream.
    EXPECT_EQ(
        problemsFor(
            "x.wv",
            concat(
                {first,
                 apeTag(ApeTagSpec().items({apeItem("Title", "Song")}).headerFlag(true).writeHeader(true))})),
        line(64, "Missing 'wvpk' header"));
    // An item area that lies before the file's start leaves the stream
    // unbounded: the next header's read fails.
    Bytes longBlock = wvBlock(WvBlockSpec().blockSize(1000).flags(kRate));
    longBlock.resize(64);
    EXPECT_EQ(problemsFor("x.wv",
                          concat({longBlock, apeTag(ApeTagSpec().items({apeItem("", "x")}).tagSize(5000))})),
              line(0, "Read error") + line(1008, "Read error"));
}

// A first block with index 0 and a known count needs no search; otherwise
// the last header before the end of the stream must be a final block, and
// its block index plus its total-samples field is the count.
TEST(WVTag, EndOfStreamSearch) {
    const WvBlockSpec unknownCount = WvBlockSpec().totalSamples(0xFFFFFFFF);
    EXPECT_EQ(problemsFor("x.wv", concat({wvBlock(WvBlockSpec()), Bytes(100, 0xEE)})), "");
    // The 40-bit count 0x1FFFFFFFF is not the "unknown" value.
    EXPECT_EQ(
        problemsFor("x.wv", concat({wvBlock(WvBlockSpec().totalSamples(0x1FFFFFFFF)), Bytes(100, 0xEE)})),
        "");
    // A lone final block with an unknown count finds itself: its sum is not 0.
    EXPECT_EQ(problemsFor("x.wv", concat({wvBlock(unknownCount), Bytes(100, 0xEE)})), "");
    EXPECT_EQ(problemsFor("x.wv", concat({wvBlock(unknownCount),
                                          wvBlock(WvBlockSpec().totalSamples(0).blockIndex(500))})),
              "");
    EXPECT_EQ(problemsFor("x.wv", concat({wvBlock(unknownCount), wvBlock(WvBlockSpec().totalSamples(500))})),
              "");
    EXPECT_EQ(problemsFor("x.wv", concat({wvBlock(unknownCount), wvBlock(WvBlockSpec().totalSamples(0))})),
              kNoAudioInfo);
    // The newest header decides, even when an older one is final.
    EXPECT_EQ(problemsFor("x.wv", concat({wvBlock(unknownCount), wvBlock(WvBlockSpec().flags(kRate))})),
              kNoAudioInfo);
    // A first block index other than 0 forces the search, here finding the first block itself.
    EXPECT_EQ(problemsFor("x.wv", wvBlock(WvBlockSpec().blockIndex(7))), "");
    // The search stops at the APE tag: the tag's bytes are not searched.
    const Bytes decoy = wvBlock(WvBlockSpec().flags(kRate));
    EXPECT_EQ(
        problemsFor("x.wv",
                    concat({wvBlock(WvBlockSpec().flags(kRate | kFinal).blockIndex(3)), Bytes(40, 0),
                            apeTag(ApeTagSpec().items({apeItem("Comment", decoy, fixtures::kItemBinary)}))})),
        "");
}

// Stretches of 10240 bytes, newest first, overlapping by 32 bytes so that a
// header crossing a stretch's start is still seen whole.
TEST(WVTag, EndSearchStretchesOverlap) {
    const uint64_t size = 12000;  // first stretch 1760..12000, the next 0..1792
    // A first block with a bad version starts the search; it is not final,
    // so finding it instead of the planted header gives the message.
    const std::string invalid = line(0, "Invalid codec version");
    auto fileWithLastHeaderAt = [&](uint64_t at, const WvBlockSpec& last) {
        Bytes file = concat({wvBlock(WvBlockSpec().version(1025).flags(kRate)), Bytes(size - 64, 0xEE)});
        const Bytes h = wvBlock(last);
        std::copy_n(h.begin(), 32, file.begin() + at);
        return file;
    };
    EXPECT_EQ(problemsFor("x.wv", fileWithLastHeaderAt(1759, WvBlockSpec().blockIndex(50))), invalid);
    EXPECT_EQ(problemsFor("x.wv", fileWithLastHeaderAt(1750, WvBlockSpec().flags(kRate))),
              invalid + kNoAudioInfo);
    EXPECT_EQ(problemsFor("x.wv", fileWithLastHeaderAt(11968, WvBlockSpec().blockIndex(50))), invalid);
    EXPECT_EQ(problemsFor("x.wv", fileWithLastHeaderAt(11968, WvBlockSpec().flags(kRate))),
              invalid + kNoAudioInfo);
    // A marker in the last 31 bytes (no whole header) is not taken.
    Bytes cut = fileWithLastHeaderAt(11000, WvBlockSpec().blockIndex(50));
    std::copy_n("wvpk", 4, cut.begin() + 11969);
    EXPECT_EQ(problemsFor("x.wv", cut), invalid);
}

TEST(WVTag, SpanForMarker) {
    Bytes data(30000, 0);
    std::copy_n("wvpk", 4, data.begin() + 10238);  // across the first stretch's end
    std::copy_n("wvpk", 4, data.begin() + 25000);
    auto handle = FileHandle::fromMemory(data);
    const uint8_t* marker = reinterpret_cast<const uint8_t*>("wvpk");
    EXPECT_EQ(WVTag::spanForMarker(*handle, marker, 4, 0, 30000), 10238u);
    EXPECT_EQ(WVTag::spanForMarker(*handle, marker, 4, 10239, 30000), 25000u);
    EXPECT_EQ(WVTag::spanForMarker(*handle, marker, 4, 10239, 25003), FileHandle::kNotFound);
    EXPECT_EQ(WVTag::spanForMarker(*handle, marker, 4, 10239, 25004), 25000u);
    // A stop past the end of the file makes the last stretch's read fail.
    EXPECT_EQ(WVTag::spanForMarker(*handle, marker, 4, 20000, 30001), FileHandle::kNotFound);
}

}  // namespace
}  // namespace sondrel
