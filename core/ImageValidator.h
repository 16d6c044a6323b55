#pragma once
// Artwork checks: the data must decode as an image, and a JPEG or PNG MIME
// type must match what the data really is.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sondrel::ImageValidator {

// True when one of the image decoders (JPEG, PNG, GIF, WebP, TIFF, BMP)
// accepts the data; a decoder's warning still counts as decoded.
bool canDecode(const uint8_t* bytes, size_t length);

// A message for undecodable or mislabelled artwork, or nullopt when it is fine.
std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType);

}  // namespace sondrel::ImageValidator
