#pragma once
// Bounded access to bytes held in memory. A checker that has read a block,
// frame or atom into a buffer walks it through a ByteReader (a cursor) or
// takes pieces of it with `slice`; neither can reach a byte outside the span
// it was given, and a read that would need more bytes than remain reports
// failure instead of returning partial data. Lengths taken from a file are
// untrusted: every test here is written as a subtraction from what is left,
// so no sum of an offset and a length can wrap.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "core/Bytes.h"

namespace sondrel {

// The piece [offset, offset + length) of `span`, or nullopt when it does not
// lie wholly inside.
inline std::optional<ByteSpan> slice(ByteSpan span, uint64_t offset, uint64_t length) {
    if (!fits(span.size(), offset, length)) return std::nullopt;
    return span.subspan(size_t(offset), size_t(length));
}

// Everything of `span` from `offset` on (empty when offset is past the end).
inline ByteSpan sliceFrom(ByteSpan span, uint64_t offset) {
    return offset >= span.size() ? ByteSpan{} : span.subspan(size_t(offset));
}

class ByteReader {
  public:
    explicit ByteReader(ByteSpan span) : span_(span) {}
    ByteReader(const uint8_t* data, size_t size) : span_(data, size) {}

    size_t size() const { return span_.size(); }
    size_t pos() const { return pos_; }
    size_t remaining() const { return span_.size() - pos_; }
    bool atEnd() const { return pos_ == span_.size(); }
    bool has(uint64_t n) const { return n <= remaining(); }

    // Moves the cursor; refuses (and stays put) past the end.
    bool seek(uint64_t pos) {
        if (pos > span_.size()) return false;
        pos_ = size_t(pos);
        return true;
    }
    bool skip(uint64_t n) {
        if (!has(n)) return false;
        pos_ += size_t(n);
        return true;
    }

    // The next `n` bytes, consumed; nullopt (nothing consumed) when fewer remain.
    std::optional<ByteSpan> bytes(uint64_t n) {
        if (!has(n)) return std::nullopt;
        ByteSpan out = span_.subspan(pos_, size_t(n));
        pos_ += size_t(n);
        return out;
    }
    // What remains, without consuming it.
    ByteSpan rest() const { return span_.subspan(pos_); }

    std::optional<uint8_t> u8() {
        return read<1>([](const uint8_t* p) { return p[0]; });
    }
    std::optional<uint16_t> be16() { return read<2>(sondrel::be16); }
    std::optional<uint16_t> le16() { return read<2>(sondrel::le16); }
    std::optional<uint32_t> be24() { return read<3>(sondrel::be24); }
    std::optional<uint32_t> le24() { return read<3>(sondrel::le24); }
    std::optional<uint32_t> be32() { return read<4>(sondrel::be32); }
    std::optional<uint32_t> le32() { return read<4>(sondrel::le32); }
    std::optional<uint64_t> be64() { return read<8>(sondrel::be64); }
    std::optional<uint64_t> le64() { return read<8>(sondrel::le64); }

  private:
    template <size_t N, typename F>
    auto read(F decode) -> std::optional<decltype(decode(static_cast<const uint8_t*>(nullptr)))> {
        if (!has(N)) return std::nullopt;
        auto v = decode(span_.data() + pos_);
        pos_ += N;
        return v;
    }

    ByteSpan span_;
    size_t pos_ = 0;
};

}  // namespace sondrel
