// Frame set-up (identifier mapping, flags) and the frame decoders: problem
// lines and the items they store.
#include "formats/id3/ID3Frame.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/fixtures/ID3Builder.h"
#include "tests/formats/id3/ID3ReaderHarness.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace testing;
using namespace std::string_view_literals;

// The first frame of a tag at file offset 0 stands at 10: one line per reason.
template <typename... Reasons>
std::string at10(std::string_view id, const Reasons&... reasons) {
    return (fmt::format("    {:012}  Framing: ID3 '{}' frame: {}\n", 10, id, reasons) + ...);
}

// A little padding lets the last frame have an empty body (the walk wants a
// frame header and one more byte before the tag's end).
ReadResult inTag(int version, std::initializer_list<Bytes> frames) {
    return readTag(concat({id3Tag(version, concat(frames), 0, 4), mpegAudio()}));
}

// One frame alone in a tag of `version`, and the whole log it gives.
struct LogCase {
    int version;
    Bytes frame;
    std::string log;
};
void expectLogs(std::initializer_list<LogCase> cases) {
    int row = 0;
    for (const LogCase& c : cases) {
        SCOPED_TRACE(row++);
        EXPECT_EQ(inTag(c.version, {c.frame}).log, c.log);
    }
}

Bytes body(std::string_view text) {
    return ByteBuilder().str(text).take();
}

const TagItem* entry(const ReadResult& r, int64_t index, size_t i = 0) {
    const TagItem* list = r.item(index);
    if (!list || !list->items || list->items->size() <= i) return nullptr;
    return &(*list->items)[i];
}

// An item as "description|language|value", "-" for each part it lacks.
std::string shown(const TagItem* i) {
    if (!i) return "no item";
    auto part = [](const std::optional<std::string>& p) { return p.value_or("-"); };
    return part(i->desc) + "|" + part(i->lang) + "|" + part(i->value);
}

// The values of these fields, each after a "|" ("-" for no value, "none"
// for no item).
std::string values(const ReadResult& r, std::initializer_list<int64_t> fields) {
    std::string out;
    for (int64_t f : fields) out += "|" + (r.item(f) ? r.item(f)->value.value_or("-") : "none");
    return out;
}

const std::string kUnterminated = "text string not properly terminated";
const std::string kTrailingNil = "text string contains redundant trailing nil(s)";

TEST(ID3FrameSetup, IdentifiersFlagsAndDataLength) {
    expectLogs({
        {2, id3Frame("CRM", id3Text("x"), 2), at10(" CRM", "Dropped ID3 v2.2 frame")},
        {3, id3Frame("TDAT", id3Text("0101")), at10("TDAT", "Dropped ID3 v2.3 frame")},
        {3, id3Frame("TiT2", id3Text("x")), at10("TiT2", "Invalid ID3 frame type")},
        // A group byte alone: one line, no second one for the empty rest.
        {4, id3Frame("TIT2", {7}, 4, 0x0040), at10("TIT2", "Insufficient data for ID3 frame")},
        {4, id3Frame("TIT2", {0, 0, 0, 5}, 4, 0x0001), at10("TIT2", "Insufficient data for ID3 frame")},
        {3, id3Frame("TIT2", id3Text("x"), 3, 0x0080), at10("TIT2", "frame is compressed or encrypted")},
        {4, id3Frame("TIT2", id3Text("x"), 4, 0x0004), at10("TIT2", "frame is compressed or encrypted")},
    });

    auto r = inTag(2, {id3Frame("TT2", id3Text("Song"), 2), id3Frame("TYE", id3Text("2021"), 2)});
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(values(r, {field::Title, field::Year}), "|Song|2021");
    EXPECT_EQ(std::tuple(r.item(field::Title)->fourCC, r.item(field::Year)->offset),
              std::tuple(fourcc("TIT2"), 21u));
    EXPECT_EQ(inTag(3, {id3Frame("TYER", id3Text("2021"))}).item(field::Year)->fourCC, fourcc("TDRC"));
    EXPECT_EQ(values(inTag(3, {id3Frame("TiT2", id3Text("x"))}), {field::Unhandled}), "|-");
    // Group byte and data length are skipped before the text.
    auto flagged = inTag(4, {id3Frame("TIT2", concat({{9, 0, 0, 0, 2}, id3Text("x")}), 4, 0x0041)});
    EXPECT_EQ(flagged.log + values(flagged, {field::Title}), "|x");
}

TEST(ID3TextFrames, NilsEncodingsTerminatorsCommentsAndLyrics) {
    expectLogs({
        {4, id3Frame("TXXX", id3Text("d\0a\0b\0"sv), 4), at10("TXXX", kTrailingNil)},
        {4, id3Frame("TIPL", id3Text("a\0b\0"sv), 4), ""},
        {3, id3Frame("TXXX", id3Text("desc")), at10("TXXX", kUnterminated, "missing Description field")},
        {4, id3Frame("TIT2", {3, 'a', 0xC3}, 4), at10("TIT2", "Malformed text string")},
        // UTF-16 needs its terminator on a 2-byte boundary.
        {3, id3Frame("TXXX", {1, 0xFF, 0xFE, 'd', 0, 0, 'x', 0}),
         at10("TXXX", kUnterminated, "missing Description field")},
        {3, id3Frame("TXXX", {1, 0xFF, 0xFE, 'd', 0, 0, 0}), ""},  // the terminator ends the frame
        {3, id3Frame("COMM", body("\0en"sv)), at10("COMM", "insufficient data for frame")},
        {3, id3Frame("COMM", body("\0eng"sv)), at10("COMM", kUnterminated, "missing description field")},
        {3, id3Frame("USLT", body("\0engwords"sv)), at10("USLT", kUnterminated, "missing description field")},
        {3, id3Frame("COMM", body("\0eng\0a\0b"sv)), at10("COMM", "text string contains redundant nil(s)")},
        {4, id3Frame("TCON", id3Text("17\0"sv), 4), at10("TCON", kTrailingNil)},
    });

    auto r = inTag(
        4, {id3Frame("TXXX", id3Text("d\0a\0b\0"sv), 4), id3Frame("TIPL", id3Text("a\0b\0"sv), 4),
            id3Frame("WOAF", body("http://x.org\0junk"sv), 4), id3Frame("TPE1", {1, 0xFF, 0xFE, 'A', 0}, 4),
            id3Frame("TALB", {2, 0, 'A', 0, 'B'}, 4), id3Frame("TXYZ", id3Text("?"), 4)});
    EXPECT_EQ(shown(entry(r, field::UserDefinedText)), "d|-|a\u00B7\u00B7\u00B7b");
    EXPECT_EQ(values(r, {44, field::OfficialAudioFileURL, field::Artist, field::Album}),
              "|a\u00B7\u00B7\u00B7b\u00B7\u00B7\u00B7|http://x.org|A|AB");
    EXPECT_EQ(r.item(field::Unhandled)->fourCC, fourcc("TXYZ"));

    auto c = inTag(3, {id3Frame("COMM", body("\0eng \tnote\r\0hello"sv)),
                       id3Frame("USER", body("\0engterms"sv)), id3Frame("WCOM", body("http://shop"sv))});
    EXPECT_EQ(c.log, "");
    EXPECT_EQ(shown(entry(c, field::Comments)), "note|eng|hello");
    // Terms of use and the commercial URL have no description at all.
    EXPECT_EQ(shown(entry(c, field::TermsOfUse)), "-|eng|terms");
    EXPECT_EQ(shown(entry(c, field::CommercialInfoURL)), "-|-|http://shop");
}

TEST(ID3Genre, NumericReferencesAndText) {
    const std::pair<const char*, const char*> cases[] = {
        {"(17)", "#"},     {"9", "#"},           {"(0)", "#"},       {"17", "#"},     {"(17)Rock", "#"},
        {"(17)x(3)", "#"}, {"17Rock", "17Rock"}, {"(148)", "(148)"}, {"148", "148"},  {"Rock", "Rock"},
        {"(RX)", "Remix"}, {"(CR)Pop", "Cover"}, {"RX", "Remix"},    {"CR", "Cover"}, {"RXX", "RXX"},
        {"(17", "(17"},    {"()", "()"},         {"", ""},
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(id3::genreValue(in), out) << in;
    EXPECT_EQ(inTag(4, {id3Frame("TCON", id3Text("(12)\0"sv), 4)}).item(field::Genre)->value, "#");
}

TEST(ID3Pictures, MimeTypeAndLayoutRules) {
    auto apic = [](std::string_view mime, uint8_t type, const Bytes& image) {
        return id3Frame("APIC",
                        concat({ByteBuilder().u8(0).str(mime).u8(0).u8(type).str("d").u8(0).take(), image}));
    };
    const Bytes jpeg{0xFF, 0xD8, 0xFF, 0xE0};
    const Bytes png{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0};
    const Bytes gif = body("GIF89a");
    const std::string a = "APIC";
    expectLogs({
        {3, apic("image/jpeg", 3, jpeg), ""},
        {3, apic("image/png", 3, gif), ""},
        {3, apic("image/jpg", 3, png),
         at10(a, "artwork mime type entered as image/jpg (should be image/jpeg)")},
        {3, apic("image/gif", 3, jpeg), at10(a, "artwork mime type incorrect for jpeg data")},
        {3, apic("image/gif", 3, png),
         at10(a, "artwork mime type incorrect for png data", "artwork not jpeg or png")},
        {3, apic("", 3, gif), at10(a, "artwork not jpeg or png")},
        {3, apic("-->", 3, gif), at10(a, "artwork contains external --> reference")},
        {3, apic("image/jpeg", 21, jpeg), at10(a, "artwork contains an invalid picture code")},
        {3, apic("image/jpeg", 3, {}), at10(a, "artwork overflows frame")},
        {3, id3Frame("APIC", {0}), at10(a, "artwork frame overflows")},
        {3, id3Frame("APIC", body("\0image/png\0"sv)), at10(a, "artwork overflows frame")},
        // v2.2 names the image format with three letters.
        {2, id3Frame("PIC", concat({body("\0PNG\3d\0"sv), gif}), 2), ""},
        {2, id3Frame("PIC", concat({body("\0GIF\3d\0"sv), gif}), 2), at10(a, "artwork not jpeg or png")},
    });

    auto r = inTag(3, {apic("image/jpeg", 3, jpeg), apic("image/jpeg", 4, jpeg)});
    EXPECT_EQ(shown(entry(r, field::Artwork, 0)), "3-d|-|-");
    EXPECT_EQ(shown(entry(r, field::Artwork, 1)), "4-d|-|-");
}

TEST(ID3Ownership, PurchaseDateAndSeller) {
    auto owne = [](std::string_view date, const Bytes& seller = body("Shop")) {
        return id3Frame("OWNE", concat({body("\0$1\0"sv), body(date), seller}), 4);
    };
    const std::string o = "OWNE";
    expectLogs({
        {4, owne("20211301"), ""},
        {4, owne("10000101"), ""},  // years 1000 to 9999
        {4, owne("99991231"), ""},
        {4, owne("20211301", {}), ""},  // no seller: the date ends the frame
        {4, owne(" 2021123"), at10(o, "invalid purchase date field")},
        {4, id3Frame("OWNE", body("\0$1"sv), 4), at10(o, kUnterminated, "missing price field")},
        {4, id3Frame("OWNE", concat({body("\3$1\0"sv), body("20210101"), {0xC3}}), 4),
         at10(o, "Malformed text string", "invalid seller field")},
    });

    auto r = inTag(4, {owne("20210101")});
    EXPECT_EQ(values(r, {field::PricePaid, field::PurchaseDate, field::Seller}), "|$1|1|Shop");
    EXPECT_EQ(values(inTag(4, {owne("        ", {})}), {field::PurchaseDate, field::Seller}), "|none|none");
}

TEST(ID3OtherFrames, NamedBinaryFrames) {
    const std::string missing = "missing description field";
    expectLogs({
        {4, id3Frame("PRIV", body("owner"), 4), at10("PRIV", kUnterminated, missing)},
        {4, id3Frame("UFID", body("owner"), 4), at10("UFID", kUnterminated, missing)},
        {4, id3Frame("POPM", body("owner"), 4), at10("POPM", kUnterminated, missing)},
        {4, id3Frame("RVA2", body("owner"), 4), at10("RVA2", kUnterminated, missing)},
        {4, id3Frame("EQU2", body("\0eq"sv), 4), at10("EQU2", kUnterminated, missing)},
        {3, id3Frame("GEOB", body("\0mime"sv)), at10("GEOB", kUnterminated, "missing mime type field")},
        {3, id3Frame("GEOB", body("\0mime\0file"sv)), at10("GEOB", kUnterminated, "missing filename field")},
        {3, id3Frame("GEOB", body("\0mime\0file\0desc"sv)), at10("GEOB", kUnterminated, missing)},
    });

    auto r = inTag(4, {id3Frame("PRIV", body("me\0data"sv), 4), id3Frame("EQU2", body("\1eq\0"sv), 4),
                       id3Frame("GEOB", body("\0m\0f\0d\0obj"sv), 4), id3Frame("PCNT", {0, 0, 0, 9}, 4),
                       id3Frame("POPM", body("a@b\0\1"sv), 4)});
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(entry(r, field::Private)->desc, "me");
    EXPECT_EQ(entry(r, field::Equalization)->desc, "eq");
    EXPECT_EQ(entry(r, field::GeneralObject)->desc, "d");
    EXPECT_EQ(entry(r, field::Rating)->desc, "a@b");
    EXPECT_EQ(values(r, {field::PlayCount}), "|1");
}

}  // namespace
}  // namespace sondrel
