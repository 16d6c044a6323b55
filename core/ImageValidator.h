#pragma once
// Artwork checks: the data must decode as an image, and a JPEG or PNG MIME
// type must match what the data really is.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace sondrel {

namespace ImageValidator {

enum class Verdict {
    decoded,      // one of the image decoders accepts the data
    undecodable,  // every decoder refuses it
    notChecked,   // decoding it would exceed the budget; `why` says how
};

struct Decision {
    Verdict verdict;
    std::string why;  // for notChecked: what was too large
};

}  // namespace ImageValidator

// What decoding one file's artwork may cost. A file's pictures share it, so
// a file packed with pictures costs no more than a file with a few large
// ones; a picture already decided in this file is not decoded again.
class ImageBudget {
  public:
    // Real covers and booklet scans stay below these: about seven pictures
    // of 6000 x 6000 pixels or sixteen of 4000 x 4000, or half a minute of
    // decoding. A file of crafted pictures costs a few seconds at most.
    static constexpr uint64_t kFilePixels = uint64_t{1} << 28;
    static constexpr std::chrono::seconds kFileTime{30};

    explicit ImageBudget(uint64_t pixels = kFilePixels, std::chrono::steady_clock::duration time = kFileTime)
        : pixelsLeft_(pixels), deadline_(std::chrono::steady_clock::now() + time) {}

    // Takes `pixels` from the budget when they are still there.
    bool spend(uint64_t pixels);
    bool timeLeft() const { return std::chrono::steady_clock::now() < deadline_; }

    // The note for a picture that was not checked is given once per file.
    bool takeNote() { return !std::exchange(noted_, true); }

    // Pictures already decided in this file, known by their length and two
    // independent hashes of their bytes.
    using Key = std::pair<uint64_t, std::pair<uint64_t, uint64_t>>;
    static Key keyFor(const uint8_t* bytes, size_t length);
    const ImageValidator::Decision* recall(const Key& key) const;
    void remember(const Key& key, const ImageValidator::Decision& decision);

  private:
    // More distinct pictures than this are decided without being remembered.
    static constexpr size_t kRemembered = 1024;
    uint64_t pixelsLeft_;
    std::chrono::steady_clock::time_point deadline_;
    bool noted_ = false;
    std::map<Key, ImageValidator::Decision> seen_;
};

namespace ImageValidator {

// Decides whether one of the image decoders (JPEG, PNG, GIF, WebP, TIFF, BMP,
// AVIF, HEIF, JPEG XL) accepts the data; a decoder's warning still counts as
// decoded. Spends from `budget`.
Decision decide(const uint8_t* bytes, size_t length, ImageBudget& budget);

// With a budget of its own: true unless every decoder refuses the data.
bool canDecode(const uint8_t* bytes, size_t length);

// A message for undecodable or mislabelled artwork, or nullopt when it is
// fine. A picture the budget stops is not called broken: the first one in a
// file gets a note saying what was not checked, later ones nothing.
std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType,
                                         ImageBudget& budget);
std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType);

}  // namespace ImageValidator
}  // namespace sondrel
