#include "core/ImageValidator.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include <fmt/format.h>

#include "core/Bytes.h"
#include "core/ImageDecoders.h"
#include "core/MimeTypeFromRawImageData.h"
#include "core/Module.h"

namespace sondrel {

bool ImageBudget::spend(uint64_t pixels) {
    if (pixels > pixelsLeft_) return false;
    pixelsLeft_ -= pixels;
    return true;
}

ImageBudget::Key ImageBudget::keyFor(const uint8_t* bytes, size_t length) {
    // FNV-1a and the library's string hash: two unrelated functions, so that
    // two different pictures of one length practically never share a key.
    uint64_t fnv = 14695981039346656037u;
    for (size_t i = 0; i < length; ++i) fnv = (fnv ^ bytes[i]) * 1099511628211u;
    const uint64_t other =
        std::hash<std::string_view>{}(std::string_view(reinterpret_cast<const char*>(bytes), length));
    return {length, {fnv, other}};
}

const ImageValidator::Decision* ImageBudget::recall(const Key& key) const {
    auto it = seen_.find(key);
    return it == seen_.end() ? nullptr : &it->second;
}

void ImageBudget::remember(const Key& key, const ImageValidator::Decision& decision) {
    if (seen_.size() < kRemembered) seen_.emplace(key, decision);
}

namespace ImageValidator {

namespace {

constexpr std::string_view kNotAnImage = "Artwork data cannot be represented as an image";
constexpr std::string_view kNotJPEG =
    "Artwork mime type is image/jpeg but the data does not represent a jpeg image";
constexpr std::string_view kNotPNG =
    "Artwork mime type is image/png but the data does not represent a png image";
constexpr std::string_view kFileBudgetSpent =
    "Artwork not checked: the file's artwork decoding budget is spent";

constexpr std::string_view kNotLoaded = "Artwork not checked: the image decoders could not be loaded";

std::string tooLargeMessage(uint64_t width, uint64_t height) {
    return fmt::format("Artwork not checked: {}x{} pixels exceed the decoding budget", width, height);
}

// The gate of one picture: the limits, the file's budget, and what stopped
// the decoder when it was not run to the end.
class BudgetGate final : public Gate {
  public:
    explicit BudgetGate(ImageBudget& budget) : budget_(budget) {}

    bool admit(uint64_t width, uint64_t height, uint64_t heldBytesPerPixel, uint64_t maxHeldBytes) override {
        const uint64_t pixels = width * height;  // both are below 2^32
        if (pixels > kMaxImagePixels ||
            (heldBytesPerPixel != 0 && pixels > maxHeldBytes / heldBytesPerPixel)) {
            why = tooLargeMessage(width, height);
            return false;
        }
        if (!budget_.timeLeft() || !budget_.spend(pixels)) {
            why = std::string(kFileBudgetSpent);
            return false;
        }
        return true;
    }
    void tooLarge(uint64_t width, uint64_t height) override { why = tooLargeMessage(width, height); }

    std::string why;

  private:
    ImageBudget& budget_;
};

// A module's table, loaded on first use; nullptr when it cannot be loaded.
const Decoders* loadDecoders(const char* name) {
    auto* table = static_cast<const Decoders*>(module::table(name));
    return table && table->size == sizeof(Decoders) ? table : nullptr;
}

const Decoders* classicDecoders() {
    static const Decoders* const loaded = loadDecoders(kDecodersModule);
    return loaded;
}

const Decoders* modernDecoders() {
    static const Decoders* const loaded = loadDecoders(kModernDecodersModule);
    return loaded;
}

bool startsWith(const uint8_t* bytes, size_t length, std::string_view magic, size_t at = 0) {
    return length >= at && magic.size() <= length - at &&
           std::memcmp(bytes + at, magic.data(), magic.size()) == 0;
}

// The decoder that could accept the data: each decoder insists on its own
// signature, so the signature picks the one. Nothing when no decoder could.
Decoder decoderFor(const uint8_t* bytes, size_t length, bool& loaded) {
    auto from = [&loaded](const Decoders* table, Decoder Decoders::*decoder) -> Decoder {
        loaded = table != nullptr;
        return table ? table->*decoder : nullptr;
    };
    loaded = true;
    if (startsWith(bytes, length, "\xFF\xD8")) return from(classicDecoders(), &Decoders::jpeg);
    if (startsWith(bytes, length, "\x89PNG\r\n\x1A\n")) return from(classicDecoders(), &Decoders::png);
    // giflib itself only insists on "GIF"; the version digits are not checked.
    if (startsWith(bytes, length, "GIF")) return from(classicDecoders(), &Decoders::gif);
    if (startsWith(bytes, length, "RIFF") && startsWith(bytes, length, "WEBP", 8))
        return from(classicDecoders(), &Decoders::webp);
    if (startsWith(bytes, length, std::string_view("II*\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0*", 4)) ||
        startsWith(bytes, length, std::string_view("II+\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0+", 4)))
        return from(classicDecoders(), &Decoders::tiff);
    if (startsWith(bytes, length, "BM")) return from(classicDecoders(), &Decoders::bmp);
    switch (MimeTypeFromRawImageData::mimeCodeForData(bytes, length)) {
        case MimeTypeFromRawImageData::avif:
            return from(modernDecoders(), &Decoders::avif);
        case MimeTypeFromRawImageData::heif:
        case MimeTypeFromRawImageData::heic:
            return from(modernDecoders(), &Decoders::heif);
        case MimeTypeFromRawImageData::jxl:
            return from(modernDecoders(), &Decoders::jxl);
        default:
            return nullptr;
    }
}

}  // namespace

Decision decide(const uint8_t* bytes, size_t length, ImageBudget& budget) {
    if (!bytes || length == 0) return {Verdict::undecodable, {}};
    const ImageBudget::Key key = ImageBudget::keyFor(bytes, length);
    if (const Decision* known = budget.recall(key)) return *known;
    bool loaded = true;
    const Decoder decoder = decoderFor(bytes, length, loaded);
    if (!loaded) return {Verdict::notChecked, std::string(kNotLoaded)};
    if (!decoder) return {Verdict::undecodable, {}};
    BudgetGate gate(budget);
    Decision decision{decoder(bytes, length, gate), {}};
    if (decision.verdict == Verdict::notChecked) decision.why = std::move(gate.why);
    budget.remember(key, decision);
    return decision;
}

bool canDecode(const uint8_t* bytes, size_t length) {
    ImageBudget budget;
    return decide(bytes, length, budget).verdict != Verdict::undecodable;
}

std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType,
                                         ImageBudget& budget) {
    Decision decision = decide(bytes, length, budget);
    if (decision.verdict == Verdict::undecodable) return std::string(kNotAnImage);
    if (decision.verdict == Verdict::notChecked && budget.takeNote()) return std::move(decision.why);
    const int code = MimeTypeFromRawImageData::mimeCodeForData(bytes, length);
    if (mimeType == "image/jpeg" && code != MimeTypeFromRawImageData::jpeg) return std::string(kNotJPEG);
    if (mimeType == "image/png" && code != MimeTypeFromRawImageData::png) return std::string(kNotPNG);
    return std::nullopt;
}

std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType) {
    ImageBudget budget;
    return validateImage(bytes, length, mimeType, budget);
}

}  // namespace ImageValidator
}  // namespace sondrel
