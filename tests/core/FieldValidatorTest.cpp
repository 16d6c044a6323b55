#include "core/FieldValidator.h"

#include <gtest/gtest.h>

#include "core/FieldTable.h"
#include "core/LogWriter.h"
#include "core/Tag.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

constexpr const char* kDots = "\xC2\xB7\xC2\xB7\xC2\xB7";  // the multi-value separator

using Options = std::map<std::string, std::string>;

// A bare record to store items into, validated as a checker would.
class Record {
  public:
    explicit Record(const Options& options = {})
        : settings_(fixtures::settingsWith(options)), tag_("/music/a.mp3", settings_, Tag::NoAnalysis{}) {}
    Tag& tag() { return tag_; }
    void set(int64_t index, const char (&code)[5], std::optional<std::string> value, uint64_t offset) {
        tag_.setivalue(index, fourcc(code), std::move(value), offset);
    }
    void entry(int64_t index, const char (&code)[5], std::optional<std::string> value,
               std::optional<std::string> desc, std::optional<std::string> lang, uint64_t offset) {
        tag_.setimulvalue(index, fourcc(code), std::move(value), std::move(desc), std::move(lang), offset);
    }
    std::string validate(bool fromMPEG4 = false) {
        tag_.validateFields(fromMPEG4);
        return lines();
    }
    std::string lines() const {
        std::string out;
        if (tag_.errors())
            for (const LogError& e : *tag_.errors()) out += formatProblemLine(e) + "\n";
        return out;
    }

  private:
    Settings settings_;
    Tag tag_;
};

std::string tagLine(uint64_t offset, const std::string& message) {
    return formatProblemLine(LogError{kTagProblem, offset, message}) + "\n";
}

TEST(FieldTable, CustomFortyNineAndFiftyNineShareOneItem) {
    Record r;
    r.set(139, "TXXX", "first", 40);
    r.set(149, "TXXX", "second", 90);
    const TagItem* item = r.tag().item(149);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item, r.tag().item(139));
    EXPECT_EQ(item->count, 2u);
    EXPECT_EQ(item->tagIndex, 139);
    EXPECT_EQ(item->value, "first");
    // Messages about the shared item name the row stored first.
    r.tag().logError(*item, "x");
    EXPECT_EQ(r.lines(), tagLine(40, "'TXXX' (Custom 49) x"));
    // Custom fields are not among the validated fields.
    EXPECT_EQ(r.validate(), tagLine(40, "'TXXX' (Custom 49) x"));
}

// (Field order and first values are the example cases' matter.)
TEST(FieldValidatorRepetition, PlayerIdTwiceIsNormalAndMPEG4OptionSilencesOnlyMPEG4) {
    Record twice;
    twice.set(field::Identification, "apID", "a@b", 8);
    twice.set(field::Identification, "apID", "a@b", 9);
    EXPECT_EQ(twice.validate(true), "");

    Record thrice;
    for (int i = 0; i < 3; ++i) thrice.set(field::Identification, "apID", "a@b", 8);
    EXPECT_EQ(thrice.validate(true), tagLine(8, "'apID' (Identification) found 3 times"));

    for (const bool fromMPEG4 : {true, false}) {
        Record r(Options{{"MPEG4_MulAtoms", "1"}});
        r.set(field::Title, "TIT2", "t", 16);
        r.set(field::Title, "TIT2", "t", 32);
        EXPECT_EQ(r.validate(fromMPEG4), fromMPEG4 ? "" : tagLine(16, "'TIT2' (Title) found 2 times"));
    }
}

TEST(FieldValidatorDirt, NewlineBeforeControlAndTabIsClean) {
    Record r;
    r.set(field::Title, "TIT2", "tab\tis fine", 1);
    r.set(field::Artist, "TPE1", "bell\x07", 2);
    r.set(field::Album, "TALB", "cr\r and zero width\xE2\x80\x8B", 3);  // CR, U+200B (format)
    r.set(field::Grouping, "TIT1", "next line \xC2\x85", 4);            // U+0085 is both
    r.set(field::Composer, "TCOM", "line separator \xE2\x80\xA8", 5);   // U+2028 is a newline only
    r.set(field::Genre, "TCON", std::nullopt, 6);                       // no text: nothing to examine
    EXPECT_EQ(r.validate(), tagLine(2, "'TPE1' (Artist) value contains control characters") +
                                tagLine(3, "'TALB' (Album) value contains newline characters") +
                                tagLine(3, "'TALB' (Album) value contains control characters") +
                                tagLine(4, "'TIT1' (Grouping) value contains newline characters") +
                                tagLine(4, "'TIT1' (Grouping) value contains control characters") +
                                tagLine(5, "'TCOM' (Composer) value contains newline characters"));
}

TEST(FieldValidatorTime, IsoSubsetGrammar) {
    for (const char* good :
         {"2021", "2021-02-29", "2021-01-01T23:59:59", "2021-1-5", "2021-", "2021-03-05T",
          "2021-03-05T10:", "+2021", "2021-01-01T10:30:15Z", "2021 -03-01", "9999-12-31", "2021-03"}) {
        EXPECT_TRUE(FieldValidator::isValidTimeStamp(good)) << good;
    }
    for (const char* bad :
         {"0999", "10000", "20211", "abcd", "", "-2021", "2021-13", "2021-00", "2021-02-30", "2021-04-31",
          "2021-01-01T10:30Z", "2021-01-01T24:00", "2021-01-01T10:60", "2021-01-01T10:30:60", "2021/01",
          "2021-01-01 10:00", "2021- 03", "2021--03", "2021-01-01t10"}) {
        EXPECT_FALSE(FieldValidator::isValidTimeStamp(bad)) << bad;
    }
}

TEST(FieldValidatorTime, FieldsOrderMultipleValuesAndSuppression) {
    auto fill = [](Record& r) {
        r.set(field::Year, "TYER", "0999", 6);
        r.set(field::TaggingTime, "TDTG", "  2021-01-01T10:30Z  ", 43);
        r.set(field::ReleaseTime, "TDRL", std::string("2020") + kDots + "2021", 42);
        r.set(field::OrigReleaseTime, "TDOR", std::string("20211") + kDots + "x", 41);
        r.set(field::EncodingTime, "TDEN", "not a time", 39);  // not a validated time field
    };
    Record r;
    fill(r);
    EXPECT_EQ(r.validate(),
              tagLine(41, "'TDOR' (Original Release Time) contains multiple values") +
                  tagLine(41, "'TDOR' (Original Release Time) Time stamp is not a valid subset of ISO 8601") +
                  tagLine(42, "'TDRL' (Release Time) contains multiple values") +
                  tagLine(43, "'TDTG' (Tagging Time) Time stamp is not a valid subset of ISO 8601") +
                  tagLine(6, "'TYER' (Year) Time stamp is not a valid subset of ISO 8601"));

    Record suppressed(Options{{"SuppressTimeErrors", "1"}});
    fill(suppressed);
    EXPECT_EQ(suppressed.validate(), "");

    Record emptyFirst;
    emptyFirst.set(field::ReleaseTime, "TDRL", std::string(" ") + kDots + "garbage", 42);
    EXPECT_EQ(emptyFirst.validate(), tagLine(42, "'TDRL' (Release Time) contains multiple values"));
}

TEST(FieldValidatorLanguage, MeasuredOnlyOutsideAScan) {
    Record r;
    r.set(field::Language, "TLAN", "english", 12);
    // The record's format code is still 0 while items are validated.
    EXPECT_EQ(r.validate(), "");
    // Every value of a multi-value text must be a three-letter code.
    for (const auto& [value, bad] : {std::pair<std::string, bool>{"english", true},
                                     {std::string("eng") + kDots + "fr" + kDots + "x", true},
                                     {std::string("eng") + kDots + "d\xC3\xA9u", false}}) {
        Record one;
        one.set(field::Language, "TLAN", value, 12);
        FieldValidator(one.tag()).validateLanguage();
        EXPECT_EQ(one.lines(),
                  bad ? tagLine(12, "'TLAN' (Language) invalid language code. Not ISO-639-2") : "")
            << value;
    }
}

TEST(FieldValidatorURL, EscapedTextMustParseAsReference) {
    using C = FieldValidator::URLCheck;
    for (const char* good : {"http://example.com/a b", "plain words", "caf\xC3\xA9", "mailto:a@b.c", "50%25",
                             "http://[::1]/", "a{b}|c"}) {
        EXPECT_EQ(FieldValidator::checkURL(good), C::valid) << good;
    }
    for (const char* bad : {"50%zz", "100%", "a#b#c", "http://[::1/", "x]y"}) {
        EXPECT_EQ(FieldValidator::checkURL(bad), C::parseFailed) << bad;
    }
    EXPECT_EQ(FieldValidator::checkURL("\xFF"), C::escapeFailed);
}

TEST(FieldValidatorURL, SingleFieldsThenUserDefinedEntries) {
    Record r;
    r.set(field::PodcastURL, "purl", "a#b#c", 81);
    r.set(field::CopyrightInfoURL, "WCOP", "http://fine.example/", 49);
    r.set(field::PaymentURL, "WPAY", "bad%", 53);
    r.set(field::PublisherURL, "WPUB", "", 54);
    r.entry(field::UserDefinedURL, "WXXX", "%zz", "shop", std::nullopt, 100);
    r.entry(field::UserDefinedURL, "WXXX", "", "empty", std::nullopt, 110);
    r.entry(field::UserDefinedURL, "WXXX", "ok", "home", std::nullopt, 120);
    r.entry(field::UserDefinedURL, "WXXX", "%%", "", std::nullopt, 130);
    EXPECT_EQ(r.validate(), tagLine(53, "'WPAY' (Payment Webpage) invalid URL") +
                                tagLine(81, "'purl' (Podcast URL) invalid URL") +
                                tagLine(100, "'WXXX' (User Defined URL) [shop] invalid URL") +
                                tagLine(130, "'WXXX' (User Defined URL) [] invalid URL"));
}

TEST(FieldValidatorURL, EntryThatCannotBeEscapedEndsTheWalk) {
    Record r;
    r.entry(field::UserDefinedURL, "WXXX", "\xFF", "raw", std::nullopt, 100);
    r.entry(field::UserDefinedURL, "WXXX", "%zz", "later", std::nullopt, 120);
    FieldValidator(r.tag()).validateURLs();
    EXPECT_EQ(r.lines(), tagLine(100, "'WXXX' (User Defined URL) [raw] invalid URL"));
}

TEST(FieldValidatorLists, SameDescriptionAndLanguageAreDuplicatesOnlyWithLogDups) {
    auto fill = [](Record& r) {
        r.entry(field::Comments, "COMM", "one", "note", "eng", 20);
        r.entry(field::Comments, "COMM", "two\n\x01", "note", "eng", 40);  // newlines are not flagged here
        r.entry(field::Comments, "COMM", "three", "note", "en", 60);
    };
    Record on(Options{{"LogDups", "1"}});
    fill(on);
    EXPECT_EQ(on.validate(),
              tagLine(40, "'COMM' (Comments) [note] value contains control characters") +
                  tagLine(60, "'COMM' (Comments) [note] Invalid language field") +
                  tagLine(0, "'COMM' (Comments) has more than one item with the same description"));
    Record off;
    fill(off);
    EXPECT_EQ(off.validate(), tagLine(40, "'COMM' (Comments) [note] value contains control characters") +
                                  tagLine(60, "'COMM' (Comments) [note] Invalid language field"));
}

TEST(FieldValidatorLists, KeysFollowEachFieldsParts) {
    Record r(Options{{"LogDups", "1"}});
    // Terms of use: language and text count, the description does not.
    r.entry(field::TermsOfUse, "USER", "same", "a", "eng", 1);
    r.entry(field::TermsOfUse, "USER", "same", "b", "eng", 2);
    // Web pages: the text alone; newlines are flagged.
    r.entry(field::CommercialInfoURL, "WCOM", "http://x/\n", std::nullopt, std::nullopt, 3);
    r.entry(field::CommercialInfoURL, "WCOM", "http://y/", std::nullopt, std::nullopt, 4);
    // Missing and empty descriptions are the same key; a lone language is absent.
    r.entry(field::UserDefinedText, "TXXX", "v\x01", "", std::nullopt, 5);
    r.entry(field::UserDefinedText, "TXXX", "w", std::nullopt, std::nullopt, 6);
    // Unhandled items are never compared.
    r.entry(field::Unhandled, "XXXX", "same", "d", std::nullopt, 7);
    r.entry(field::Unhandled, "XXXX", "same", "d", std::nullopt, 8);
    // A single entry is not examined at all.
    r.entry(field::Lyrics, "USLT", "dirty\x01", "d", "xx", 9);
    EXPECT_EQ(r.validate(),
              tagLine(0, "'USER' (Terms of Use) has more than one item with the same description") +
                  tagLine(3, "'WCOM' (Commercial Information Webpage) value contains newline characters") +
                  tagLine(5, "'TXXX' (User Defined Text Info) [] value contains control characters") +
                  tagLine(0,
                          "'TXXX' (User Defined Text Info) has more than one item with the same "
                          "description"));
}

TEST(FieldValidatorLists, MPEG4OptionSilencesOnlyUserTextFromMPEG4) {
    for (const bool fromMPEG4 : {true, false}) {
        Record r(Options{{"LogDups", "1"}, {"MPEG4_MulAtoms", "1"}});
        r.entry(field::UserDefinedText, "----", "a", "iTunNORM", std::nullopt, 10);
        r.entry(field::UserDefinedText, "----", "b", "iTunNORM", std::nullopt, 20);
        r.entry(field::Artwork, "covr", std::nullopt, std::nullopt, std::nullopt, 30);
        r.entry(field::Artwork, "covr", std::nullopt, std::nullopt, std::nullopt, 40);
        std::string expected;
        if (!fromMPEG4)
            expected += tagLine(
                0, "'----' (User Defined Text Info) has more than one item with the same description");
        expected += tagLine(0, "'covr' (Artwork) has more than one item with the same description");
        EXPECT_EQ(r.validate(fromMPEG4), expected) << fromMPEG4;
    }
}

}  // namespace
}  // namespace sondrel
