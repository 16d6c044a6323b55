#include "core/ImageValidator.h"

namespace sondrel::ImageValidator {

// Placeholder: image decoding arrives with the validation work.
std::optional<std::string> validateImage(const uint8_t*, size_t, std::string_view) {
    return std::nullopt;
}

}  // namespace sondrel::ImageValidator
