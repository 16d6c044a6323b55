// The MP3 checker over files built byte by byte: the tags at the ends of the
// file, the audio range they leave, the summary headers of a first frame and
// the frame-by-frame scan, compared as whole log text.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/Tag.h"
#include "formats/id3/ID3Tag.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

std::string line(uint64_t offset, const char* category, const std::string& message) {
    char head[32];
    std::snprintf(head, sizeof head, "    %012llu  ", static_cast<unsigned long long>(offset));
    return head + std::string(category) + ": " + message + "\n";
}

const MpegSpec kCBR;  // MPEG-1 Layer III, 128 kbit/s, 44100 Hz, stereo: 417 bytes a frame

// The measured stream of a file, read back from the checker the record kept.
struct Measured {
    uint64_t bitrate, durationMs, actualAudioBase;
    bool vbr;
    uint32_t tag;
};
Measured measure(const Bytes& file) {
    Settings settings = settingsWith();
    Tag tag("/memory/x.mp3", settings, file);
    auto* checker = dynamic_cast<ID3Tag*>(tag.lowLevelRep());
    EXPECT_NE(checker, nullptr);
    if (!checker) return {};
    return {checker->getFrameBitrate(), checker->getFrameDurationMs(), checker->getActualAudioBase(),
            checker->getFrameVBR(), checker->getFrameTag()};
}

TEST(MP3Checker, CleanStreamsOfEveryKindGiveNoProblems) {
    MpegSpec padded = kCBR, crc = kCBR, mono = kCBR, layer2 = kCBR, layer1 = kCBR, mpeg2 = kCBR,
             mpeg25 = kCBR;
    padded.padding = true;
    crc.crc = true;
    mono.mono = true;
    layer2.layer = 2, layer2.bitrate = 192;
    layer1.layer = 1, layer1.bitrate = 384, layer1.samplerate = 48000;
    mpeg2.version = 2, mpeg2.layer = 2, mpeg2.bitrate = 64, mpeg2.samplerate = 24000;
    mpeg25.version = 3, mpeg25.bitrate = 32, mpeg25.samplerate = 8000;
    for (const MpegSpec& s : {kCBR, padded, crc, mono, layer2, layer1, mpeg2, mpeg25}) {
        SCOPED_TRACE(testing::Message() << "version " << s.version << " layer " << s.layer);
        EXPECT_EQ(problemsFor("a.mp3", mpegFrames(s, 20)), "");
        EXPECT_EQ(problemsFor("a.mp2", mpegFrames(s, 20)), "");
    }
    EXPECT_EQ(problemsFor("x.mp3", concat({xingFrame(kCBR, "Xing", 15, 100, 41800), mpegFrames(kCBR, 5)})),
              "");
    EXPECT_EQ(problemsFor("x.mp3", concat({vbriFrame(kCBR, 41800, 100), mpegFrames(kCBR, 5)})), "");
    // A stream that loses sync in the middle is followed again without a word.
    EXPECT_EQ(
        problemsFor("x.mp3", concat({mpegFrames(kCBR, 4), Bytes{1, 2, 0xFF, 0xFB, 0}, mpegFrames(kCBR, 4)})),
        "");
}

TEST(MP3Checker, SummaryHeadersOfTheFirstFrameMeasureTheStream) {
    // 100 frames of 1152 samples at 44100 Hz are 2.61 s: 2 whole seconds.
    Measured xing = measure(concat({xingFrame(kCBR, "Xing", 3, 100, 41800), mpegFrames(kCBR, 3)}));
    EXPECT_EQ(xing.tag, fourcc("Xing"));
    EXPECT_TRUE(xing.vbr);
    EXPECT_EQ(xing.durationMs, 2612u);
    EXPECT_EQ(xing.bitrate, 41800u * 8 / 2 / 1000);

    Measured info = measure(concat({xingFrame(kCBR, "Info", 3, 100, 41800), mpegFrames(kCBR, 3)}));
    EXPECT_EQ(info.tag, fourcc("Info"));
    EXPECT_FALSE(info.vbr);

    MpegSpec mono = kCBR;
    mono.mono = true;
    EXPECT_EQ(measure(concat({xingFrame(mono, "Xing", 3, 100, 41800), mpegFrames(mono, 3)})).tag,
              fourcc("Xing"));

    // VBRI divides in floating point: 334400 bits in 2.612 s.
    Measured vbri = measure(concat({vbriFrame(kCBR, 41800, 100), mpegFrames(kCBR, 3)}));
    EXPECT_EQ(vbri.tag, fourcc("VBRI"));
    EXPECT_TRUE(vbri.vbr);
    EXPECT_EQ(vbri.bitrate, 128u);

    // Without a summary every frame counts: the average bitrate, VBR when it varies.
    MpegSpec fast = kCBR;
    fast.bitrate = 320;
    Measured scanned = measure(concat({mpegFrames(kCBR, 2), mpegFrames(fast, 2)}));
    EXPECT_EQ(scanned.tag, 0u);
    EXPECT_TRUE(scanned.vbr);
    EXPECT_EQ(scanned.bitrate, (128u + 128 + 320 + 320) / 4);
}

TEST(MP3Checker, RefusedSummaryHeadersLeaveTheStreamToTheScan) {
    const Bytes junk = {0, 0, 0};
    const std::string garbage =
        line(3, "Container", "3 bytes of garbage data before the actual start of the audio stream");
    MpegSpec mono = kCBR;
    mono.mono = true;
    const Bytes refused[] = {
        xingFrame(kCBR, "Xing", 1, 100, 0),          // frame count only
        xingFrame(kCBR, "Xing", 2, 0, 41800),        // byte count only
        xingFrame(kCBR, "Xing", 3, 38, 15000),       // 0.99 s: no whole second
        xingFrame(mono, "Xing", 3, 100, 41800, 36),  // mono stream, tag where stereo puts it
        xingFrame(kCBR, "xing", 3, 100, 41800),      // wrong case
        vbriFrame(kCBR, 0, 100),
        vbriFrame(kCBR, 41800, 0),
    };
    for (const Bytes& first : refused) {
        // At the start of the file and, after garbage, at the first header found.
        Bytes plain = concat({first, mpegFrames(kCBR, 3)});
        EXPECT_EQ(problemsFor("a.mp3", plain), "");
        EXPECT_EQ(measure(plain).tag, 0u);
        EXPECT_EQ(problemsFor("a.mp3", concat({junk, first, mpegFrames(kCBR, 3)})), garbage);
    }
    // An accepted summary after garbage ends the scan before the garbage is reported.
    Bytes late = concat({junk, xingFrame(kCBR, "Xing", 3, 100, 41800), mpegFrames(kCBR, 3)});
    EXPECT_EQ(problemsFor("a.mp3", late), "");
    EXPECT_EQ(measure(late).actualAudioBase, 3u);
}

TEST(MP3Checker, GarbageBeforeTheFirstHeaderAndMissingAudio) {
    EXPECT_EQ(
        problemsFor("a.mp3", concat({Bytes(1000, 0x55), mpegFrames(kCBR, 3)})),
        line(1000, "Container", "1000 bytes of garbage data before the actual start of the audio stream"));
    EXPECT_EQ(measure(concat({Bytes(7, 0), mpegFrames(kCBR, 3)})).actualAudioBase, 7u);

    const std::string noAudio = line(0, "Container", "No audio data located");
    EXPECT_EQ(problemsFor("a.mp3", Bytes(2000, 0)), noAudio);
    // Syncs whose headers are invalid or free format do not start a stream.
    MpegSpec free = kCBR;
    free.bitrate = 0;
    EXPECT_EQ(problemsFor("a.mp3", mpegFrames(free, 5, 400)), noAudio);
    ByteBuilder badHeaders;
    for (int i = 0; i < 50; ++i)
        badHeaders.bytes({0xFF, 0xFB, 0xF0, 0}).bytes({0xFF, 0xEB, 0x90, 0}).bytes({0xFF, 0xFB, 0x90, 2});
    EXPECT_EQ(problemsFor("a.mp3", badHeaders), noAudio);
    // A header among the last 16 bytes of the audio is never searched for.
    EXPECT_EQ(problemsFor("a.mp3", concat({Bytes(100, 0), mpegHeader(kCBR), Bytes(12, 0)})), noAudio);
}

TEST(MP3Checker, ID3v1TagIsReportedOnRequestAndKeptOutOfTheAudio) {
    Bytes file = concat({mpegFrames(kCBR, 3), id3v1Tag()});
    EXPECT_EQ(problemsFor("a.mp3", file), "");
    EXPECT_EQ(problemsFor("a.mp3", file, {{"LogID3v1", "1"}}),
              line(file.size() - 128, "Container", "ID3 v1.0 tag present"));
    // A frame header inside the ID3v1 tag is not audio.
    Bytes v1 = id3v1Tag();
    Bytes header = mpegHeader(kCBR);
    std::copy(header.begin(), header.end(), v1.begin() + 3);
    EXPECT_EQ(problemsFor("a.mp3", concat({Bytes(600, 0), v1})),
              line(0, "Container", "No audio data located"));
    // A file of 128 bytes or less has no room for audio and an ID3v1 tag.
    Bytes small = id3v1Tag();
    EXPECT_EQ(problemsFor("a.mp3", small, {{"LogID3v1", "1"}}),
              line(0, "Container", "No audio data located"));
}

TEST(MP3Checker, APETagIsReportedAtTheID3v1Position) {
    // Items of 32 bytes or more: a smaller tag is refused.
    Bytes ape = apeTag(apeItem("Title", "A title of some length"), true);
    Bytes file = concat({mpegFrames(kCBR, 3), ape});
    EXPECT_EQ(problemsFor("a.mp3", file), "");
    EXPECT_EQ(problemsFor("a.mp3", file, {{"LogID3v1", "1"}}),
              line(file.size() - 128, "Container", "APE tag present"));
    Bytes withV1 = concat({mpegFrames(kCBR, 3), ape, id3v1Tag()});
    uint64_t v1 = withV1.size() - 128;
    EXPECT_EQ(problemsFor("a.mp3", withV1, {{"LogID3v1", "1"}}),
              line(v1, "Container", "ID3 v1.0 tag present") + line(v1, "Container", "APE tag present"));
    // A size field of 32 to 63 is refused silently; below 32 it wraps and is
    // accepted, and the audio range it leaves cannot be read: no verdict.
    Bytes zeros(600, 0);
    EXPECT_EQ(problemsFor("a.mp3", concat({zeros, apeTag({}, false, 2000, 40)}), {{"LogID3v1", "1"}}),
              line(0, "Container", "No audio data located"));
    Bytes wrapped = concat({zeros, apeTag({}, false, 2000, 16)});
    EXPECT_EQ(problemsFor("a.mp3", wrapped, {{"LogID3v1", "1"}}),
              line(wrapped.size() - 128, "Container", "APE tag present"));
    // An APEv2 tag that claims a header where none can be read is refused silently.
    Bytes headless = concat({Bytes(20, 0), apeTag(apeItem("Title", "A title of some length"), false)});
    headless[headless.size() - 32 + 23] |= 0x80;
    EXPECT_EQ(problemsFor("a.mp3", headless, {{"LogID3v1", "1"}}),
              line(0, "Container", "No audio data located"));
}

TEST(MP3Checker, FilesTooShortForTheTagsAtTheEnd) {
    EXPECT_EQ(problemsFor("a.mp3", Bytes(10, 0)), line(0, "Fatal", "Invalid file size"));
    // No room for an APE footer: the read there fails, the audio is still checked.
    EXPECT_EQ(problemsFor("a.mp3", Bytes(20, 0)),
              line(20, "File", "Read error") + line(0, "Container", "No audio data located"));
    Bytes v1Only = concat({Bytes(10, 0), id3v1Tag()});
    EXPECT_EQ(problemsFor("a.mp3", v1Only),
              line(10, "File", "Read error") + line(0, "Container", "No audio data located"));
}

TEST(MP3Checker, MemoryDoesNotDependOnTheDeclaredSizes) {
    // Huge declared APE sizes and a long stream cost no more than a block.
    Bytes file = concat({mpegFrames(kCBR, 400), apeTag({}, false, 2000, 0xFFFFFFF0)});
    EXPECT_EQ(problemsFor("a.mp3", file), "");
}

}  // namespace
}  // namespace sondrel
