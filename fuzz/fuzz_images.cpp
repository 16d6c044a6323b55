// Artwork checks on arbitrary bytes: every decoder behind the check must
// refuse or accept without reading outside the data, leaking or hanging, and
// within one file's decoding budget.
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/ImageValidator.h"
#include "core/MimeTypeFromRawImageData.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using sondrel::MimeTypeFromRawImageData;
    const int code = MimeTypeFromRawImageData::mimeCodeForData(data, size);
    const std::string mime(MimeTypeFromRawImageData::mimeTypeForCode(code));
    sondrel::ImageBudget budget;
    (void)sondrel::ImageValidator::validateImage(data, size, mime.empty() ? "image/jpeg" : mime, budget);
    // The same picture again is answered from what the budget remembers.
    (void)sondrel::ImageValidator::validateImage(data, size, "image/png", budget);
    return 0;
}
