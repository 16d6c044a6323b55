#pragma once
// Reads a span of a file front to back through one fixed buffer, so that the
// memory a verification needs does not grow with the file. `window` makes
// bytes [pos, pos + want) available as far as the span allows; the returned
// view may be shorter than `want` only at the end of the span.
#include <cstdint>
#include <span>

#include "core/Bytes.h"
#include "core/FileHandle.h"

namespace sondrel::verify {

class SequentialReader {
  public:
    static constexpr size_t kBufferSize = 1 << 20;

    SequentialReader(FileHandle& file, uint64_t end) : file_(file), end_(end) {}

    uint64_t end() const { return end_; }
    bool failed() const { return failed_; }

    // The bytes from `pos` on that are in the buffer, refilled when fewer
    // than `want` remain in it. Empty at the end of the span or on a read error.
    ByteSpan window(uint64_t pos, size_t want) {
        if (pos >= end_ || failed_) return {};
        const bool inside = pos >= start_ && pos - start_ <= buffer_.size();
        if (!inside || (buffer_.size() - (pos - start_) < want && start_ + buffer_.size() < end_)) {
            size_t n = size_t(std::min<uint64_t>(kBufferSize, end_ - pos));
            buffer_.resize(n);
            if (!file_.readInto(pos, buffer_.data(), n)) {
                failed_ = true;
                buffer_.clear();
                return {};
            }
            start_ = pos;
        }
        return ByteSpan(buffer_).subspan(size_t(pos - start_));
    }

  private:
    FileHandle& file_;
    uint64_t end_;
    Bytes buffer_;
    uint64_t start_ = 0;
    bool failed_ = false;
};

}  // namespace sondrel::verify
