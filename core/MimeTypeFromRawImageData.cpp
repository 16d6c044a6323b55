#include "core/MimeTypeFromRawImageData.h"

#include <cstring>

namespace sondrel {

int MimeTypeFromRawImageData::mimeCodeForData(const uint8_t* bytes, size_t length) {
    static constexpr uint8_t kPNGSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (!bytes || length < 8) return unknown;
    if (std::memcmp(bytes, kPNGSignature, sizeof kPNGSignature) == 0) return png;
    if (bytes[0] == 0xFF && bytes[1] == 0xD8) return jpeg;
    return unknown;
}

}  // namespace sondrel
