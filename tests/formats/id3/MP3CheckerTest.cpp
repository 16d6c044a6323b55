// The MP3 checker over files built byte by byte: the tags at the ends of the
// file and the audio range they leave, the ID3v2 tags at either end, the
// summary headers of a first frame and the frame-by-frame scan, compared as
// whole log text.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

#include "core/Tag.h"
#include "formats/id3/ID3Tag.h"
#include "tests/fixtures/LogCases.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

const MpegSpec kCBR;  // MPEG-1 Layer III, 128 kbit/s, 44100 Hz, stereo: 417 bytes a frame
const MpegSpec kMono{.mono = true};
const std::map<std::string, std::string> kLogV1 = {{"LogID3v1", "1"}};

std::string garbage(uint64_t at, uint64_t count) {
    return line(at, "Container",
                std::to_string(count) + " bytes of garbage data before the actual start of the audio stream");
}
const std::string kNoAudio = line(0, "Container", "No audio data located");

// The measured stream of a file, read back from the checker the record kept:
// summary tag, VBR, bit rate, duration in ms and where the audio starts.
using Measured = std::tuple<uint32_t, bool, uint64_t, uint64_t, uint64_t>;
Measured measure(const Bytes& file) {
    Settings settings = settingsWith();
    Tag tag("/memory/x.mp3", settings, file);
    auto* c = dynamic_cast<ID3Tag*>(tag.lowLevelRep());
    EXPECT_NE(c, nullptr);
    if (!c) return {};
    return {c->getFrameTag(), c->getFrameVBR(), c->getFrameBitrate(), c->getFrameDurationMs(),
            c->getActualAudioBase()};
}

TEST(MP3Checker, SummaryHeadersOfTheFirstFrame) {
    // An accepted summary, even after garbage, ends the scan before the
    // garbage is reported.
    const Bytes junk = {0, 0, 0};
    for (const Bytes& first : {xingFrame(kCBR, "Xing", 3, 100, 41800), xingFrame(kCBR, "Info", 3, 100, 41800),
                               xingFrame(kMono, "Xing", 3, 100, 41800), vbriFrame(kCBR, 41800, 100)})
        EXPECT_EQ(problemsFor("a.mp3", concat({junk, first, mpegFrames(kCBR, 3)})), "");
    EXPECT_EQ(std::get<4>(measure(concat({junk, xingFrame(kCBR, "Xing", 3, 100, 41800)}))), 3u);

    // What the stream measures: a Xing or Info frame divides by whole
    // seconds (100 frames of 1152 samples at 44100 Hz are 2.61 s, so 2, as
    // are 100 MPEG-2 frames of 576 samples at 22050 Hz);
    // VBRI in floating point (334400 bits in 2.612 s); without a summary
    // every frame counts, the average bitrate, VBR when it varies.
    const Bytes frames = mpegFrames(kCBR, 3);
    EXPECT_EQ(measure(concat({xingFrame(kCBR, "Xing", 3, 100, 41800), frames})),
              Measured(fourcc("Xing"), true, 167, 2612, 0));
    EXPECT_EQ(
        measure(concat({xingFrame({.version = 2, .samplerate = 22050}, "Info", 3, 100, 41800), frames})),
        Measured(fourcc("Info"), false, 167, 2612, 0));
    EXPECT_EQ(measure(concat({vbriFrame(kCBR, 41800, 100), frames})),
              Measured(fourcc("VBRI"), true, 128, 2612, 0));
    EXPECT_EQ(std::get<0>(measure(concat({vbriFrame(kCBR, 1, 1), frames}))),
              fourcc("VBRI"));  // counts of 1 will do
    EXPECT_EQ(measure(concat({mpegFrames(kCBR, 2), mpegFrames({.bitrate = 320}, 2)})),
              Measured(0, true, 224, 104, 0));
}

TEST(MP3Checker, GarbageMissingAudioAndTheTagsAtTheEnd) {
    const Bytes frames = mpegFrames(kCBR, 3);
    ByteBuilder badHeaders;
    for (int i = 0; i < 50; ++i)
        badHeaders.bytes({0xFF, 0xFB, 0xF0, 0})
            .bytes({0xFF, 0xEB, 0x90, 0})
            .bytes({0xFF, 0xFB, 0x90, 2})
            .bytes({0xFF, 0xF9, 0x90, 0});  // bitrate 15, version 01, emphasis 2, layer 00
    // A frame header inside the ID3v1 tag is not audio.
    Bytes v1Sync = id3v1Tag();
    const Bytes header = mpegHeader(kCBR);
    std::copy(header.begin(), header.end(), v1Sync.begin() + 3);
    const Bytes v1 = concat({frames, id3v1Tag()});
    // Items of 32 bytes or more: a smaller APE tag is refused.
    const Bytes titleItem = apeItem("Title", "A title of some length");
    const Bytes ape = concat({frames, apeTag(titleItem, true)});
    const Bytes wrapped = concat({Bytes(600, 0), apeTag({}, false, 2000, 16)});
    // An APEv2 tag that claims a header where none can be read.
    Bytes headless = concat({Bytes(20, 0), apeTag(titleItem, false)});
    headless[headless.size() - 32 + 23] |= 0x80;
    const Bytes headed = concat({Bytes(12, 0), headless});  // the header is then the first 32 bytes
    // Clean streams of every layer and version are the shared example cases;
    // real encoders' files are checked in the real-file tests.
    expectLogs(
        "a.mp3",
        {
            // A stream that loses sync in the middle is followed again without a word.
            {"lost sync", concat({mpegFrames(kCBR, 4), Bytes{1, 2, 0xFF, 0xFB, 0}, mpegFrames(kCBR, 4)}), ""},
            // Huge declared APE sizes and a long stream cost no more than a block.
            {"huge APE size", concat({mpegFrames(kCBR, 400), apeTag({}, false, 2000, 0xFFFFFFF0)}), ""},
            {"garbage", concat({Bytes(1000, 0x55), frames}), garbage(1000, 1000)},
            // A summary header counts only in a frame.
            {"VBRI in garbage", concat({ByteBuilder().zeros(36).str("VBRI").fill(20, 1).take(), frames}),
             garbage(60, 60)},
            {"zeros", Bytes(2000, 0), kNoAudio},
            // Syncs whose headers are invalid or free format do not start a stream.
            {"free format", mpegFrames({.bitrate = 0}, 5, 400), kNoAudio},
            {"invalid headers", badHeaders, kNoAudio},
            // A header among the last 16 bytes of the audio is never searched for.
            {"late header", concat({Bytes(100, 0), header, Bytes(12, 0)}), kNoAudio},
            {"ID3v1 unlogged", v1, ""},
            {"ID3v1", v1, line(v1.size() - 128, "Container", "ID3 v1.0 tag present"), kLogV1},
            {"sync in ID3v1", concat({Bytes(600, 0), v1Sync}), kNoAudio},
            // A file of 128 bytes or less has no room for audio and an ID3v1 tag.
            {"ID3v1 alone", id3v1Tag(), kNoAudio, kLogV1},
            {"APE unlogged", ape, ""},
            {"APE", ape, line(ape.size() - 128, "Container", "APE tag present"), kLogV1},
            // A size field of 32 to 63 is refused silently; below 32 it wraps and
            // is accepted, and the audio range it leaves cannot be read: no verdict.
            {"APE size 40", concat({Bytes(600, 0), apeTag({}, false, 2000, 40)}), kNoAudio, kLogV1},
            {"APE size 16", wrapped, line(wrapped.size() - 128, "Container", "APE tag present"), kLogV1},
            {"APE without header", headless, kNoAudio, kLogV1},
            {"APE header at the first byte", headed,
             line(headed.size(), "Container", "APE tag present") + kNoAudio, kLogV1},
            {"too small", Bytes(10, 0), line(0, "Fatal", "Invalid file size")},
            // No room for an APE footer: the read there fails, the audio is still checked.
            {"20 bytes", Bytes(20, 0), line(20, "File", "Read error") + kNoAudio},
            {"32 bytes", Bytes(32, 0), kNoAudio},
            {"ID3v1 after 10 bytes", concat({Bytes(10, 0), id3v1Tag()}),
             line(10, "File", "Read error") + kNoAudio},
        });
}

Bytes titleTag(int version, bool footer = false) {
    return id3v2Tag(version, id3TextFrame(version, "TIT2", "A title"), 16, footer);
}

TEST(MP3WithID3v2, FootersBothEndsOverlapsAndTheEndTagsThatHideThem) {
    const Bytes start = titleTag(3), audio = mpegFrames(kCBR, 5), end = titleTag(4, true);
    const std::string footer = line(audio.size(), "Container", "The ID3 tag is a footer tag");
    // A start tag whose size reaches over the end tag.
    const Bytes frame = id3TextFrame(3, "TIT2", "A title");
    const Bytes body = concat({frame, audio, end});
    const Bytes covering =
        ByteBuilder().str("ID3").u8(3).u8(0).u8(0).synchsafe32(uint32_t(body.size())).bytes(body).take();
    const Bytes both = concat({start, audio, end});
    const Bytes bad = id3v2Tag(5, {}, 20);
    expectLogs("a.mp3",
               {
                   // Before an ID3v1 tag the footer is looked for 128 bytes earlier.
                   {"footer and ID3v1", concat({audio, end, id3v1Tag()}), footer},
                   // Both read: reported at the ID3v1 position, only the start tag
                   // walked, and the audio measured from the file's first byte, so the
                   // start tag itself stands before the first frame.
                   {"both", both,
                    line(both.size() - 128, "Container", "Has multiple ID3v2.x tags") +
                        garbage(start.size(), start.size())},
                   {"overlap", covering,
                    line(10 + frame.size() + audio.size(), "Fatal", "Overlapping multiple tags")},
                   // A start tag refused with a message: no footer search, the whole file is audio.
                   {"refused start", concat({bad, audio, end}),
                    line(0, "Framing", "Invalid ID3 version 2.5.0") + garbage(bad.size(), bad.size())},
                   // An APE size field of 32 to 63 keeps every ID3v2 tag unread.
                   {"APE size 40", concat({start, audio, apeTag({}, false, 2000, 40)}),
                    garbage(start.size(), start.size())},
               });
}

}  // namespace
}  // namespace sondrel
