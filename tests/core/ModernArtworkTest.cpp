// AVIF, HEIC and JPEG XL artwork, made by the encoders during the test run:
// valid pictures pass, damaged ones are refused, oversized ones are not
// decoded; inside FLAC PICTURE blocks and MPEG-4 cover items.
#include <gtest/gtest.h>

#include <libheif/heif.h>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "core/ImageValidator.h"
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

constexpr const char* kNotAnImage = "Artwork data cannot be represented as an image";

struct Encoded {
    const char* name;
    const char* mime;
    int code;
    Bytes image;  // empty when the encoder or the decoder is missing here
};

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

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
            out[0].image = readFile(dir.path() + "/x.avif");
        // Debian's libheif decodes HEVC through libde265; without it a HEIC
        // picture cannot be decoded here at all.
        if (haveTool("heif-enc") && heif_have_decoder_for_format(heif_compression_HEVC) &&
            run("heif-enc " + png + " -o " + dir.path() + "/x.heic" + quiet))
            out[1].image = readFile(dir.path() + "/x.heic");
        if (haveTool("cjxl") && run("cjxl " + png + " " + dir.path() + "/x.jxl" + quiet))
            out[2].image = readFile(dir.path() + "/x.jxl");
        return out;
    }();
    return pictures;
}

Bytes cut(const Bytes& b, size_t length) {
    return Bytes(b.begin(), b.begin() + std::ptrdiff_t(length));
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
        EXPECT_EQ(M::mimeTypeForCode(e.code), e.mime);
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

TEST(ModernArtwork, SniffedByBrandAndSignature) {
    auto code = [](const Bytes& b) { return M::mimeCodeForData(b.data(), b.size()); };
    auto ftyp = [](const char* major, std::vector<const char*> compatible, uint32_t size = 0) {
        ByteBuilder b;
        b.be32(size ? size : uint32_t(16 + 4 * compatible.size())).str("ftyp").str(major).be32(0);
        for (const char* brand : compatible) b.str(brand);
        return b.take();
    };
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
    // Declared types other than JPEG and PNG are not compared with the data.
    const Bytes& jxl = encoded()[2].image;
    if (!jxl.empty()) {
        EXPECT_EQ(ImageValidator::validateImage(jxl.data(), jxl.size(), "image/avif"), std::nullopt);
    }
}

}  // namespace
}  // namespace sondrel
