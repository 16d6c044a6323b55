// FLAC checker: marker, block walk, STREAMINFO, Vorbis comments, pictures and
// application blocks, compared as whole log text.
#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/FlacBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/LogCases.h"

namespace sondrel {
namespace {

using namespace fixtures;

// File size, marker and block walk. A walk fault ends the analysis, so the
// faulty comment in front of it is never examined.
TEST(FlacTag, WalkAndStreamInfoFaults) {
    const Bytes badComment = flacBlock(kFlacVorbisComment, vorbisComments("v", {"NOEQUALS"}));
    const uint64_t afterComment = 4 + 38 + badComment.size();
    const Bytes image = ByteBuilder().str("not really an image").take();
    // An ID3v2.3 tag of one title, the FLAC marker: the search starts behind the tag.
    const Bytes id3 = id3Tag(3, id3Frame("TIT2", id3Text("fLaC")));
    const std::vector<LogCase> cases = {
        {"clean", flacFile({}), ""},
        {"41 bytes", ByteBuilder().str("fLaC").zeros(37).take(),
         line(0, "Fatal", "Invalid file size for FLAC file")},
        // 42 bytes pass the size test; a last block ending exactly at the end
        // of the file (no audio) overflows.
        {"no audio", ByteBuilder().str("fLaC").bytes(flacBlock(0, streamInfo(), true)).take(),
         line(4, "Fatal", "Metadata block overflows")},
        {"foreign", ByteBuilder().str("RIFF").zeros(60).take(), line(0, "Fatal", "Invalid FLAC header")},
        {"reserved type", flacFile({badComment, flacBlock(127, Bytes(8, 0))}),
         line(afterComment, "Fatal", "Invalid metadata block type")},
        {"block overflow", flacFile({badComment, flacBlock(kFlacPadding, Bytes(8, 0), false, 5000)}),
         line(afterComment, "Fatal", "Metadata block overflows")},
        // No last-block flag and too few bytes left for the next header.
        {"cut header", ByteBuilder().str("fLaC").bytes(flacBlock(0, streamInfo())).zeros(2).take(),
         line(42, "File", "Read error")},
        {"no STREAMINFO",
         ByteBuilder().str("fLaC").bytes(flacBlock(kFlacPadding, Bytes(40, 0), true)).zeros(8).take(),
         line(0, "Fatal", "Missing StreamInfo metadatablock")},
        {"short STREAMINFO", flacFile({badComment}, Bytes(17, 0), 40),
         line(8, "Fatal", "Invalid STREAMINFO - insufficient data")},
        // A zero rate is reported and the comments are still checked.
        {"zero rate", flacFile({badComment}, streamInfo(0)),
         line(8, "Container", "STREAMINFO frame sample rate is 0") +
             line(46 + 4 + 1 + 4 + 4, "Tag", "Missing = in FLAC Comment")},
        // A mime type that is not ASCII ends the walk (the APPLICATION block
        // behind it would be reported otherwise).
        {"mime not ASCII",
         flacFile({flacBlock(kFlacPicture, pictureData(3, "image/j\xE9g", "", Bytes(4, 0))),
                   flacBlock(kFlacApplication, Bytes{})}),
         line(46, "Framing", "Artwork block mime type cannot be represented as ASCII")},
        {"picture data to image check",
         flacFile({flacBlock(kFlacPicture, pictureData(3, "image/png", "", image))}),
         line(46, "Framing", "Artwork data cannot be represented as an image")},
        // Behind an ID3 tag the marker is searched for (here straddling the
        // first two 10240-byte blocks of the search); the ID3 notice stops the
        // comment checks but not the walk.
        {"ID3 then FLAC", ByteBuilder().bytes(id3).zeros(10238).bytes(flacFile({badComment})).take(),
         line(0, "Container", "File contains an ID3 tag")},
        {"ID3 then cut FLAC",
         ByteBuilder().bytes(id3).str("fLaC").bytes(flacBlock(0, streamInfo(), true)).take(),
         line(0, "Container", "File contains an ID3 tag") +
             line(id3.size() + 4, "Fatal", "Metadata block overflows")},
        {"ID3 only", ByteBuilder().bytes(id3).zeros(100).take(),
         line(0, "Container", "File contains an ID3 tag") + line(0, "Fatal", "Invalid FLAC header")},
    };
    expectLogs("x.flac", cases);
}

// Each block answers YES, so every block of the file is examined; the
// APPLICATION block at the end proves the walk went on. Width, height, depth
// and colours cut short: the data length does not fit, silently. Then every
// short PICTURE block: lengths 0 to 20 with MIME lengths 0 to 12, the bytes
// after the MIME text all zero (an empty description, then too little room
// for the picture numbers: silent) or all 0xFF (a description that runs past
// the block). Short blocks used to be read past their end.
TEST(FlacTag, PictureFraming) {
    const Bytes fullPicture = pictureData(3, "image/jpeg", "d", {});
    const std::vector<Bytes> blocks{
        flacBlock(kFlacPicture, Bytes(fullPicture.begin(), fullPicture.end() - 8)),
        flacBlock(kFlacPicture, pictureData(3, "image/png", "", Bytes(20, 0x11), 21)),
        flacBlock(kFlacPicture, pictureData(21, "-->", "", {})),
        flacBlock(kFlacPicture, Bytes(7, 0)),
        flacBlock(kFlacPicture, ByteBuilder().be32(3).be32(1000).str("image").take()),
        flacBlock(kFlacPicture, ByteBuilder().be32(3).be32(3).str("a/b").be32(99).str("x").take()),
        flacBlock(kFlacApplication, Bytes{1, 2})};
    std::vector<uint64_t> at{4 + 38 + 4};  // where each block's data starts
    for (const auto& b : blocks) at.push_back(at.back() + b.size());
    const std::string overflows = "Artwork block overflows";
    EXPECT_EQ(problemsFor("x.flac", flacFile(blocks)),
              line(at[1], "Framing", overflows) +
                  line(at[2], "Framing", "Artwork block contains invalid picture type") +
                  line(at[2], "Framing", "Artwork block mime type is an indirect reference") +
                  line(at[3], "Framing", overflows) + line(at[4], "Framing", overflows) +
                  line(at[5], "Framing", overflows) +
                  line(at[6] - 4, "Container", "Invalid length for APPLICATION block"));
    for (uint8_t filler : {uint8_t(0x00), uint8_t(0xFF)}) {
        for (uint32_t mime = 0; mime <= 12; ++mime) {
            for (size_t length = 0; length <= 20; ++length) {
                SCOPED_TRACE(testing::Message()
                             << "filler " << int(filler) << " mime " << mime << " length " << length);
                Bytes full = ByteBuilder().be32(0).be32(mime).fill(mime, 'a').fill(32, filler).take();
                Bytes data(full.begin(), full.begin() + ptrdiff_t(length));
                const bool fits = length >= 8 && mime + 12 <= length && filler == 0;
                EXPECT_EQ(problemsFor("x.flac", flacFile({flacBlock(kFlacPicture, data)})),
                          fits ? "" : line(46, "Framing", "Artwork block overflows"));
            }
        }
    }
}

}  // namespace
}  // namespace sondrel
