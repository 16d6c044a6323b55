// FLAC checker: marker, block walk, STREAMINFO, Vorbis comments, pictures and
// application blocks, compared as whole log text.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/ImageValidator.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/FlacBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

std::string line(uint64_t offset, const std::string& category, const std::string& message) {
    char number[32];
    std::snprintf(number, sizeof number, "%012llu", static_cast<unsigned long long>(offset));
    return "    " + std::string(number) + "  " + category + ": " + message + "\n";
}

std::string flacProblems(const Bytes& b) {
    return problemsFor("x.flac", b);
}

TEST(FlacTag, FileSizeAndMarker) {
    Bytes small = ByteBuilder().str("fLaC").zeros(37).take();
    EXPECT_EQ(flacProblems(small), line(0, "Fatal", "Invalid file size for FLAC file"));
    // 42 bytes pass the size test; a last block ending exactly at the end of
    // the file (no audio) overflows.
    Bytes exact = ByteBuilder().str("fLaC").bytes(flacBlock(0, streamInfo(), true)).take();
    ASSERT_EQ(exact.size(), 42u);
    EXPECT_EQ(flacProblems(exact), line(4, "Fatal", "Metadata block overflows"));
    Bytes foreign = ByteBuilder().str("RIFF").zeros(60).take();
    EXPECT_EQ(flacProblems(foreign), line(0, "Fatal", "Invalid FLAC header"));
    EXPECT_EQ(flacProblems(flacFile({})), "");
}

TEST(FlacTag, BlockWalkFaultsSuppressLaterChecks) {
    Bytes badComment = flacBlock(kFlacVorbisComment, vorbisComments("v", {"NOEQUALS"}));
    // Reserved type 127 after a faulty comment block: only the walk's line.
    Bytes reserved = flacFile({badComment, flacBlock(127, Bytes(8, 0))});
    uint64_t reservedAt = 4 + 38 + badComment.size();
    EXPECT_EQ(flacProblems(reserved), line(reservedAt, "Fatal", "Invalid metadata block type"));

    // A block running past the end of the file.
    Bytes overflow = flacFile({badComment, flacBlock(kFlacPadding, Bytes(8, 0), false, 5000)});
    EXPECT_EQ(flacProblems(overflow), line(reservedAt, "Fatal", "Metadata block overflows"));

    // No last-block flag and too few bytes left for the next header.
    Bytes cut = ByteBuilder().str("fLaC").bytes(flacBlock(0, streamInfo())).zeros(2).take();
    EXPECT_EQ(flacProblems(cut), line(42, "File", "Read error"));

    Bytes noInfo =
        ByteBuilder().str("fLaC").bytes(flacBlock(kFlacPadding, Bytes(40, 0), true)).zeros(8).take();
    EXPECT_EQ(flacProblems(noInfo), line(0, "Fatal", "Missing StreamInfo metadatablock"));

    Bytes shortInfo = flacFile({badComment}, Bytes(17, 0), 40);
    EXPECT_EQ(flacProblems(shortInfo), line(8, "Fatal", "Invalid STREAMINFO - insufficient data"));
}

TEST(FlacTag, ZeroSampleRateStillChecksComments) {
    Bytes b = flacFile({flacBlock(kFlacVorbisComment, vorbisComments("v", {"NOEQUALS"}))}, streamInfo(0));
    uint64_t text = 46 + 4 + 1 + 4 + 4;
    EXPECT_EQ(flacProblems(b), line(8, "Container", "STREAMINFO frame sample rate is 0") +
                                   line(text, "Tag", "Missing = in FLAC Comment"));
}

TEST(FlacTag, CommentOverflowPositions) {
    // Each block answers YES, so every block of the file is examined; the
    // APPLICATION block at the end proves the walk went on.
    Bytes tooShort = flacBlock(kFlacVorbisComment, Bytes{1, 0, 0});
    Bytes vendorOver = flacBlock(kFlacVorbisComment, ByteBuilder().le32(100).str("abcdef").take());
    Bytes vendorOverFour = flacBlock(kFlacVorbisComment, ByteBuilder().le32(5).take());
    Bytes countOver = flacBlock(kFlacVorbisComment, vorbisComments("ven", {"A=1"}, 3));
    Bytes textOver =
        flacBlock(kFlacVorbisComment,
                  ByteBuilder().bytes(vorbisComments("ven", {"A=1"}, 2)).le32(50).str("B=2").take());
    Bytes notCounted = flacBlock(kFlacVorbisComment, vorbisComments("ven", {"A=1", "BAD"}, 1));
    Bytes zeroCount =
        flacBlock(kFlacVorbisComment, ByteBuilder().bytes(vorbisComments("", {}, 0)).le32(9).take());
    Bytes application = flacBlock(kFlacApplication, Bytes{1, 2});
    std::vector<Bytes> blocks{tooShort, vendorOver, vendorOverFour, countOver,
                              textOver, notCounted, zeroCount,      application};
    std::vector<uint64_t> at;
    uint64_t pos = 4 + 38;
    for (const auto& b : blocks) {
        at.push_back(pos + 4);  // data offset
        pos += b.size();
    }
    std::string expected = line(at[0], "Framing", "Missing Vendor string") +
                           line(at[1] + 4, "Framing", "The Vendor string overflows") +
                           line(at[1] + 10, "Framing", "Missing count of FLAC Comments") +
                           line(at[2] + 4, "Framing", "The Vendor string overflows") +
                           // after the one comment present, where the next length would be
                           line(at[3] + 4 + 3 + 4 + 4 + 3, "Framing", "FLAC Comment overflows") +
                           // the start of the text whose length runs past the block
                           line(at[4] + 4 + 3 + 4 + 4 + 3 + 4, "Framing", "FLAC Comment overflows") +
                           line(at[7] - 4, "Container", "Invalid length for APPLICATION block");
    EXPECT_EQ(flacProblems(flacFile(blocks)), expected);
}

TEST(FlacTag, CommentNameAndValueRules) {
    std::vector<std::string> comments{
        "=value",    // empty name
        "NOEQUALS",  // no "="
        "A~B=x",     // tilde is outside the name set
        "A\x7f"
        "B=x",  // DEL
        "\xC3\x84"
        "B=x",  // non-ASCII letter
        "A\x01"
        "B=x",               // control character in a name
        "L\xE9=x",           // not UTF-8: read as Latin-1, still not ASCII
        " !<>}=ok",          // edges of the allowed range
        "TAB=a\tb\nc\rd=e",  // tab, line feed, carriage return are allowed
        "BELL=a\x07",        // control character
        "ZW=a\xE2\x80\x8B"
        "b",                // zero-width space is a format character
        "LATIN=\xE9t\xE9",  // not UTF-8: Latin-1 text is accepted
        "EMPTY=",           // empty value
    };
    Bytes b = flacFile({flacBlock(kFlacVorbisComment, vorbisComments("vendor", comments))});
    std::vector<uint64_t> at;
    uint64_t pos = 46 + 4 + 6 + 4;
    for (const auto& c : comments) {
        at.push_back(pos + 4);
        pos += 4 + c.size();
    }
    std::string expected = line(at[0], "Tag", "Missing = in FLAC Comment") +
                           line(at[1], "Tag", "Missing = in FLAC Comment") +
                           line(at[2], "Tag", "FLAC Comment name contains invalid characters") +
                           line(at[3], "Tag", "FLAC Comment name contains invalid characters") +
                           line(at[4], "Tag", "FLAC Comment name contains invalid characters") +
                           line(at[5], "Tag", "FLAC Comment name contains invalid characters") +
                           line(at[6], "Tag", "FLAC Comment name contains invalid characters") +
                           line(at[9], "Tag", "FLAC value for Comment 'BELL' contains control characters") +
                           line(at[10], "Tag", "FLAC value for Comment 'ZW' contains control characters");
    EXPECT_EQ(flacProblems(b), expected);
}

TEST(FlacTag, PictureBlocks) {
    Bytes image(20, 0x11);
    // Width, height, depth and colours cut short: the data length does not
    // fit and nothing is said.
    Bytes fullPicture = pictureData(3, "image/jpeg", "d", {});
    Bytes cutPicture(fullPicture.begin(), fullPicture.end() - 8);
    Bytes silent = flacBlock(kFlacPicture, cutPicture);
    Bytes dataOver = flacBlock(kFlacPicture, pictureData(3, "image/png", "", image, 21));
    Bytes badType = flacBlock(kFlacPicture, pictureData(21, "-->", "", {}));
    Bytes tiny = flacBlock(kFlacPicture, Bytes(7, 0));
    Bytes mimeOver = flacBlock(kFlacPicture, ByteBuilder().be32(3).be32(1000).str("image").take());
    Bytes descOver =
        flacBlock(kFlacPicture, ByteBuilder().be32(3).be32(3).str("a/b").be32(99).str("x").take());
    Bytes application = flacBlock(kFlacApplication, Bytes{});
    std::vector<Bytes> blocks{silent, dataOver, badType, tiny, mimeOver, descOver, application};
    std::vector<uint64_t> at;
    uint64_t pos = 4 + 38;
    for (const auto& b : blocks) {
        at.push_back(pos + 4);
        pos += b.size();
    }
    std::string expected = line(at[1], "Framing", "Artwork block overflows") +
                           line(at[2], "Framing", "Artwork block contains invalid picture type") +
                           line(at[2], "Framing", "Artwork block mime type is an indirect reference") +
                           line(at[3], "Framing", "Artwork block overflows") +
                           line(at[4], "Framing", "Artwork block overflows") +
                           line(at[5], "Framing", "Artwork block overflows") +
                           line(at[6] - 4, "Container", "Invalid length for APPLICATION block");
    EXPECT_EQ(flacProblems(flacFile(blocks)), expected);
}

TEST(FlacTag, PictureMimeNotAsciiEndsTheWalk) {
    Bytes picture = flacBlock(kFlacPicture, pictureData(3, "image/j\xE9g", "", Bytes(4, 0)));
    Bytes application = flacBlock(kFlacApplication, Bytes{});
    uint64_t at = 46;
    EXPECT_EQ(flacProblems(flacFile({picture, application})),
              line(at, "Framing", "Artwork block mime type cannot be represented as ASCII"));
}

TEST(FlacTag, PictureDataGoesToImageValidation) {
    Bytes image = ByteBuilder().str("not really an image").take();
    Bytes b = flacFile({flacBlock(kFlacPicture, pictureData(3, "image/png", "", image))});
    auto verdict = ImageValidator::validateImage(image.data(), image.size(), "image/png");
    EXPECT_EQ(flacProblems(b), verdict ? line(46, "Framing", *verdict) : "");
}

// An ID3v2.3 tag holding one title frame.
Bytes id3Tag() {
    Bytes frame = ByteBuilder().str("TIT2").be32(3).be16(0).u8(0).str("xy").take();
    return ByteBuilder().str("ID3").u8(3).u8(0).u8(0).synchsafe32(uint32_t(frame.size())).bytes(frame).take();
}

TEST(FlacTag, LeadingID3TagGetsOnlyTheBlockWalk) {
    // The marker search starts behind the tag; the marker straddles the
    // first two 10240-byte blocks of the search. The bad comment is not
    // examined because the ID3 notice is already logged.
    Bytes flac = flacFile({flacBlock(kFlacVorbisComment, vorbisComments("v", {"NOEQUALS"}))});
    Bytes b = ByteBuilder().bytes(id3Tag()).zeros(10238).bytes(flac).take();
    EXPECT_EQ(flacProblems(b), line(0, "Container", "File contains an ID3 tag"));
    // The walk itself still reports.
    Bytes cut = ByteBuilder().bytes(id3Tag()).str("fLaC").bytes(flacBlock(0, streamInfo(), true)).take();
    EXPECT_EQ(flacProblems(cut), line(0, "Container", "File contains an ID3 tag") +
                                     line(id3Tag().size() + 4, "Fatal", "Metadata block overflows"));
    // No marker behind the tag.
    Bytes none = ByteBuilder().bytes(id3Tag()).zeros(100).take();
    EXPECT_EQ(flacProblems(none),
              line(0, "Container", "File contains an ID3 tag") + line(0, "Fatal", "Invalid FLAC header"));
}

}  // namespace
}  // namespace sondrel
