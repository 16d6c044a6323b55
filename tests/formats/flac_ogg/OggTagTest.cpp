// Ogg checker: page walk (marker, serial, sequence, CRC, end of stream), the
// identification and comment packets of Vorbis and Opus, and the comment
// data handed to the Vorbis comment reader, compared as whole log text.
#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/LogCases.h"
#include "tests/fixtures/OggBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

// One page: its whole packets and options.
struct Page {
    std::vector<Bytes> packets;
    OggPageOptions options = {};
};
Bytes ogg(const std::vector<Page>& pages, uint32_t serial = 0x5EED) {
    OggStreamBuilder s(serial);
    for (const Page& p : pages) {
        for (const Bytes& packet : p.packets) s.packet(packet);
        s.page(p.options);
    }
    return s.take();
}

const std::string kNoIdentification =
    "Missing or incomplete Ogg identification packet or non handled stream type";
const std::string kNoComment = "Missing or incomplete Ogg comment packet";

const Page kVorbisHead{{vorbisIdentification()}, {.flags = 2}};
const Page kOpusHead{{opusHead()}, {.flags = 2}};
const Page kAudioEnd{{audioPacket()}, {.flags = 4}};
const Page kEmptyCommentEnd{{vorbisCommentPacket("v", {})}, {.flags = 4}};

TEST(OggTag, IdentificationAndCommentPackets) {
    auto single = [](const Bytes& packet) { return ogg({{{packet}, {.flags = 2}}, kEmptyCommentEnd}); };
    const std::string noId = line(0, "Fatal", kNoIdentification);
    const std::string noComment = line(0, "Fatal", kNoComment);
    const std::string insufficient = line(0, "Fatal", "Insufficient data for Ogg identification packet");
    const uint64_t second = ogg({kVorbisHead}).size();
    const uint64_t opusSecond = ogg({kOpusHead}).size();
    const Bytes shortVorbis = truncated(vorbisIdentification(), 29), shortOpus = truncated(opusHead(), 18);
    // A comment packet running on into the next page counts as empty.
    const Bytes longComment = vorbisCommentPacket("v", {std::string(600, 'a')});
    OggStreamBuilder split;
    split.packet(vorbisIdentification()).part(Bytes(longComment.begin(), longComment.begin() + 510), false);
    split.page({.flags = 2})
        .part(Bytes(longComment.begin() + 510, longComment.end()), true)
        .page({.flags = 4});
    expectLogs("x.opus", {{"short OpusHead", single(shortOpus), insufficient + noId},
                          {"OpusTags sharing its page with audio",
                           ogg({kOpusHead, {{opusTags("v", {}), audioPacket()}, {.flags = 4}}}),
                           line(opusSecond, "Fatal", "Invalid Opus tag packet alignment") + noComment}});
    expectLogs(
        "x.ogg",
        {
            {"Ogg FLAC",
             single(ByteBuilder().u8(0x7F).str("FLAC").u8(1).u8(0).be16(1).str("fLaC").zeros(38).take()),
             line(0, "Fatal", "Missing or unsupported Ogg identification packet") + noId},
            {"short Vorbis identification", single(shortVorbis), insufficient + noId},
            {"no framing bit", single(vorbisIdentification(2, 44100, 0)),
             line(0, "Fatal", "Frame bit missing in Vorbis identification packet") + noId},
            {"identification only", ogg({{{vorbisIdentification()}, {.flags = 6}}}), noComment},
            {"not a comment packet",
             ogg({kVorbisHead, {{ByteBuilder().u8(3).str("vorbix").zeros(10).take()}, {.flags = 4}}}),
             line(second, "Fatal", "Missing Ogg comment block") + noComment},
            {"short comment packet",
             ogg({kVorbisHead, {{ByteBuilder().u8(3).str("vorbis").zeros(3).take()}, {.flags = 4}}}),
             line(second, "Fatal", "Insufficient data for comment block") + noComment},
            {"Vorbis comment sharing the first page",
             ogg({{{vorbisIdentification(), vorbisCommentPacket("v", {"A=b"})}, {.flags = 2}}, kAudioEnd}),
             ""},
            {"comment running on", split.take(),
             line(0, "Fatal", "Insufficient data for comment block") + noComment},
        });
}

TEST(OggTag, CommentData) {
    // The first page ends with a 255 lacing value, so the packet is
    // incomplete there; the comment after the long one lies on the second page.
    const Bytes joined = vorbisCommentPacket("v", {"A=" + std::string(500, 'a'), "NOEQUALS", "B=\x07"});
    OggStreamBuilder s;
    s.packet(vorbisIdentification()).page({.flags = 2});
    s.part(Bytes(joined.begin(), joined.begin() + 255), false).page();
    s.part(Bytes(joined.begin() + 255, joined.begin() + 510), false).page({.flags = 1});
    s.part(Bytes(joined.begin() + 510, joined.end()), true).page({.flags = 1});
    s.packet(audioPacket()).page({.flags = 4});
    // Positions inside the comment data, which begins behind the signature.
    const uint64_t secondComment = 4 + 1 + 4 + 4 + 502 + 4;
    // The reader is told the whole packet length, 7 bytes more than the data
    // behind the signature; what lies past the data reads as zeros.
    auto raw = [](const Bytes& data) {
        return ogg({kVorbisHead, {{ByteBuilder().u8(3).str("vorbis").bytes(data).take()}}, kAudioEnd});
    };
    expectLogs(
        "x.ogg",
        {
            {"joined over pages", s.take(),
             line(secondComment, "Tag", "Missing = in FLAC Comment") +
                 line(secondComment + 12, "Tag", "FLAC value for Comment 'B' contains control characters")},
            // A comment running 5 bytes past the data is read with zeros.
            {"comment past the data", raw(ByteBuilder().le32(0).le32(1).le32(8).str("A=b").take()),
             line(12, "Tag", "FLAC value for Comment 'A' contains control characters")},
        });
}

}  // namespace
}  // namespace sondrel
