#include "core/Tag.h"

#include <gtest/gtest.h>

#include "core/FieldTable.h"
#include "core/LogWriter.h"
#include "core/Settings.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

TEST(TagRecord, UnsupportedExtensionGetsOneContainerLineAndNoDate) {
    fixtures::TempDir dir;
    std::string path = dir.write("notes.txt", std::string("hello"));
    Settings s;
    Tag tag(path, s);
    ASSERT_EQ(tag.errorCount(), 1u);
    EXPECT_EQ(
        formatProblemLine((*tag.errors())[0]),
        "    000000000000  Container: File must be aif, aifc, aiff, ape, dff, dsf, flac, mp3, m4a, m4b, m4v, "
        "mp4, oga, ogg, opus, wav or wv");
    EXPECT_EQ(tag.modDate(), "");
    EXPECT_EQ(tag.tagType(), 0u);
}

TEST(TagRecord, UnreadableFilesAreFileProblemsAndStillGetTheirFormatCode) {
    fixtures::TempDir dir;
    Settings s;
    Tag missing(dir.path() + "/gone.flac", s);
    ASSERT_GE(missing.errorCount(), 1u);
    EXPECT_EQ(formatProblemLine((*missing.errors())[0]), "    000000000000  File: No such file or directory");
    EXPECT_EQ(missing.tagType(), 4u);
}

TEST(TagRecord, FourCharacterCodesRenderPrintableBytesAndEscapeControls) {
    EXPECT_EQ(Tag::allocIDString(0x6d703461), "mp4a");
    EXPECT_EQ(Tag::allocIDString(1), "{0x00}{0x00}{0x00}{0x01}");
    EXPECT_EQ(Tag::allocIDString(0x807f9fa0), "{0x80}{0x7f}{0x9f}\xC2\xA0");
    EXPECT_EQ(Tag::allocIDString(0xA96e616d), "\xC2\xA9nam");
}

// (How repeated and list items are kept shows in the field validator tests.)
TEST(TagItems, AnEmptyTextDoesNotCountAsPresent) {
    Settings s;
    Tag tag("/x/a.mp3", s, Tag::NoAnalysis{});
    tag.setivalue(field::Title, 0x54495432, "first", 10);
    tag.setivalue(field::Owner, 0x544f574e, "", 5);
    EXPECT_FALSE(tag.ivalueExists(field::Owner));
    EXPECT_TRUE(tag.ivalueExists(field::Title));
}

TEST(LogLayout, ProblemLinesPadOffsetsToTwelveDigitsAndNameCategories) {
    EXPECT_EQ(formatProblemLine({0, 5, "Read error"}), "    000000000005  File: Read error");
    EXPECT_EQ(formatProblemLine({6, 1234567890123, "x"}), "    1234567890123  Rename(mp3): x");
    EXPECT_EQ(formatProblemLine({99, 0, "y"}), "    000000000000  Container: y")
        << "unknown codes print Container";
    EXPECT_EQ(formatProblemLine({1, 0, "bad \xFF byte"}),
              "    000000000000  Container: bad \xEF\xBF\xBD byte")
        << "invalid UTF-8 is replaced, never written raw";
}

TEST(TagRecord, OwnerIsAPrivacyLineOnlyWithLogPriv) {
    using namespace fixtures;
    const Bytes mp3 = concat({id3v2Tag(3, id3Frame("TOWN", id3Text("me"))), mpegFrames(MpegSpec{}, 12)});
    const std::string line = "    000000000000  Privacy: Owner information is embedded\n";
    EXPECT_NE(problemsFor("a.mp3", mp3, {{"LogPriv", "true"}}).find(line), std::string::npos);
    EXPECT_EQ(problemsFor("a.mp3", mp3).find(line), std::string::npos);
}

// A list field keeps its first 10000 entries; the rest draw one line.
TEST(TagRecord, ListEntriesStopAtTheCapWithOneLine) {
    Settings s;
    Tag tag("x.mp3", s, Tag::NoAnalysis{});
    const uint32_t txxx = 0x54585858;
    for (uint64_t i = 0; i < 10005; ++i)
        tag.setimulvalue(field::UserDefinedText, txxx, "v", "d", std::nullopt, 100 + i);
    ASSERT_EQ(tag.errorCount(), 1u);
    EXPECT_EQ(formatProblemLine((*tag.errors())[0]),
              "    000000010100  Container: 'TXXX' (User Defined Text Info) has more than 10000 entries; "
              "later ones were not "
              "checked");
    EXPECT_EQ(tag.item(field::UserDefinedText)->items->size(), 10000u);
}

}  // namespace
}  // namespace sondrel
