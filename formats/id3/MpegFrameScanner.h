#pragma once
// Follows the MPEG audio frames of a byte range from header to header, the way
// the MP3 checker measures a stream that carries no Xing/Info/VBRI summary:
// find the first position that holds a measurable frame header, step by each
// frame's length, and fall back to a byte-by-byte search wherever the next
// header is not where the previous one said it would be.
//
// The range is never held in memory as one piece: it is read in blocks of a
// fixed size, and the last bytes of a block that a header (or the probe of the
// first frame) still needs are carried over into the next, so the result is
// the same for any block size and memory stays flat whatever the file size.
#include <cstdint>
#include <functional>

#include "core/Bytes.h"
#include "formats/id3/MpegFrameHeader.h"

namespace sondrel {

class MpegFrameScanner {
  public:
    static constexpr uint64_t kBlockSize = 64 * 1024;
    // Bytes of the first frame that a Xing/Info or VBRI probe may read.
    static constexpr uint64_t kProbeLength = 58;
    // Bytes kept in view from the current position: the probe's 58 plus one,
    // because the probe runs only when more than 58 bytes remain.
    static constexpr uint64_t kLookahead = kProbeLength + 1;

    // Reads `length` bytes at `position` (counted from the range's start)
    // into `out`; false unless all of them were read.
    using ReadFn = std::function<bool(uint64_t position, uint8_t* out, uint64_t length)>;
    // Looks at the first frame found (at least kProbeLength bytes); true when
    // it carries a usable summary header, which ends the scan.
    using ProbeFn = std::function<bool(const uint8_t* frame, const MpegFrameHeader& header)>;

    struct Result {
        bool readFailed = false;  // a block could not be read: nothing else holds
        bool foundHeader = false;
        uint64_t firstHeader = 0;  // position of the first measurable header
        bool probeAccepted = false;
        uint64_t frames = 0;
        uint64_t bitrateSum = 0;  // kbit/s summed over the frames counted
        double seconds = 0;
        bool vbr = false;      // a frame's bitrate differed from the previous one's
        MpegFrameHeader last;  // the last header decoded
    };

    // `blockSize` below kLookahead is raised to it.
    MpegFrameScanner(ReadFn read, uint64_t size, uint64_t blockSize = kBlockSize);

    Result scan(const ProbeFn& probe);

  private:
    // The buffered bytes from `position` on, with at least kLookahead of them
    // (fewer only at the range's end); null when a read failed.
    const uint8_t* at(uint64_t position);

    ReadFn read_;
    uint64_t size_;
    uint64_t blockSize_;
    Bytes buffer_;
    uint64_t windowStart_ = 0;  // range position of buffer_[0]
    uint64_t windowEnd_ = 0;    // range position after the last valid byte
};

}  // namespace sondrel
