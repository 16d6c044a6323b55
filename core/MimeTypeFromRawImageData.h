#pragma once
// Sniffs what kind of image a block of artwork bytes really is, from its
// first bytes only.
#include <cstddef>
#include <cstdint>

namespace sondrel {

class MimeTypeFromRawImageData {
  public:
    enum Code : int { unknown = 0, jpeg = 1, png = 2 };
    // PNG needs its whole 8-byte signature, JPEG the start-of-image marker
    // FF D8; anything shorter than 8 bytes is unknown.
    static int mimeCodeForData(const uint8_t* bytes, size_t length);
};

}  // namespace sondrel
