// The streamed frame scan: the same result for every block size as for the
// whole range in one piece, bounded reads, and the frame-following rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "formats/id3/MpegFrameScanner.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

struct ScanRun {
    MpegFrameScanner::Result result;
    uint64_t largestRead = 0;
    Bytes probed;  // the bytes the probe saw
    auto key() const {
        const auto& r = result;
        return std::tie(r.readFailed, r.foundHeader, r.firstHeader, r.probeAccepted, r.frames, r.bitrateSum,
                        r.seconds, r.vbr, r.last.version, r.last.layer, r.last.bitrateIndex, probed);
    }
    bool operator==(const ScanRun& o) const { return key() == o.key(); }
};

// Scans `data` read through the block-wise reader; the probe accepts when the
// first frame's bytes hold "Xing" where MPEG-1 stereo puts it.
ScanRun scan(const Bytes& data, uint64_t blockSize, int64_t failAt = -1) {
    ScanRun run;
    MpegFrameScanner scanner(
        [&](uint64_t pos, uint8_t* out, uint64_t len) {
            run.largestRead = std::max(run.largestRead, len);
            if (failAt >= 0 && pos + len > uint64_t(failAt)) return false;
            if (pos > data.size() || len > data.size() - pos) return false;
            std::memcpy(out, data.data() + pos, len);
            return true;
        },
        data.size(), blockSize);
    run.result = scanner.scan([&](const uint8_t* frame, const MpegFrameHeader&) {
        run.probed.assign(frame, frame + MpegFrameScanner::kProbeLength);
        return std::memcmp(frame + 36, "Xing", 4) == 0;
    });
    return run;
}

const MpegSpec kCBR;
const MpegSpec kMpeg2{.version = 2, .bitrate = 64, .samplerate = 24000};

// A long stream with everything the scan reacts to: leading garbage, frames
// of changing bitrate with and without padding, false syncs, a run of junk,
// MPEG-2 Layer III frames followed with doubled lengths, a cut last frame.
Bytes mixedStream() {
    ByteBuilder b;
    b.bytes({0, 0xFF, 0xFF, 0xFB, 0x00, 7});
    MpegSpec s;
    const int rates[] = {128, 320, 32, 192, 256, 40, 64};
    for (int i = 0; i < 300; ++i) {
        s.bitrate = rates[i % 7];
        s.padding = i % 3 == 0;
        b.bytes(mpegFrame(s));
        if (i % 37 == 5) b.bytes({0xFF, 0xFA, 0xF0, 0xFF, 0xFF, 0xE2});  // syncs that are no headers
        if (i % 53 == 9) b.fill(1 + i % 61, 0x5A);
    }
    for (int i = 0; i < 40; ++i) b.bytes(mpegFrame(kMpeg2, mpegRealLength(kMpeg2)));
    b.bytes(mpegFrames({.layer = 1, .bitrate = 448, .samplerate = 32000}, 30));
    return b.bytes(truncated(mpegFrame(kCBR), 30)).take();
}

TEST(MP3FrameScan, EveryBlockSizeGivesTheWholeRangeResult) {
    Bytes data = mixedStream();
    ASSERT_GT(data.size(), 3 * MpegFrameScanner::kBlockSize / 2);
    ScanRun whole = scan(data, data.size());
    ASSERT_TRUE(whole.result.foundHeader);
    EXPECT_EQ(whole.result.firstHeader, 6u);  // FF FB 00: free format is no start
    EXPECT_TRUE(whole.result.vbr);
    EXPECT_GT(whole.result.frames, 300u);
    for (uint64_t block : {1, 59, 60, 61, 64, 100, 417, 418, 1000, 4096, int(MpegFrameScanner::kBlockSize)}) {
        SCOPED_TRACE(block);
        ScanRun blocked = scan(data, block);
        EXPECT_TRUE(blocked == whole);
        EXPECT_LE(blocked.largestRead, std::max(block, MpegFrameScanner::kLookahead));
    }
    // A header and a summary straddling a block boundary at every offset.
    for (uint64_t garbage = 0; garbage < 140; ++garbage) {
        Bytes d = concat({Bytes(garbage, 0), xingFrame(kCBR, "Xing", 3, 100, 1000), mpegFrames(kCBR, 2)});
        ScanRun reference = scan(d, d.size());
        ASSERT_TRUE(reference.result.probeAccepted);
        EXPECT_TRUE(scan(d, 64) == reference) << garbage;
        EXPECT_TRUE(scan(d, 100) == reference) << garbage;
    }
}

TEST(MP3FrameScan, FollowsFramesAndEndsOnFailedReads) {
    // MPEG-2 Layer III frames hold 576 samples but are stepped over with the
    // factor 144000: every second one of ten is met.
    EXPECT_EQ(scan(mpegFrames(kMpeg2, 10, mpegRealLength(kMpeg2)), 4096).result.frames, 5u);
    // Layer I counts 4-byte slots, padding adds one.
    MpegSpec l1{.layer = 1, .bitrate = 32, .samplerate = 48000, .padding = true};
    EXPECT_EQ(scan(mpegFrames(l1, 7), 4096).result.frames, 7u);
    // MPEG-2 Layer I has a bitrate table of its own (144 kbit/s is in no other).
    EXPECT_EQ(scan(mpegFrames({.version = 2, .layer = 1, .bitrate = 144, .samplerate = 24000}, 7), 4096)
                  .result.bitrateSum,
              7u * 144);
    // 10 CBR frames: 128 kbit/s each, 417 bytes = 26.06 ms each.
    ScanRun cbr = scan(mpegFrames(kCBR, 10), 4096);
    EXPECT_EQ(std::tuple(cbr.result.frames, cbr.result.bitrateSum, cbr.result.vbr),
              std::tuple(10u, 1280u, false));
    EXPECT_NEAR(cbr.result.seconds, 10 * 417 * 8 / 128000.0, 1e-9);
    // A frame whose header stands within 16 bytes of the end is not counted.
    Bytes cut = concat({mpegFrames(kCBR, 2), mpegHeader(kCBR), Bytes(11, 0)});
    EXPECT_EQ(scan(cut, 4096).result.frames, 2u);
    cut.push_back(0);
    EXPECT_EQ(scan(cut, 4096).result.frames, 3u);
    // The probe sees a frame only with more than 58 bytes from its header.
    Bytes d = concat({Bytes(5, 0), mpegHeader(kCBR), Bytes(54, 0)});
    EXPECT_TRUE(scan(d, 4096).result.foundHeader);
    EXPECT_TRUE(scan(d, 4096).probed.empty());
    d.push_back(0);
    EXPECT_FALSE(scan(d, 4096).probed.empty());
    ScanRun failed = scan(mpegFrames(kCBR, 400), 4096, 100000);
    EXPECT_EQ(std::tuple(failed.result.readFailed, failed.result.frames), std::tuple(true, 0u));
    EXPECT_FALSE(scan(Bytes(16, 0xFF), 4096).result.foundHeader);
}

}  // namespace
}  // namespace sondrel
