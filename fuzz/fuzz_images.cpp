// Artwork checks on arbitrary bytes: every decoder behind the check must
// refuse or accept without reading outside the data, leaking or hanging.
#include <cstddef>
#include <cstdint>

#include "core/ImageValidator.h"
#include "core/MimeTypeFromRawImageData.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)sondrel::ImageValidator::validateImage(data, size, "image/jpeg");
    (void)sondrel::MimeTypeFromRawImageData::mimeCodeForData(data, size);
    return 0;
}
