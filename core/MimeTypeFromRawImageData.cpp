#include "core/MimeTypeFromRawImageData.h"

#include <algorithm>
#include <cstring>

#include "core/Bytes.h"

namespace sondrel {

namespace {

// The ISO base media file brands of HEIF pictures: AV1-coded ones are
// AVIF, HEVC-coded ones HEIC, and the structural brands say only "HEIF".
int codeForBrand(uint32_t brand) {
    switch (brand) {
        case fourcc("avif"):
        case fourcc("avis"):
            return MimeTypeFromRawImageData::avif;
        case fourcc("heic"):
        case fourcc("heix"):
        case fourcc("heim"):
        case fourcc("heis"):
        case fourcc("hevc"):
        case fourcc("hevx"):
            return MimeTypeFromRawImageData::heic;
        case fourcc("mif1"):
        case fourcc("mif2"):
        case fourcc("msf1"):
            return MimeTypeFromRawImageData::heif;
        default:
            return MimeTypeFromRawImageData::unknown;
    }
}

// The major brand decides; otherwise a coded brand among the compatible
// ones wins over a structural one.
int codeForFileType(const uint8_t* bytes, size_t length) {
    if (length < 16 || std::memcmp(bytes + 4, "ftyp", 4) != 0) return MimeTypeFromRawImageData::unknown;
    const uint64_t boxSize = std::min<uint64_t>(be32(bytes), length);
    const int major = codeForBrand(be32(bytes + 8));
    if (major == MimeTypeFromRawImageData::avif || major == MimeTypeFromRawImageData::heic) return major;
    int best = major;
    for (uint64_t at = 16; at <= boxSize && boxSize - at >= 4; at += 4) {
        const int code = codeForBrand(be32(bytes + at));
        if (code == MimeTypeFromRawImageData::avif || code == MimeTypeFromRawImageData::heic) return code;
        if (code != MimeTypeFromRawImageData::unknown) best = code;
    }
    return best;
}

}  // namespace

int MimeTypeFromRawImageData::mimeCodeForData(const uint8_t* bytes, size_t length) {
    static constexpr uint8_t kPNGSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    static constexpr uint8_t kJXLContainer[12] = {0, 0, 0, 0x0C, 'J', 'X', 'L', ' ', 0x0D, 0x0A, 0x87, 0x0A};
    if (!bytes || length < 8) return unknown;
    if (std::memcmp(bytes, kPNGSignature, sizeof kPNGSignature) == 0) return png;
    if (bytes[0] == 0xFF && bytes[1] == 0xD8) return jpeg;
    if (bytes[0] == 0xFF && bytes[1] == 0x0A) return jxl;
    if (length >= sizeof kJXLContainer && std::memcmp(bytes, kJXLContainer, sizeof kJXLContainer) == 0)
        return jxl;
    return codeForFileType(bytes, length);
}

std::string_view MimeTypeFromRawImageData::mimeTypeForCode(int code) {
    switch (code) {
        case jpeg:
            return "image/jpeg";
        case png:
            return "image/png";
        case avif:
            return "image/avif";
        case heic:
            return "image/heic";
        case heif:
            return "image/heif";
        case jxl:
            return "image/jxl";
        default:
            return {};
    }
}

}  // namespace sondrel
