#include "core/Tag.h"

#include <gtest/gtest.h>

#include "core/FieldTable.h"
#include "core/LogWriter.h"
#include "core/Settings.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::problemsFor;
using fixtures::settingsWith;

TEST(TagRecord, UnsupportedExtensionGetsOneContainerLineAndNoDate) {
    fixtures::TempDir dir;
    std::string path = dir.write("notes.txt", std::string("hello"));
    Settings s;
    Tag tag(path, s);
    ASSERT_EQ(tag.errorCount(), 1u);
    EXPECT_EQ(formatProblemLine((*tag.errors())[0]),
              "    000000000000  Container: File must be aif, aifc, aiff, ape, dff, dsf, flac, mp3, m4a, m4b, m4v, "
              "mp4, oga, ogg, opus, wav or wv");
    EXPECT_EQ(tag.modDate(), "");
    EXPECT_EQ(tag.tagType(), 0u);
}

TEST(TagRecord, RecordWithoutProblemsHasNoErrorList) {
    Settings s;
    Tag tag("/x/a.flac", s, Tag::NoAnalysis{});
    EXPECT_EQ(tag.errorCount(), 0u);
    EXPECT_FALSE(tag.errors().has_value());
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

TEST(TagItems, FirstOccurrenceWinsAndListFieldsCollectEntries) {
    Settings s;
    Tag tag("/x/a.mp3", s, Tag::NoAnalysis{});
    tag.setivalue(field::Title, 0x54495432, "first", 10);
    tag.setivalue(field::Title, 0x54495432, "second", 40);
    tag.setivalue(field::Title, 0x54495432, "third", 70);
    const TagItem* t = tag.item(field::Title);
    ASSERT_TRUE(t);
    EXPECT_EQ(*t->value, "first");
    EXPECT_EQ(t->offset, 10u);
    EXPECT_EQ(t->count, 3u);

    tag.setimulvalue(field::Comments, 0x434f4d4d, "a", "", "eng", 20);
    tag.setimulvalue(field::Comments, 0x434f4d4d, "b", "d", "eng", 50);
    const TagItem* c = tag.item(field::Comments);
    ASSERT_TRUE(c && c->items);
    EXPECT_EQ(c->items->size(), 2u);
    EXPECT_EQ(c->count, 1u);
    EXPECT_EQ(c->offset, 0u) << "problems about the whole list field are logged at offset 0";

    tag.setivalue(field::Owner, 0x544f574e, "", 5);
    EXPECT_FALSE(tag.ivalueExists(field::Owner)) << "an empty text does not count as present";
    EXPECT_TRUE(tag.ivalueExists(field::Title));
}

TEST(TagItems, ItemProblemsNameCodeFieldAndDescription) {
    Settings s;
    Tag tag("/x/a.mp3", s, Tag::NoAnalysis{});
    TagItem withEmptyDesc(field::Comments, 0x434f4d4d, "v", std::string(), std::string("eng"), 33);
    TagItem plain(field::Title, 0x54495432, "v", 12);
    tag.logError(withEmptyDesc, "value contains control characters");
    tag.logError(plain, "found 2 times");
    ASSERT_EQ(tag.errorCount(), 2u);
    EXPECT_EQ((*tag.errors())[0].reason, "'COMM' (Comments) [] value contains control characters");
    EXPECT_EQ((*tag.errors())[0].offset, 33u);
    EXPECT_EQ((*tag.errors())[1].reason, "'TIT2' (Title) found 2 times");
}

TEST(LogLayout, ProblemLinesPadOffsetsToTwelveDigitsAndNameCategories) {
    EXPECT_EQ(formatProblemLine({0, 5, "Read error"}), "    000000000005  File: Read error");
    EXPECT_EQ(formatProblemLine({6, 1234567890123, "x"}), "    1234567890123  Rename(mp3): x");
    EXPECT_EQ(formatProblemLine({99, 0, "y"}), "    000000000000  Container: y") << "unknown codes print Container";
    const char* words[] = {"File", "Container", "Framing", "Tag", "Fatal", "Privacy", "Rename(mp3)"};
    for (uint32_t i = 0; i < 7; ++i) EXPECT_STREQ(categoryWord(i), words[i]);
    EXPECT_EQ(formatProblemLine({1, 0, "bad \xFF byte"}), "    000000000000  Container: bad \xEF\xBF\xBD byte")
        << "invalid UTF-8 is replaced, never written raw";
}

}  // namespace
}  // namespace sondrel
