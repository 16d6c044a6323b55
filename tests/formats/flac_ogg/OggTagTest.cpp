// Ogg checker: page walk (marker, serial, sequence, CRC, end of stream), the
// identification and comment packets of Vorbis and Opus, and the comment
// data handed to the Vorbis comment reader, compared as whole log text.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/OggBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

std::string line(uint64_t offset, const std::string& category, const std::string& message) {
    char number[32];
    std::snprintf(number, sizeof number, "%012llu", static_cast<unsigned long long>(offset));
    return "    " + std::string(number) + "  " + category + ": " + message + "\n";
}

std::string oggProblems(const Bytes& b, const std::string& name = "x.ogg") {
    return problemsFor(name, b);
}

const std::string kNoIdentification =
    "Missing or incomplete Ogg identification packet or non handled stream type";
const std::string kNoComment = "Missing or incomplete Ogg comment packet";

TEST(OggTag, CleanStreamsAndSize) {
    EXPECT_EQ(oggProblems(vorbisStream()), "");
    EXPECT_EQ(oggProblems(opusStream(), "x.opus"), "");
    EXPECT_EQ(oggProblems(vorbisStream(), "x.oga"), "");
    EXPECT_EQ(oggProblems(Bytes(41, 0)), line(0, "Fatal", "Invalid file size for FLAC file"));
}

TEST(OggTag, PageFaultAndCRCErrorSuppressCommentChecks) {
    const std::vector<std::string> bad{"NOEQUALS"};
    {
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 2, .sequence = 1});
        s.packet(vorbisCommentPacket("v", bad)).page();
        s.packet(audioPacket()).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take()), line(0, "Container", "Page fault"));
    }
    {
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 2});
        uint64_t second = s.size();
        s.packet(vorbisCommentPacket("v", bad)).page({.corruptCRC = true});
        uint64_t third = s.size();
        s.packet(audioPacket()).page({.sequence = 5});
        s.packet(audioPacket()).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take()),
                  line(second, "Container", "CRC error") + line(third, "Container", "Page fault"));
    }
    // Without the fault the same comment is reported.
    EXPECT_NE(oggProblems(vorbisStream(bad)), "");
}

TEST(OggTag, EndOfStreamAndTrailingData) {
    Bytes clean = vorbisStream();
    // Data after the end-of-stream page is tolerated, long or short.
    EXPECT_EQ(oggProblems(ByteBuilder(clean).str("this is not an Ogg page, just trailing text").take()), "");
    EXPECT_EQ(oggProblems(ByteBuilder(clean).zeros(10).take()), "");

    // Before the end of the stream it is not.
    OggStreamBuilder s;
    s.packet(vorbisIdentification()).page({.flags = 2});
    s.packet(vorbisCommentPacket("v", {"NOEQUALS"})).page();
    uint64_t junk = s.size();
    s.raw(Bytes(40, 'j'));
    EXPECT_EQ(oggProblems(s.take()), line(junk, "Fatal", "Invalid page marker"));

    // A tail too short for a page header, and no end-of-stream flag: silent.
    OggStreamBuilder t;
    t.packet(vorbisIdentification()).page({.flags = 2});
    t.packet(vorbisCommentPacket("v", {"A=b"})).page();
    t.raw(Bytes(26, 'j'));
    EXPECT_EQ(oggProblems(t.take()), "");
}

TEST(OggTag, PagesAfterTheEndOfStream) {
    // Same serial: reported and still walked (its CRC is checked).
    OggStreamBuilder same;
    same.packet(vorbisIdentification()).page({.flags = 2});
    same.packet(vorbisCommentPacket("v", {})).page({.flags = 4});
    uint64_t after = same.size();
    same.packet(audioPacket()).page({.corruptCRC = true});
    EXPECT_EQ(oggProblems(same.take()),
              line(after, "Fatal", "Ogg files with multiple streams not supported") +
                  line(after, "Container", "CRC error"));

    // A chained stream with another serial: reported twice, walk ends.
    OggStreamBuilder chain;
    chain.packet(vorbisIdentification()).page({.flags = 2});
    chain.packet(vorbisCommentPacket("v", {})).page({.flags = 4});
    uint64_t second = chain.size();
    OggStreamBuilder next(0xBEEF);
    next.packet(vorbisIdentification())
        .page({.flags = 2})
        .packet(vorbisCommentPacket("v", {}))
        .page({.flags = 4});
    chain.raw(next.take());
    std::string twice = line(second, "Fatal", "Ogg files with multiple streams not supported");
    EXPECT_EQ(oggProblems(chain.take()), twice + twice);

    // Another serial before the end of the stream.
    OggStreamBuilder mixed;
    mixed.packet(vorbisIdentification()).page({.flags = 2});
    uint64_t other = mixed.size();
    mixed.packet(vorbisCommentPacket("v", {})).page({.serial = 77});
    EXPECT_EQ(oggProblems(mixed.take()),
              line(other, "Fatal", "Ogg files with multiple streams not supported"));
}

TEST(OggTag, TruncatedPages) {
    Bytes whole = vorbisStream();
    OggStreamBuilder s;
    s.packet(vorbisIdentification()).page({.flags = 2});
    uint64_t second = s.size();
    // Body cut short.
    Bytes cutBody(whole.begin(), whole.begin() + second + 27 + 3);
    cutBody.resize(second + 40);
    EXPECT_EQ(oggProblems(cutBody), line(second, "Fatal", "Read error (packet data)"));
    // Lacing values cut short: the header claims more segments than are left.
    Bytes cutLacing(whole.begin(), whole.begin() + second + 27);
    cutLacing[second + 26] = 200;
    cutLacing.insert(cutLacing.end(), 10, 0);
    EXPECT_EQ(oggProblems(cutLacing), line(second, "Fatal", "Error reading page segment list"));
}

TEST(OggTag, IdentificationPacketRules) {
    auto single = [](const Bytes& packet) {
        OggStreamBuilder s;
        s.packet(packet).page({.flags = 2});
        s.packet(vorbisCommentPacket("v", {})).page({.flags = 4});
        return s.take();
    };
    Bytes oggFlac = ByteBuilder().u8(0x7F).str("FLAC").u8(1).u8(0).be16(1).str("fLaC").zeros(38).take();
    std::string endCheck = line(0, "Fatal", kNoIdentification);
    EXPECT_EQ(oggProblems(single(oggFlac)),
              line(0, "Fatal", "Missing or unsupported Ogg identification packet") + endCheck);
    EXPECT_EQ(oggProblems(single(Bytes{1, 'v', 'o', 'r', 'b', 'i', 's'})),
              line(0, "Fatal", "Insufficient data for Ogg identification packet") + endCheck);
    Bytes shortVorbis = vorbisIdentification();
    shortVorbis.resize(29);
    EXPECT_EQ(oggProblems(single(shortVorbis)),
              line(0, "Fatal", "Insufficient data for Ogg identification packet") + endCheck);
    Bytes shortOpus = opusHead();
    shortOpus.resize(18);
    EXPECT_EQ(oggProblems(single(shortOpus), "x.opus"),
              line(0, "Fatal", "Insufficient data for Ogg identification packet") + endCheck);
    EXPECT_EQ(oggProblems(single(vorbisIdentification(2, 44100, 0))),
              line(0, "Fatal", "Frame bit missing in Vorbis identification packet") + endCheck);

    // OpusHead sharing its page with OpusTags.
    OggStreamBuilder shared;
    shared.packet(opusHead()).packet(opusTags("v", {})).page({.flags = 6});
    EXPECT_EQ(oggProblems(shared.take(), "x.opus"),
              line(0, "Fatal", "Invalid Opus identification packet alignment") + endCheck);
}

TEST(OggTag, CommentPacketRules) {
    std::string endCheck = line(0, "Fatal", kNoComment);
    {
        // Only the identification packet.
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 6});
        EXPECT_EQ(oggProblems(s.take()), endCheck);
    }
    {
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 2});
        uint64_t second = s.size();
        s.packet(ByteBuilder().u8(3).str("vorbix").zeros(10).take()).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take()), line(second, "Fatal", "Missing Ogg comment block") + endCheck);
    }
    {
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 2});
        uint64_t second = s.size();
        s.packet(ByteBuilder().u8(3).str("vorbis").zeros(3).take()).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take()),
                  line(second, "Fatal", "Insufficient data for comment block") + endCheck);
    }
    {
        // A Vorbis comment packet may share the identification page ...
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).packet(vorbisCommentPacket("v", {"A=b"})).page({.flags = 2});
        s.packet(audioPacket()).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take()), "");
    }
    {
        // ... but when it runs on into the next page it counts as empty.
        Bytes comment = vorbisCommentPacket("v", {std::string(600, 'a')});
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).part(Bytes(comment.begin(), comment.begin() + 510), false);
        s.page({.flags = 2});
        s.part(Bytes(comment.begin() + 510, comment.end()), true).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take()), line(0, "Fatal", "Insufficient data for comment block") + endCheck);
    }
    {
        // OpusTags sharing its page with audio.
        OggStreamBuilder s;
        s.packet(opusHead()).page({.flags = 2});
        uint64_t second = s.size();
        s.packet(opusTags("v", {})).packet(audioPacket()).page({.flags = 4});
        EXPECT_EQ(oggProblems(s.take(), "x.opus"),
                  line(second, "Fatal", "Invalid Opus tag packet alignment") + endCheck);
    }
}

TEST(OggTag, MultiPageCommentPacketIsJoined) {
    // The first page ends with a 255 lacing value, so the packet is
    // incomplete there; the comment after the long one lies on the second page.
    Bytes comment = vorbisCommentPacket("v", {"A=" + std::string(500, 'a'), "NOEQUALS", "B=\x07"});
    OggStreamBuilder s;
    s.packet(vorbisIdentification()).page({.flags = 2});
    s.part(Bytes(comment.begin(), comment.begin() + 255), false).page();
    s.part(Bytes(comment.begin() + 255, comment.begin() + 510), false).page({.flags = 1});
    s.part(Bytes(comment.begin() + 510, comment.end()), true).page({.flags = 1});
    s.packet(audioPacket()).page({.flags = 4});
    // Positions inside the comment data, which begins behind the signature.
    uint64_t second = 4 + 1 + 4 + 4 + 502 + 4;
    uint64_t third = second + 8 + 4;
    EXPECT_EQ(oggProblems(s.take()),
              line(second, "Tag", "Missing = in FLAC Comment") +
                  line(third, "Tag", "FLAC value for Comment 'B' contains control characters"));
}

TEST(OggTag, CommentLengthIncludesTheSignature) {
    // The reader is told the whole packet length, 7 bytes more than the data
    // behind the signature; what lies past the data reads as zeros.
    auto stream = [](const Bytes& commentData) {
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 2});
        s.packet(ByteBuilder().u8(3).str("vorbis").bytes(commentData).take()).page();
        s.packet(audioPacket()).page({.flags = 4});
        return s.take();
    };
    // 12 bytes of data, length 19: a vendor of 16 overflows, one of 15 does not.
    EXPECT_EQ(oggProblems(stream(ByteBuilder().le32(16).zeros(8).take())),
              line(4, "Framing", "The Vendor string overflows") +
                  line(19, "Framing", "Missing count of FLAC Comments"));
    EXPECT_EQ(oggProblems(stream(ByteBuilder().le32(15).zeros(8).take())),
              line(19, "Framing", "Missing count of FLAC Comments"));
    // A comment running 5 bytes past the data is read with zeros, which are
    // control characters.
    EXPECT_EQ(oggProblems(stream(ByteBuilder().le32(0).le32(1).le32(8).str("A=b").take())),
              line(12, "Tag", "FLAC value for Comment 'A' contains control characters"));
}

TEST(OggTag, OpusCommentsAreReadBehindTheSignature) {
    std::vector<std::string> comments{"TITLE=ok", "NOEQUALS", "ARTIST=a\x01", "A~=b"};
    uint64_t first = 4 + 1 + 4 + 4;
    uint64_t second = first + 8 + 4;
    uint64_t third = second + 8 + 4;
    uint64_t fourth = third + 9 + 4;
    EXPECT_EQ(oggProblems(opusStream(comments), "x.opus"),
              line(second, "Tag", "Missing = in FLAC Comment") +
                  line(third, "Tag", "FLAC value for Comment 'ARTIST' contains control characters") +
                  line(fourth, "Tag", "FLAC Comment name contains invalid characters"));
}

}  // namespace
}  // namespace sondrel
