// How the MP3 checker combines the ID3v2 tag reader with the audio: a tag at
// the start, a v2.4 tag appended at the end, both, overlapping ones, and the
// end-of-file tags that keep the ID3v2 tags from being read.
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
std::string garbage(uint64_t at, uint64_t count) {
    return line(at, "Container",
                std::to_string(count) + " bytes of garbage data before the actual start of the audio stream");
}

const MpegSpec kCBR;

// These cases need the real ID3v2 tag reader; they skip while the tag
// reader is still the stand-in that never finds a tag.
bool haveTagReader() {
    static const bool present = problemsFor("probe.mp3", concat({id3v2Tag(5, {}, 20), mpegFrames(kCBR, 3)}))
                                    .find("Invalid ID3 version") != std::string::npos;
    return present;
}
#define NEEDS_TAG_READER() \
    if (!haveTagReader()) GTEST_SKIP() << "needs the ID3v2 tag reader"

Bytes titleTag(int version, bool footer = false) {
    return id3v2Tag(version, id3TextFrame(version, "TIT2", "A title"), 16, footer);
}

TEST(MP3WithID3v2, TagAtTheStartMovesTheAudioStart) {
    NEEDS_TAG_READER();
    for (int version : {3, 4}) {
        Bytes tag = titleTag(version);
        EXPECT_EQ(problemsFor("a.mp3", concat({tag, mpegFrames(kCBR, 5)})), "");
        EXPECT_EQ(problemsFor("a.mp3", concat({tag, Bytes(3, 0), mpegFrames(kCBR, 5)})),
                  garbage(tag.size() + 3, 3));
        // A summary header right after the tag is found there.
        Settings settings = settingsWith();
        Tag record("/m/a.mp3", settings,
                   concat({tag, xingFrame(kCBR, "Info", 3, 100, 41800), mpegFrames(kCBR, 2)}));
        auto* checker = dynamic_cast<ID3Tag*>(record.lowLevelRep());
        ASSERT_NE(checker, nullptr);
        EXPECT_EQ(checker->getFrameTag(), fourcc("Info"));
    }
}

TEST(MP3WithID3v2, TagFoundThroughItsFooterIsWalkedThenReported) {
    NEEDS_TAG_READER();
    Bytes audio = mpegFrames(kCBR, 5);
    Bytes end = titleTag(4, true);
    EXPECT_EQ(problemsFor("a.mp3", concat({audio, end})),
              line(audio.size(), "Container", "The ID3 tag is a footer tag"));
    // Before an ID3v1 tag the footer is looked for 128 bytes earlier.
    EXPECT_EQ(problemsFor("a.mp3", concat({audio, end, id3v1Tag()})),
              line(audio.size(), "Container", "The ID3 tag is a footer tag"));
    // Before an APE tag it is not looked for at all.
    Bytes ape = apeTag(apeItem("Title", "A title of some length"), false);
    EXPECT_EQ(problemsFor("a.mp3", concat({audio, end, ape})), "");
}

TEST(MP3WithID3v2, TagsAtBothEndsAndOverlappingTags) {
    NEEDS_TAG_READER();
    Bytes start = titleTag(3), audio = mpegFrames(kCBR, 5), end = titleTag(4, true);
    // Both read: reported at the ID3v1 position, only the start tag walked,
    // and the audio measured from the file's first byte, so the start tag
    // itself stands before the first frame.
    Bytes both = concat({start, audio, end});
    EXPECT_EQ(problemsFor("a.mp3", both), line(both.size() - 128, "Container", "Has multiple ID3v2.x tags") +
                                              garbage(start.size(), start.size()));

    // A start tag whose size reaches over the end tag: the check stops there.
    Bytes frame = id3TextFrame(3, "TIT2", "A title");
    Bytes body = concat({frame, audio, end});
    ByteBuilder covering;
    covering.str("ID3").u8(3).u8(0).u8(0).synchsafe32(uint32_t(body.size())).bytes(body);
    EXPECT_EQ(problemsFor("a.mp3", covering),
              line(10 + frame.size() + audio.size(), "Fatal", "Overlapping multiple tags"));
}

TEST(MP3WithID3v2, StartTagProblemsAndAPESizesDecideTheFooterSearch) {
    NEEDS_TAG_READER();
    Bytes audio = mpegFrames(kCBR, 5), end = titleTag(4, true);
    // A start tag refused with a message: no footer search, the whole file is audio.
    Bytes bad = id3v2Tag(5, {}, 20);
    EXPECT_EQ(problemsFor("a.mp3", concat({bad, audio, end})),
              line(0, "Framing", "Invalid ID3 version 2.5.0") + garbage(bad.size(), bad.size()));
    // An APE size field of 32 to 63 keeps every ID3v2 tag unread.
    Bytes tag = titleTag(3);
    EXPECT_EQ(problemsFor("a.mp3", concat({tag, audio, apeTag({}, false, 2000, 40)})),
              garbage(tag.size(), tag.size()));
}

}  // namespace
}  // namespace sondrel
