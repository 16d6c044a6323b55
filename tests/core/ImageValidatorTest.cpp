#include "core/ImageValidator.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/MimeTypeFromRawImageData.h"
#include "tests/core/ImageSamples.h"

namespace sondrel {
namespace {

using ImageValidator::canDecode;
using ImageValidator::validateImage;

constexpr const char* kNotAnImage = "Artwork data cannot be represented as an image";
constexpr const char* kNotJPEG =
    "Artwork mime type is image/jpeg but the data does not represent a jpeg image";
constexpr const char* kNotPNG = "Artwork mime type is image/png but the data does not represent a png image";

std::optional<std::string> check(const Bytes& b, std::string_view mime) {
    return validateImage(b.data(), b.size(), mime);
}

Bytes cut(const Bytes& b, size_t length) {
    return Bytes(b.begin(), b.begin() + std::ptrdiff_t(length));
}

TEST(ImageValidator, EveryDecoderAcceptsItsOwnImages) {
    const std::vector<std::pair<const char*, Bytes>> images = {
        {"jpeg", samples::makeJPEG(33, 17)}, {"progressive jpeg", samples::makeJPEG(40, 24, true, true)},
        {"png", samples::makePNG(19, 7)},    {"gif", samples::makeGIF(12, 9)},
        {"webp", samples::makeWebP(30, 20)}, {"tiff", samples::makeTIFF(13, 11)},
        {"bmp", samples::makeBMP(5, 3)},
    };
    for (const auto& [name, bytes] : images) {
        EXPECT_TRUE(canDecode(bytes.data(), bytes.size())) << name;
        // Types other than JPEG and PNG are never compared with the data.
        EXPECT_EQ(check(bytes, "image/gif"), std::nullopt) << name;
    }
}

TEST(ImageValidator, DeclaredJPEGOrPNGMustMatchTheData) {
    const Bytes jpeg = samples::makeJPEG(16, 16);
    const Bytes png = samples::makePNG(16, 16);
    const Bytes gif = samples::makeGIF(8, 8);
    EXPECT_EQ(check(jpeg, "image/jpeg"), std::nullopt);
    EXPECT_EQ(check(png, "image/png"), std::nullopt);
    EXPECT_EQ(check(png, "image/jpeg"), kNotJPEG);
    EXPECT_EQ(check(jpeg, "image/png"), kNotPNG);
    EXPECT_EQ(check(gif, "image/png"), kNotPNG);
    // The comparison is exact: other spellings are "other types".
    EXPECT_EQ(check(png, "image/jpg"), std::nullopt);
    EXPECT_EQ(check(png, "IMAGE/JPEG"), std::nullopt);
}

TEST(ImageValidator, UndecodableDataWhateverItsType) {
    const Bytes text = {'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'};
    const Bytes png = samples::makePNG(16, 16, true);
    const Bytes jpeg = samples::makeJPEG(64, 64, true);
    Bytes sniffedOnly = cut(jpeg, 2);  // a JPEG start with nothing behind it
    sniffedOnly.insert(sniffedOnly.end(), text.begin(), text.end());
    Bytes badPNG = png;
    badPNG[20] ^= 0x40;  // inside the header chunk: its check sum fails
    for (const Bytes& b : {text, sniffedOnly, cut(png, png.size() / 2), badPNG, cut(jpeg, 100), Bytes{}}) {
        for (const char* mime : {"image/jpeg", "image/png", "image/gif", ""})
            EXPECT_EQ(check(b, mime), kNotAnImage) << b.size() << " " << mime;
    }
}

TEST(ImageValidator, TruncatedJPEGIsStillAnImage) {
    // The decoder pads the missing scan data and only warns.
    const Bytes jpeg = samples::makeJPEG(64, 64, true);
    for (const size_t keep : {jpeg.size() / 2, jpeg.size() - 2})
        EXPECT_EQ(check(cut(jpeg, keep), "image/jpeg"), std::nullopt) << keep;
    const Bytes progressive = samples::makeJPEG(64, 64, true, true);
    EXPECT_EQ(check(cut(progressive, progressive.size() * 3 / 4), "image/jpeg"), std::nullopt);
}

TEST(ImageValidator, HugeDeclaredSizeIsJudgedByItsHeader) {
    // A frame header claiming 65000 x 65000 pixels is not decoded (that would
    // take minutes); the header the decoder accepted is the proof.
    Bytes jpeg = samples::makeJPEG(8, 8);
    for (size_t i = 2; i + 9 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
            for (const size_t at : {i + 5, i + 7}) jpeg[at] = 0xFD, jpeg[at + 1] = 0xE8;
            break;
        }
    }
    EXPECT_TRUE(canDecode(jpeg.data(), jpeg.size()));
}

// Artwork embedded in real audio files: every JPEG or PNG start found in the
// shared corpus is validated with whatever follows it (audio data included),
// which must never crash and must find real covers decodable.
TEST(ImageValidator, EmbeddedArtworkInCorpus) {
    const std::filesystem::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!std::filesystem::is_directory(corpus)) GTEST_SKIP() << "no corpus";
    const std::string_view jpegStart("\xFF\xD8\xFF", 3);
    const std::string_view pngStart("\x89PNG\r\n\x1A\n", 8);
    int starts = 0;
    int decodable = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string contents((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        for (const std::string_view start : {jpegStart, pngStart}) {
            for (size_t at = contents.find(start); at != std::string::npos;
                 at = contents.find(start, at + 1)) {
                ++starts;
                const auto* bytes = reinterpret_cast<const uint8_t*>(contents.data()) + at;
                if (ImageValidator::canDecode(bytes, contents.size() - at)) ++decodable;
            }
        }
    }
    EXPECT_GT(decodable, 0) << starts << " candidate starts";
}

TEST(MimeTypeFromRawImageData, SniffsSignatures) {
    auto code = [](const Bytes& b) { return MimeTypeFromRawImageData::mimeCodeForData(b.data(), b.size()); };
    const Bytes png = samples::makePNG(2, 2);
    EXPECT_EQ(code(png), MimeTypeFromRawImageData::png);
    EXPECT_EQ(code(cut(png, 8)), MimeTypeFromRawImageData::png);
    EXPECT_EQ(code(cut(png, 7)), MimeTypeFromRawImageData::unknown);
    Bytes almostPNG = cut(png, 8);
    almostPNG[7] = 0;
    EXPECT_EQ(code(almostPNG), MimeTypeFromRawImageData::unknown);
    EXPECT_EQ(code(Bytes{0xFF, 0xD8, 0, 0, 0, 0, 0, 0}), MimeTypeFromRawImageData::jpeg);
    EXPECT_EQ(code(Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0}), MimeTypeFromRawImageData::unknown);
    EXPECT_EQ(code(samples::makeGIF(2, 2)), MimeTypeFromRawImageData::unknown);
}

}  // namespace
}  // namespace sondrel
