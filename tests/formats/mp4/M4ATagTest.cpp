// The whole-file check: top-level atoms, tracks, sample entries and audio
// properties.
#include "formats/mp4/M4ATag.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/formats/mp4/M4ATestSupport.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::mp4;

Bytes moovWith(std::vector<Bytes> children) {
    return box("moov", children);
}
Bytes mdat() {
    return atom("mdat", Bytes(16, 0));
}
Bytes soundTrack(const Bytes& entry) {
    return trak("soun", std::vector<Bytes>{stsd(entry), stco()});
}
std::string fatal(const Bytes& file, const std::string& message) {
    return line(offsetOf(file, "mdia"), "Fatal", message);
}

TEST(M4ATag, TopLevelAtomsAndTracks) {
    const Bytes noStco =
        m4aFile({}, {trak("soun"), trak("vide", std::vector<Bytes>{stsd(atom("avc1", {}))})});
    const Bytes noMinf = m4aFile({}, {box("trak", {box("mdia", {mdhd(), hdlr("soun")})})});
    // The handler type lies 16 bytes into "hdlr"; a file ending before it cannot be read.
    const Bytes shortHdlr =
        concat({ftyp(), mdat(), moovWith({box("trak", {box("mdia", {atom("hdlr", {0, 0, 0, 0})})})})});
    // A decoder configuration that is not where the descriptor says.
    ByteBuilder odd(soundFields(2, 44100));
    odd.bytes(fullBox("esds", ByteBuilder().u8(3).u8(20).be16(0).u8(0).u8(9).zeros(20).take()));
    const std::vector<LogCase> cases = {
        {"11 bytes", Bytes(11, 0), line(0, "Fatal", "Insufficient data to represent audio format")},
        {"lone ftyp", atom("ftyp", {0, 0, 0, 0}),
         line(0, "Fatal", "file is missing moov atom") +
             line(0, "Container", "file is missing mdat atom. (No audio)")},
        {"no moov", concat({ftyp(), mdat()}), line(0, "Fatal", "file is missing moov atom")},
        {"no mdat", concat({ftyp(), moovWith({trak("soun")})}),
         line(0, "Container", "file is missing mdat atom. (No audio)")},
        {"no track", concat({ftyp(), moovWith({udta({})}), mdat()}),
         line(0, "Fatal", "The file does not have an audio or video track")},
        // A text track needs no chunk offsets; a video track does; 64-bit ones count.
        {"text track", m4aFile({}, {trak("soun"), trak("text", std::vector<Bytes>{stsd(atom("tx3g", {}))})}),
         ""},
        {"video without stco", noStco,
         line(offsetOf(noStco, "mdia", 1), "Fatal", "File is missing trak-mdia-stbl-(stco|co64) atom")},
        {"co64", m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(mp4aEntry()), fullBox("co64", {})})}), ""},
        {"no mdia", m4aFile({}, {box("trak", {fullBox("tkhd", Bytes(80, 0))})}),
         line(0, "Fatal", "Missing trak-mdia atom")},
        {"no minf", noMinf, fatal(noMinf, "File is missing trak-mdia-minf atom")},
        {"short hdlr", shortHdlr, fatal(shortHdlr, "Invalid format or read error")},
        {"odd esds", m4aFile({}, {soundTrack(atom("mp4a", odd.take()))}),
         line(0, "Fatal", "No audio track located")},
    };
    expectLogs("a.m4a", cases);
}

TEST(M4ATag, AudioPropertiesComeFromTheSampleEntry) {
    // (format, channel mode, sample rate, bit rate, duration, sample size for ALAC)
    auto properties = [](const Checked& c) {
        const M4ATag& m = c.checker();
        return std::tuple(m.streamFormat(), m.frameChannelmode(), m.frameSamplerate(), m.frameBitrate(),
                          m.frameDuration_ms(), m.streamFormat() == "ALAC" ? m.frameSampleSize() : 0, c.log);
    };
    EXPECT_EQ(properties(check(m4aFile({}, {soundTrack(mp4aEntry(1, 48000, 96000))}))),
              std::tuple("AAC", 3u, 48000u, 96u, 1000u, 0u, ""));
    const Bytes longEsds =
        atom("mp4a", ByteBuilder(soundFields(2, 44100).take()).bytes(esds(64000, true)).take());
    EXPECT_EQ(check(m4aFile({}, {soundTrack(longEsds)})).checker().frameBitrate(), 64u);
    // ALAC is recognised only in an 88-byte sample description.
    EXPECT_EQ(properties(check(m4aFile({}, {soundTrack(alacEntry(2, 24, 96000, 2'000'500))}))),
              std::tuple("ALAC", 2u + 131072u, 96000u, 2001u, 1000u, 24u, ""));
    EXPECT_EQ(check(m4aFile({}, {soundTrack(alacEntry(2, 24, 96000, 2'000'499))})).checker().frameBitrate(),
              2000u);
    Bytes entry = alacEntry();
    entry.push_back(0);
    ByteBuilder patched(entry);
    patched.patchBE32(0, uint32_t(entry.size()));
    Checked other = check(m4aFile({}, {soundTrack(patched.take())}));
    EXPECT_EQ(other.log, "");
    EXPECT_EQ(other.checker().streamFormat(), "AAC");

    // A purchaser name becomes identification.
    Bytes name = atom("name", text(std::string("Jane Buyer\0rest", 15)));
    Bytes file = m4aFile({}, {soundTrack(mp4aEntry(2, 44100, 128000, {box("pinf", {box("schi", {name})})}))});
    Checked c = check(file, {{"LogPriv", "1"}});
    EXPECT_EQ(c.log, line(0, "Privacy", "Identification information is embedded"));
    const TagItem* id = c.tag->item(field::Identification);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(std::tuple(id->value, id->offset), std::tuple("Jane Buyer", offsetOf(file, "name") + 8));
}

}  // namespace
}  // namespace sondrel
