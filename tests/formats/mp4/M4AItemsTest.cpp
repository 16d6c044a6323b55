// Item-list decoding: which items are stored where, the qualifiers and
// minimum lengths per decoder, reverse-DNS items and artwork.
#include "formats/mp4/M4AItems.h"

#include <gtest/gtest.h>

#include "tests/formats/mp4/M4ATestSupport.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::mp4;

const std::string kNam = "\251nam";
const std::string kGen = "\251gen";

TEST(M4AItems, TextItemsAreStoredWithTheirTypeAndOffset) {
    Bytes file = m4aFile({textItem(kNam, "Song"), textItem("\251ART", "Band"), textItem(kNam, "Again"),
                          textItem("\251cmt", "not stored"), textItem("xid ", "never stored"),
                          textItem("apID", "someone@example.com")});
    Checked c = check(file, {{"MPEG4_MulAtoms", "1"}});
    EXPECT_EQ(c.log, "");
    const TagItem* title = c.tag->item(field::Title);
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->value, "Song");
    EXPECT_EQ(title->fourCC, fourcc("\251nam"));
    EXPECT_EQ(title->offset, offsetOf(file, kNam));
    EXPECT_EQ(title->count, 2u);
    EXPECT_EQ(c.tag->item(field::Comments), nullptr);
    EXPECT_EQ(c.tag->item(field::Owner)->value, "someone@example.com");
    EXPECT_EQ(c.tag->values().size(), 3u);
}

TEST(M4AItems, EachDecoderAcceptsOnlyItsQualifiers) {
    // Accepted: genre text as 18, podcast URL as 0, flags and numbers as 21.
    Bytes good = m4aFile({textItem(kGen, "Rock", 18), textItem("purl", "http://example.com/feed", 0),
                          box("cpil", {data(21, {1})}), box("tmpo", {data(21, {0, 120})}),
                          box("trkn", {data(0, Bytes(8, 0))}), box("sfID", {data(21, {0, 0, 0, 1})}),
                          box("stik", {data(21, {1})}), box("tves", {data(0, {0, 0, 0, 1})})});
    Checked c = check(good);
    EXPECT_EQ(c.log, "");
    EXPECT_EQ(c.tag->item(field::Genre)->value, "Rock");

    Bytes bad = m4aFile({textItem(kNam, "Rock", 18), textItem("desc", "x", 0), box("cpil", {data(1, {1})}),
                         box("trkn", {data(21, Bytes(8, 0))}), box("stik", {data(1, {1})}),
                         box("gnre", {data(1, {0, 1})})});
    EXPECT_EQ(check(bad).log,
              line(offsetOf(bad, kNam), "Container", "'\xC2\xA9nam' atom has invalid 'data' qualifier") +
                  line(offsetOf(bad, "desc"), "Container", "'desc' atom has invalid 'data' qualifier") +
                  line(offsetOf(bad, "cpil"), "Container", "'cpil' atom has invalid 'data' qualifier") +
                  line(offsetOf(bad, "trkn"), "Container", "'trkn' atom has invalid 'data' qualifier") +
                  line(offsetOf(bad, "stik"), "Container", "Invalid qualifier for 'stik' atom") +
                  line(offsetOf(bad, "gnre"), "Container", "'gnre' atom has invalid 'data' qualifier"));
}

TEST(M4AItems, TextMustBeUTF8) {
    Bytes file = m4aFile({box(kNam, {data(1, {'a', 0xC3, 0x28})})});
    Checked c = check(file);
    EXPECT_EQ(c.log, line(offsetOf(file, kNam), "Container",
                          "'\xC2\xA9nam' atom 'data' contents cannot be converted to UTF8"));
    EXPECT_EQ(c.tag->item(field::Title), nullptr);
}

TEST(M4AItems, SeveralDataChildrenAreRefusedUnlessTextMayUseTheFirst) {
    Bytes file = m4aFile({box(kNam, {data(1, text("First")), data(1, text("Second"))}),
                          box("tmpo", {data(21, {0, 1}), data(21, {0, 2})})});
    const std::string tmpo =
        line(offsetOf(file, "tmpo"), "Container", "'tmpo' atom has invalid number of children");
    EXPECT_EQ(check(file).log,
              line(offsetOf(file, kNam), "Container", "'\xC2\xA9nam' atom has too many children") + tmpo);

    Checked c = check(file, {{"MPEG4_MulData", "1"}});
    EXPECT_EQ(c.log, tmpo);
    EXPECT_EQ(c.tag->item(field::Title)->value, "First");
}

Bytes rdns(std::initializer_list<Bytes> children) {
    return box("----", children);
}
Bytes mean(std::string_view m = "com.apple.iTunes") {
    return fullBox("mean", text(m));
}
Bytes name(std::string_view n) {
    return fullBox("name", text(n));
}

TEST(M4AItems, ReverseDNSItemsNeedOneMeanOneNameAndData) {
    Bytes file =
        m4aFile({rdns({mean(), name("MOOD"), data(1, text("calm")), data(1, text("happy"))}),
                 rdns({mean(), data(1, text("x"))}), rdns({name("A"), name("B"), mean(), data(1, {})})});
    const uint64_t first = offsetOf(file, "----", 0), second = offsetOf(file, "----", 1),
                   third = offsetOf(file, "----", 2);
    const std::string malformed = line(second, "Container", "---- (com.apple.iTunes) has format errors") +
                                  line(third, "Container", "---- (A) (com.apple.iTunes) has format errors");
    EXPECT_EQ(check(file).log,
              line(first, "Container", "---- (MOOD) (com.apple.iTunes) has multiple data atoms") + malformed);

    // With several data atoms allowed, the last value wins, and the item is
    // stored under the "----" header at the "----" offset.
    Checked c = check(file, {{"MPEG4_MulData", "1"}});
    EXPECT_EQ(c.log, malformed);
    const TagItem* mood = c.tag->item(32);
    ASSERT_NE(mood, nullptr);
    EXPECT_EQ(mood->value, "happy");
    EXPECT_EQ(mood->fourCC, fourcc("----"));
    EXPECT_EQ(mood->offset, first);
}

TEST(M4AItems, ReverseDNSNamesChooseFieldOrUserTextOrNothing) {
    Bytes file =
        m4aFile({rdnsItem("LABEL", "Records Inc"), rdnsItem("My Note", "kept"),
                 rdnsItem("Home Url", "dropped by name"), rdnsItem("Link", "http://dropped.example"),
                 rdnsItem("COMMENT", "list field, dropped"), rdnsItem("ArtworkDescriptor", "dropped"),
                 rdnsItem("Foreign", "dropped", "org.example"),
                 rdnsItem("Shouting", "kept too", "COM.APPLE.ITUNES")});
    Checked c = check(file);
    EXPECT_EQ(c.log, "");
    EXPECT_EQ(c.tag->item(field::Label)->value, "Records Inc");
    EXPECT_EQ(c.tag->item(field::Label)->offset, offsetOf(file, "----", 0));
    EXPECT_EQ(c.tag->item(field::Comments), nullptr);
    const TagItem* user = c.tag->item(field::UserDefinedText);
    ASSERT_NE(user, nullptr);
    ASSERT_TRUE(user->items);
    ASSERT_EQ(user->items->size(), 2u);
    const TagItem& note = (*user->items)[0];
    EXPECT_EQ(note.desc, "My Note");
    EXPECT_EQ(note.value, "kept");
    EXPECT_EQ(note.fourCC, fourcc("----"));
    EXPECT_EQ(note.offset, offsetOf(file, "----", 1));
    EXPECT_EQ((*user->items)[1].desc, "Shouting");
}

TEST(M4AItems, ArtworkChildrenAreFramedAndHandedToTheImageCheck) {
    // Qualifier 27 (BMP) is passed on as a bare "image/": nothing is logged
    // for the picture itself.
    Bytes picture(40, 0x42);
    Bytes good = m4aFile({box("covr", {data(27, picture), data(13, {0xFF, 0xD8, 0xFF}), data(14, {0x89})})});
    EXPECT_EQ(check(good).log, "");

    Bytes bad = m4aFile(
        {box("covr", {atom("data", Bytes(7, 0)), data(13, picture), atom("free", {}), data(13, picture)})});
    const uint64_t covr = offsetOf(bad, "covr");
    EXPECT_EQ(check(bad).log, line(covr, "Container", "Insufficient data in 'covr' atom item") +
                                  line(covr, "Container", "'covr' item missing 'data' atom"));
}

TEST(M4AItems, ArtworkWithoutRoomForItsQualifierIsAReadError) {
    // A 64-bit "data" child of 16 bytes has no room for its qualifier and
    // locale: at the end of the file they cannot be read, and elsewhere the
    // picture would have a negative length. Either way the item list stops.
    auto withItems = [](const std::vector<Bytes>& items) {
        return concat({ftyp(), atom("mdat", Bytes(8, 0)), box("moov", {trak("soun"), udta(items)})});
    };
    Bytes atEnd = withItems({box("covr", {atom64("data", {})})});
    EXPECT_EQ(check(atEnd).log, line(offsetOf(atEnd, "data"), "File", "Read error"));

    Bytes inside = withItems({box("covr", {atom64("data", {})}), textItem("\251nam", "x")});
    Checked c = check(inside);
    EXPECT_EQ(c.log, line(offsetOf(inside, "data"), "File", "Read error"));
    EXPECT_EQ(c.tag->item(field::Title), nullptr);
}

TEST(M4AItems, DataShorterThanTheDecoderMinimumIsLogged) {
    Bytes file = m4aFile({box("disk", {data(0, Bytes(5, 0))}), box("sfID", {data(0, {0, 0, 0})}),
                          box("pgap", {atom("data", {})}), box("soal", {atom("mean", Bytes(8, 0))})});
    EXPECT_EQ(check(file).log,
              line(offsetOf(file, "disk") + 8, "Container", "Insufficient data in 'data' atom") +
                  line(offsetOf(file, "sfID") + 8, "Container", "Insufficient data in 'data' atom") +
                  line(offsetOf(file, "pgap") + 8, "Container", "Insufficient data in 'data' atom") +
                  line(offsetOf(file, "soal") + 8, "Container", "Missing 'data' atom"));
}

}  // namespace
}  // namespace sondrel
