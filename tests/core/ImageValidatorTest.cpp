#include "core/ImageValidator.h"

#include <gtest/gtest.h>

#include <cstdio>  // before the JPEG library's header, which needs FILE
#include <random>

#include <jpeglib.h>
#include <libheif/heif.h>
#include <png.h>

#include "core/MimeTypeFromRawImageData.h"
#include "tests/fixtures/AtomBuilder.h"
#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/FlacBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;
using ImageValidator::Verdict;
using M = MimeTypeFromRawImageData;
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
                images.emplace_back(path, fixtures::readBytes(path));
        }
    }
    for (const auto& [name, bytes] : images) {
        EXPECT_TRUE(canDecode(bytes.data(), bytes.size())) << name;
        // Types other than JPEG and PNG are never compared with the data.
        EXPECT_EQ(check(bytes, "image/gif"), std::nullopt) << name;
    }
}

// A declared JPEG or PNG must match the data (exactly those spellings);
// undecodable data is refused whatever its type; a truncated JPEG is still
// an image (the decoder pads the missing scan data and only warns).
TEST(ImageValidator, DeclaredTypeTruncationAndGarbage) {
    const Bytes jpeg = makeJPEG(64, 64, true), png = makePNG(16, 16, true),
                progressive = makeJPEG(64, 64, true, true);
    EXPECT_EQ(check(jpeg, "image/jpeg"), std::nullopt);
    EXPECT_EQ(check(png, "image/png"), std::nullopt);
    EXPECT_EQ(check(png, "image/jpeg"), kNotJPEG);
    EXPECT_EQ(check(jpeg, "image/png"), kNotPNG);
    EXPECT_EQ(check(png, "image/jpg"), std::nullopt);
    EXPECT_EQ(check(png, "IMAGE/JPEG"), std::nullopt);
    for (const Bytes& b : {cut(jpeg, jpeg.size() / 2), cut(jpeg, jpeg.size() - 2),
                           cut(progressive, progressive.size() * 3 / 4)})
        EXPECT_EQ(check(b, "image/jpeg"), std::nullopt) << b.size();

    const Bytes text = ByteBuilder().str("not an image").take();
    const Bytes sniffedOnly = concat({cut(jpeg, 2), text});  // a JPEG start, nothing behind it
    Bytes badPNG = png;
    badPNG[20] ^= 0x40;  // inside the header chunk: its check sum fails
    for (const Bytes& b : {text, sniffedOnly, cut(png, png.size() / 2), badPNG, cut(jpeg, 100), Bytes{}}) {
        for (const char* mime : {"image/jpeg", "image/png", "image/gif", ""})
            EXPECT_EQ(check(b, mime), kNotAnImage) << b.size() << " " << mime;
    }
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
    struct Row {
        const char* name;
        Bytes image;
        Verdict verdict;
    };
    const std::vector<Row> rows = {
        {"baseline 6000 x 6000", declaringJPEG(makeJPEG(16, 16), 6000, 6000), Verdict::decoded},
        {"progressive CMYK 2000 x 2000", progressiveCMYK(2000), Verdict::decoded},
        {"baseline 8192 x 8192, the largest checked", declaringJPEG(makeJPEG(8, 8), 8192, 8192),
         Verdict::decoded},
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
    EXPECT_EQ(verdict(a), Verdict::decoded);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(verdict(a), Verdict::decoded);  // decided once
    EXPECT_EQ(verdict(b), Verdict::decoded);
    EXPECT_EQ(verdict(c), Verdict::notChecked);
    EXPECT_EQ(validateImage(c.data(), c.size(), "image/jpeg", budget),
              "Artwork not checked: the file's artwork decoding budget is spent");
}

// AVIF, HEIC and JPEG XL artwork, made by the encoders during the test run:
// valid pictures pass, damaged ones are refused, oversized ones are not
// decoded; inside FLAC PICTURE blocks and MPEG-4 cover items.

struct Encoded {
    const char* name;
    const char* mime;
    int code;
    Bytes image;  // empty when the encoder or the decoder is missing here
};

// One small picture of each format, made once per test run.
const std::vector<Encoded>& encoded() {
    static const std::vector<Encoded> pictures = [] {
        static TempDir dir;
        const std::string png = dir.path() + "/in.png";
        std::vector<Encoded> out = {{"AVIF", "image/avif", M::avif, {}},
                                    {"HEIC", "image/heic", M::heic, {}},
                                    {"JPEG XL", "image/jxl", M::jxl, {}}};
        if (!haveTool("ffmpeg") || !run("ffmpeg -nostdin -v error -f lavfi -i testsrc=s=64x48 -frames:v 1 " +
                                        png + " >/dev/null 2>&1"))
            return out;
        const std::string quiet = " >/dev/null 2>&1";
        if (haveTool("avifenc") && run("avifenc -s 10 " + png + " " + dir.path() + "/x.avif" + quiet))
            out[0].image = readBytes(dir.path() + "/x.avif");
        // Debian's libheif decodes HEVC through libde265; without it a HEIC
        // picture cannot be decoded here at all.
        if (haveTool("heif-enc") && heif_have_decoder_for_format(heif_compression_HEVC) &&
            run("heif-enc " + png + " -o " + dir.path() + "/x.heic" + quiet))
            out[1].image = readBytes(dir.path() + "/x.heic");
        if (haveTool("cjxl") && run("cjxl " + png + " " + dir.path() + "/x.jxl" + quiet))
            out[2].image = readBytes(dir.path() + "/x.jxl");
        return out;
    }();
    return pictures;
}

// Every `ispe` box (the size a HEIF or AVIF picture declares) set to w x h.
Bytes declaring(Bytes b, uint32_t width, uint32_t height) {
    for (size_t i = 4; i + 16 <= b.size(); ++i) {
        if (b[i] == 'i' && b[i + 1] == 's' && b[i + 2] == 'p' && b[i + 3] == 'e') {
            const Bytes size = ByteBuilder().be32(width).be32(height).take();
            std::copy(size.begin(), size.end(), b.begin() + std::ptrdiff_t(i + 8));
        }
    }
    return b;
}

// A JPEG XL codestream declaring w x h pixels, with nothing behind its header.
Bytes jxlDeclaring(uint32_t width, uint32_t height) {
    std::vector<int> bits;
    auto put = [&bits](uint32_t value, int count) {
        for (int i = 0; i < count; ++i) bits.push_back(int(value >> i) & 1);
    };
    put(0, 1);                                 // not a small size
    put(3, 2), put(height - 1, 30);            // 1 + a 30-bit height
    put(0, 3);                                 // no aspect ratio: the width follows
    put(3, 2), put(width - 1, 30), put(1, 1);  // default metadata
    Bytes out{0xFF, 0x0A};
    for (size_t i = 0; i < bits.size(); i += 8) {
        uint8_t byte = 0;
        for (size_t j = 0; j < 8 && i + j < bits.size(); ++j) byte = uint8_t(byte | bits[i + j] << j);
        out.push_back(byte);
    }
    out.resize(out.size() + 64, 0);
    return out;
}

std::string flacLine(const std::string& message) {
    return "    000000000046  Framing: " + message + "\n";
}

TEST(ModernArtwork, ValidTruncatedAndOversized) {
    for (const Encoded& e : encoded()) {
        SCOPED_TRACE(e.name);
        if (e.image.empty()) {
            std::printf("[ SKIPPED  ] %s: no encoder or decoder here\n", e.name);
            continue;
        }
        const Bytes truncated = cut(e.image, e.image.size() * 2 / 3);
        const Bytes huge = e.code == M::jxl ? jxlDeclaring(60000, 60000) : declaring(e.image, 60000, 60000);
        EXPECT_EQ(M::mimeCodeForData(e.image.data(), e.image.size()), e.code);
        ImageBudget budget;
        EXPECT_EQ(ImageValidator::decide(e.image.data(), e.image.size(), budget).verdict, Verdict::decoded);
        EXPECT_EQ(ImageValidator::decide(truncated.data(), truncated.size(), budget).verdict,
                  Verdict::undecodable);
        const auto big = ImageValidator::decide(huge.data(), huge.size(), budget);
        EXPECT_EQ(big.verdict, Verdict::notChecked);
        EXPECT_EQ(big.why, "Artwork not checked: 60000x60000 pixels exceed the decoding budget");

        // In a FLAC PICTURE block: the line an unreadable JPEG draws, or none.
        auto flac = [&](const Bytes& image) {
            return problemsFor("a.flac",
                               flacFile({flacBlock(kFlacPicture, pictureData(3, e.mime, "", image))}));
        };
        EXPECT_EQ(flac(e.image), "");
        EXPECT_EQ(flac(truncated), flacLine(kNotAnImage));
        EXPECT_EQ(flac(huge), flacLine(big.why));
        // MPEG-4 cover items are only decoded; nothing is logged for them.
        for (const Bytes* image : {&e.image, &truncated, &huge})
            EXPECT_EQ(problemsFor("a.m4a", mp4::m4aFile({mp4::box("covr", {mp4::data(0, *image)})})), "");
    }
}

TEST(MimeTypeFromRawImageData, SniffedBySignatureAndBrand) {
    auto code = [](const Bytes& b) { return M::mimeCodeForData(b.data(), b.size()); };
    auto ftyp = [](const char* major, std::vector<const char*> compatible, uint32_t size = 0) {
        ByteBuilder b;
        b.be32(size ? size : uint32_t(16 + 4 * compatible.size())).str("ftyp").str(major).be32(0);
        for (const char* brand : compatible) b.str(brand);
        return b.take();
    };
    const Bytes png = makePNG(2, 2);
    EXPECT_EQ(code(png), M::png);
    EXPECT_EQ(code(cut(png, 8)), M::png);
    EXPECT_EQ(code(cut(png, 7)), M::unknown);
    Bytes almostPNG = cut(png, 8);
    almostPNG[7] = 0;
    EXPECT_EQ(code(almostPNG), M::unknown);
    EXPECT_EQ(code(Bytes{0xFF, 0xD8, 0, 0, 0, 0, 0, 0}), M::jpeg);
    EXPECT_EQ(code(Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0}), M::unknown);
    EXPECT_EQ(code(ByteBuilder().str("GIF89a").zeros(8).take()), M::unknown);
    EXPECT_EQ(code(ftyp("avif", {"mif1", "miaf"})), M::avif);
    EXPECT_EQ(code(ftyp("avis", {})), M::avif);
    EXPECT_EQ(code(ftyp("mif1", {"miaf", "avif"})), M::avif);  // a coded brand beats a structural one
    EXPECT_EQ(code(ftyp("heic", {"mif1"})), M::heic);
    EXPECT_EQ(code(ftyp("mif1", {"heix"})), M::heic);
    EXPECT_EQ(code(ftyp("msf1", {"iso8"})), M::heif);
    EXPECT_EQ(code(ftyp("M4A ", {"mp42", "isom"})), M::unknown);
    // Compatible brands past the box's own size are not its brands.
    EXPECT_EQ(code(ftyp("mif1", {"avif"}, 16)), M::heif);
    EXPECT_EQ(code(Bytes{0xFF, 0x0A, 0, 0, 0, 0, 0, 0}), M::jxl);
    EXPECT_EQ(code(Bytes{0, 0, 0, 0x0C, 'J', 'X', 'L', ' ', 0x0D, 0x0A, 0x87, 0x0A}), M::jxl);
    EXPECT_EQ(code(Bytes{0, 0, 0, 0x0C, 'J', 'X', 'L', ' ', 0x0D, 0x0A, 0x87}), M::unknown);
}

}  // namespace
}  // namespace sondrel
