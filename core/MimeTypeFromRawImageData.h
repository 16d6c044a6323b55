#pragma once
// Sniffs what kind of image a block of artwork bytes really is, from its
// first bytes only.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sondrel {

class MimeTypeFromRawImageData {
  public:
    enum Code : int { unknown = 0, jpeg = 1, png = 2, avif = 3, heic = 4, heif = 5, jxl = 6 };
    // PNG needs its whole 8-byte signature, JPEG the start-of-image marker
    // FF D8; anything shorter than 8 bytes is unknown. AVIF, HEIC and HEIF
    // are told by the brands of their leading `ftyp` box, JPEG XL by its
    // codestream marker FF 0A or its container signature.
    static int mimeCodeForData(const uint8_t* bytes, size_t length);
    // The usual MIME type of a code ("image/avif", ...), empty for unknown.
    static std::string_view mimeTypeForCode(int code);
};

}  // namespace sondrel
