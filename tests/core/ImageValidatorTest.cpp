#include "core/ImageValidator.h"

#include <gtest/gtest.h>

#include <cstdio>  // before the JPEG library's header, which needs FILE
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include <jpeglib.h>
#include <png.h>

#include "core/MimeTypeFromRawImageData.h"
#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::ByteBuilder;
using fixtures::concat;
using ImageValidator::canDecode;
using ImageValidator::validateImage;

constexpr const char* kNotAnImage = "Artwork data cannot be represented as an image";
constexpr const char* kNotJPEG =
    "Artwork mime type is image/jpeg but the data does not represent a jpeg image";
constexpr const char* kNotPNG = "Artwork mime type is image/png but the data does not represent a png image";

// RGB rows of a gradient or, with `noisy` (which compresses badly, so cuts
// land inside the image data), random pixels.
std::vector<uint8_t> pixels(int width, int height, bool noisy) {
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    std::mt19937 random(7);
    for (size_t i = 0; i < rgb.size(); ++i) {
        const size_t x = i / 3 % size_t(width), y = i / 3 / size_t(width);
        rgb[i] = uint8_t(noisy ? random() : i % 3 == 0 ? x * 8 : i % 3 == 1 ? y * 8 : x + y);
    }
    return rgb;
}

// Small real images made with the libraries that decode artwork.
Bytes makeJPEG(int width, int height, bool noisy = false, bool progressive = false) {
    const auto rgb = pixels(width, height, noisy);
    jpeg_compress_struct cinfo;
    jpeg_error_mgr errors;
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = JDIMENSION(width);
    cinfo.image_height = JDIMENSION(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 90, TRUE);
    if (progressive) jpeg_simple_progression(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&rgb[size_t(cinfo.next_scanline) * size_t(width) * 3]);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    return out;
}

Bytes makePNG(int width, int height, bool noisy = false) {
    const auto rgb = pixels(width, height, noisy);
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    auto append = [](png_structp p, png_bytep data, png_size_t size) {
        auto* bytes = static_cast<Bytes*>(png_get_io_ptr(p));
        bytes->insert(bytes->end(), data, data + size);
    };
    png_set_write_fn(png, &out, append, nullptr);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) png_write_row(png, &rgb[size_t(y) * size_t(width) * 3]);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

std::optional<std::string> check(const Bytes& b, std::string_view mime) {
    return validateImage(b.data(), b.size(), mime);
}

Bytes cut(const Bytes& b, size_t length) {
    return Bytes(b.begin(), b.begin() + std::ptrdiff_t(length));
}

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST(ImageValidator, EveryDecoderAcceptsItsOwnImages) {
    std::vector<std::pair<std::string, Bytes>> images = {{"jpeg", makeJPEG(33, 17)},
                                                         {"progressive jpeg", makeJPEG(40, 24, true, true)},
                                                         {"png", makePNG(19, 7)}};
    // The other decodable types, as an image converter writes them, one pixel
    // wide (the smallest image there is).
    fixtures::TempDir dir;
    for (const char* ext : {"gif", "webp", "tiff", "bmp"}) {
        for (const char* size : {"30:20", "1:1"}) {
            const std::string path = dir.path() + "/x" + size + "." + ext;
            if (fixtures::haveTool("ffmpeg") &&
                fixtures::run("ffmpeg -nostdin -v error -f lavfi -i testsrc=s=32x32,scale=" +
                              std::string(size) + " -frames:v 1 '" + path + "'"))
                images.emplace_back(path, readFile(path));
        }
    }
    for (const auto& [name, bytes] : images) {
        EXPECT_TRUE(canDecode(bytes.data(), bytes.size())) << name;
        // Types other than JPEG and PNG are never compared with the data.
        EXPECT_EQ(check(bytes, "image/gif"), std::nullopt) << name;
    }
}

TEST(ImageValidator, DeclaredJPEGOrPNGMustMatchTheData) {
    const Bytes jpeg = makeJPEG(16, 16);
    const Bytes png = makePNG(16, 16);
    EXPECT_EQ(check(jpeg, "image/jpeg"), std::nullopt);
    EXPECT_EQ(check(png, "image/png"), std::nullopt);
    EXPECT_EQ(check(png, "image/jpeg"), kNotJPEG);
    EXPECT_EQ(check(jpeg, "image/png"), kNotPNG);
    // The comparison is exact: other spellings are "other types".
    EXPECT_EQ(check(png, "image/jpg"), std::nullopt);
    EXPECT_EQ(check(png, "IMAGE/JPEG"), std::nullopt);
}

TEST(ImageValidator, UndecodableDataWhateverItsType) {
    const Bytes text = fixtures::ByteBuilder().str("not an image").take();
    const Bytes png = makePNG(16, 16, true);
    const Bytes jpeg = makeJPEG(64, 64, true);
    const Bytes sniffedOnly = fixtures::concat({cut(jpeg, 2), text});  // a JPEG start, nothing behind it
    Bytes badPNG = png;
    badPNG[20] ^= 0x40;  // inside the header chunk: its check sum fails
    for (const Bytes& b : {text, sniffedOnly, cut(png, png.size() / 2), badPNG, cut(jpeg, 100), Bytes{}}) {
        for (const char* mime : {"image/jpeg", "image/png", "image/gif", ""})
            EXPECT_EQ(check(b, mime), kNotAnImage) << b.size() << " " << mime;
    }
}

TEST(ImageValidator, TruncatedJPEGIsStillAnImage) {
    // The decoder pads the missing scan data and only warns.
    const Bytes jpeg = makeJPEG(64, 64, true);
    for (const size_t keep : {jpeg.size() / 2, jpeg.size() - 2})
        EXPECT_EQ(check(cut(jpeg, keep), "image/jpeg"), std::nullopt) << keep;
    const Bytes progressive = makeJPEG(64, 64, true, true);
    EXPECT_EQ(check(cut(progressive, progressive.size() * 3 / 4), "image/jpeg"), std::nullopt);
}

// A JPEG with its frame header changed to declare width x height pixels; the
// scan data no longer covers the picture and the decoder pads the rest.
Bytes declaringJPEG(Bytes jpeg, uint16_t width, uint16_t height) {
    for (size_t i = 2; i + 9 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && (jpeg[i + 1] == 0xC0 || jpeg[i + 1] == 0xC2)) {
            jpeg[i + 5] = uint8_t(height >> 8), jpeg[i + 6] = uint8_t(height);
            jpeg[i + 7] = uint8_t(width >> 8), jpeg[i + 8] = uint8_t(width);
            break;
        }
    }
    return jpeg;
}

// A progressive four-component JPEG whose only scan is a few bytes: to
// decode it the library must first set aside every coefficient.
Bytes progressiveCMYK(uint16_t side) {
    auto segment = [](uint8_t marker, const Bytes& body) {
        return ByteBuilder().u8(0xFF).u8(marker).be16(uint16_t(body.size() + 2)).bytes(body).take();
    };
    ByteBuilder sof;
    sof.u8(8).be16(side).be16(side).u8(4);
    for (uint8_t c = 1; c <= 4; ++c) sof.u8(c).u8(0x11).u8(0);
    ByteBuilder sos;
    sos.u8(4);
    for (uint8_t c = 1; c <= 4; ++c) sos.u8(c).u8(0);
    sos.u8(0).u8(0).u8(0);
    return concat({Bytes{0xFF, 0xD8}, segment(0xDB, concat({Bytes{0}, Bytes(64, 1)})),
                   segment(0xC2, sof.take()), segment(0xC4, concat({Bytes{0, 1}, Bytes(15, 0), Bytes{0}})),
                   segment(0xDA, sos.take()), Bytes(64, 0), Bytes{0xFF, 0xD9}});
}

TEST(ImageValidator, OversizedPicturesAreNotCheckedRealOnesAre) {
    using ImageValidator::Verdict;
    struct Row {
        const char* name;
        Bytes image;
        Verdict verdict;
    };
    const std::vector<Row> rows = {
        {"baseline 6000 x 6000", declaringJPEG(makeJPEG(16, 16), 6000, 6000), Verdict::decoded},
        {"progressive CMYK 2000 x 2000", progressiveCMYK(2000), Verdict::decoded},
        // Its coefficients alone would take 268 MB.
        {"progressive CMYK 5792 x 5792", progressiveCMYK(5792), Verdict::notChecked},
        {"baseline 65000 x 65000", declaringJPEG(makeJPEG(8, 8), 65000, 65000), Verdict::notChecked},
    };
    for (const Row& row : rows) {
        ImageBudget budget;
        EXPECT_EQ(ImageValidator::decide(row.image.data(), row.image.size(), budget).verdict, row.verdict)
            << row.name;
    }
    // The note names the size, once per file; the decoder's verdict is not given.
    ImageBudget budget;
    const Bytes cmyk = progressiveCMYK(5792);
    EXPECT_EQ(validateImage(cmyk.data(), cmyk.size(), "image/jpeg", budget),
              "Artwork not checked: 5792x5792 pixels exceed the decoding budget");
    const Bytes huge = rows[3].image;
    EXPECT_EQ(validateImage(huge.data(), huge.size(), "image/png", budget), kNotPNG);
}

TEST(ImageValidator, PicturesOfOneFileShareItsBudget) {
    const Bytes a = makeJPEG(32, 32), b = makeJPEG(32, 32, true), c = makeJPEG(40, 24);
    ImageBudget budget(2100);
    auto verdict = [&budget](const Bytes& image) {
        return ImageValidator::decide(image.data(), image.size(), budget).verdict;
    };
    using ImageValidator::Verdict;
    EXPECT_EQ(verdict(a), Verdict::decoded);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(verdict(a), Verdict::decoded);  // decided once
    EXPECT_EQ(verdict(b), Verdict::decoded);
    EXPECT_EQ(verdict(c), Verdict::notChecked);
    EXPECT_EQ(validateImage(c.data(), c.size(), "image/jpeg", budget),
              "Artwork not checked: the file's artwork decoding budget is spent");
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
        const Bytes data = readFile(entry.path().string());
        const std::string_view contents(reinterpret_cast<const char*>(data.data()), data.size());
        for (const std::string_view start : {jpegStart, pngStart}) {
            for (size_t at = contents.find(start); at != std::string::npos;
                 at = contents.find(start, at + 1)) {
                ++starts;
                if (canDecode(data.data() + at, data.size() - at)) ++decodable;
            }
        }
    }
    EXPECT_GT(decodable, 0) << starts << " candidate starts";
}

TEST(MimeTypeFromRawImageData, SniffsSignatures) {
    using M = MimeTypeFromRawImageData;
    auto code = [](const Bytes& b) { return M::mimeCodeForData(b.data(), b.size()); };
    const Bytes png = makePNG(2, 2);
    EXPECT_EQ(code(png), M::png);
    EXPECT_EQ(code(cut(png, 8)), M::png);
    EXPECT_EQ(code(cut(png, 7)), M::unknown);
    Bytes almostPNG = cut(png, 8);
    almostPNG[7] = 0;
    EXPECT_EQ(code(almostPNG), M::unknown);
    EXPECT_EQ(code(Bytes{0xFF, 0xD8, 0, 0, 0, 0, 0, 0}), M::jpeg);
    EXPECT_EQ(code(Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0}), M::unknown);
    EXPECT_EQ(code(fixtures::ByteBuilder().str("GIF89a").zeros(8).take()), M::unknown);
}

}  // namespace
}  // namespace sondrel
