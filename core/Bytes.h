#pragma once
// Byte buffers and fixed-width integer readers named by width and byte order.
// The raw readers take a pointer that the caller has already bounds-checked;
// `fits` is the one overflow-safe range test that every caller uses first.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sondrel {

using Bytes = std::vector<uint8_t>;
using ByteSpan = std::span<const uint8_t>;

// True when [pos, pos + len) lies inside a buffer of `size` bytes; written as
// subtractions so that no sum can wrap.
constexpr bool fits(uint64_t size, uint64_t pos, uint64_t len) {
    return pos <= size && len <= size - pos;
}

inline uint16_t be16(const uint8_t* p) {
    return uint16_t((p[0] << 8) | p[1]);
}
inline uint32_t be24(const uint8_t* p) {
    return (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
}
inline uint32_t be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}
inline uint64_t be64(const uint8_t* p) {
    return (uint64_t(be32(p)) << 32) | be32(p + 4);
}
inline uint16_t le16(const uint8_t* p) {
    return uint16_t(p[0] | (p[1] << 8));
}
inline uint32_t le24(const uint8_t* p) {
    return p[0] | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16);
}
inline uint32_t le32(const uint8_t* p) {
    return p[0] | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline uint64_t le64(const uint8_t* p) {
    return le32(p) | (uint64_t(le32(p + 4)) << 32);
}

// A four-character code as a big-endian 32-bit number ("fLaC", "RIFF", ...).
constexpr uint32_t fourcc(const char (&s)[5]) {
    return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
           (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

}  // namespace sondrel
