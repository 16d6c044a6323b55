#include "formats/id3/MpegFrameScanner.h"

#include <algorithm>
#include <cstring>

namespace sondrel {

namespace {

// A search position needs 17 bytes of range from it, a followed frame 16.
constexpr uint64_t kSearchSpan = 17;
constexpr uint64_t kFollowSpan = 16;

}  // namespace

MpegFrameScanner::MpegFrameScanner(ReadFn read, uint64_t size, uint64_t blockSize)
    : read_(std::move(read)), size_(size), blockSize_(std::max(blockSize, kLookahead)) {}

const uint8_t* MpegFrameScanner::at(uint64_t position) {
    uint64_t need = std::min(kLookahead, size_ - position);
    if (position >= windowStart_ && need <= windowEnd_ - position && position < windowEnd_)
        return buffer_.data() + (position - windowStart_);
    if (buffer_.empty()) buffer_.resize(std::min(blockSize_, size_));
    // Carry the bytes still in view to the front; read only what follows them.
    uint64_t keep = 0;
    if (position >= windowStart_ && position < windowEnd_) {
        keep = windowEnd_ - position;
        std::memmove(buffer_.data(), buffer_.data() + (position - windowStart_), keep);
    }
    uint64_t want = std::min<uint64_t>(buffer_.size(), size_ - position);
    windowStart_ = windowEnd_ = position;
    if (!read_(position + keep, buffer_.data() + keep, want - keep)) return nullptr;
    windowEnd_ = position + want;
    return buffer_.data();
}

MpegFrameScanner::Result MpegFrameScanner::scan(const ProbeFn& probe) {
    Result r;
    if (size_ < kSearchSpan) return r;
    const uint64_t searchEnd = size_ - kSearchSpan + 1;  // first position too late to search
    const uint64_t followEnd = size_ - kFollowSpan + 1;  // first position too late to follow
    uint64_t p = 0;
    uint64_t lastBitrate = 0;
    auto failed = [] {
        Result f;
        f.readFailed = true;
        return f;
    };

    while (p < searchEnd) {
        // Search byte by byte for a measurable header, a buffer at a time.
        std::optional<MpegFrameHeader> header;
        while (p < searchEnd) {
            if (!at(p)) return failed();
            // Candidates whose lookahead lies wholly in the buffer.
            uint64_t limit =
                windowEnd_ >= size_ ? searchEnd : std::min(searchEnd, windowEnd_ - kLookahead + 1);
            const uint8_t* q = buffer_.data() + (p - windowStart_);
            const uint8_t* end = buffer_.data() + (limit - windowStart_);
            while (q < end) {
                q = static_cast<const uint8_t*>(std::memchr(q, 0xFF, size_t(end - q)));
                if (!q) break;
                if ((header = MpegFrameHeader::decode(q))) break;
                ++q;
            }
            if (header) {
                p = windowStart_ + uint64_t(q - buffer_.data());
                break;
            }
            p = limit;
        }
        if (!header) break;
        r.last = *header;

        if (!r.foundHeader) {
            r.foundHeader = true;
            r.firstHeader = p;
            if (size_ - p > kProbeLength && probe(at(p), *header)) {
                r.probeAccepted = true;
                return r;
            }
        }

        // Follow the frames while each header stands where the last one said.
        while (p < followEnd) {
            const uint8_t* b = at(p);
            if (!b) return failed();
            auto frame = MpegFrameHeader::decode(b);
            if (!frame) {
                ++p;
                break;
            }
            r.last = *frame;
            uint64_t bitrate = frame->bitrate();
            uint64_t length = frame->frameLength();
            r.bitrateSum += bitrate;
            ++r.frames;
            r.seconds += double(length * 8) / double(bitrate * 1000);
            if (lastBitrate != 0 && bitrate != lastBitrate) r.vbr = true;
            lastBitrate = bitrate;
            p += length;
        }
    }
    return r;
}

}  // namespace sondrel
