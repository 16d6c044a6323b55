// Item-list decoding: which items are stored where, the qualifiers and
// minimum lengths per decoder, reverse-DNS items and artwork.
#include "formats/mp4/M4AItems.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/formats/mp4/M4ATestSupport.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::mp4;

const std::string kNam = "\251nam";

Bytes rdns(std::initializer_list<Bytes> children) {
    return box("----", children);
}
Bytes mean() {
    return fullBox("mean", text("com.apple.iTunes"));
}
Bytes name(std::string_view n) {
    return fullBox("name", text(n));
}
// Items placed after the media data, so that the list ends the file.
Bytes afterMdat(const std::vector<Bytes>& items) {
    return concat({ftyp(), atom("mdat", Bytes(8, 0)), box("moov", {trak("soun"), udta(items)})});
}
std::string container(const Bytes& file, std::string_view type, const std::string& message, size_t nth = 0) {
    return line(offsetOf(file, type, nth), "Container", message);
}

TEST(M4AItems, DecoderFaults) {
    const Bytes bad = m4aFile({textItem(kNam, "Rock", 18), textItem("desc", "x", 0),
                               box("cpil", {data(1, {1})}), box("trkn", {data(21, Bytes(8, 0))}),
                               box("stik", {data(1, {1})}), box("gnre", {data(1, {0, 1})})});
    const std::string qualifier = " atom has invalid 'data' qualifier";
    const Bytes notUTF8 = m4aFile({box(kNam, {data(1, {'a', 0xC3, 0x28})})});
    const Bytes several = m4aFile({box(kNam, {data(1, text("First")), data(1, text("Second"))}),
                                   box("tmpo", {data(21, {0, 1}), data(21, {0, 2})})});
    const Bytes rdnsFile =
        m4aFile({rdns({mean(), name("MOOD"), data(1, text("calm")), data(1, text("happy"))}),
                 rdns({mean(), data(1, text("x"))}), rdns({name("A"), name("B"), mean(), data(1, {})}),
                 rdns({mean(), name(""), data(1, text("x"))})});
    const Bytes picture(40, 0x42);
    const Bytes covers = m4aFile(
        {box("covr", {atom("data", Bytes(7, 0)), data(13, picture), atom("free", {}), data(13, picture)})});
    // A 64-bit "data" child of 16 bytes has no room for its qualifier and
    // locale: at the end of the file they cannot be read, and elsewhere the
    // picture would have a negative length. Either way the item list stops.
    const Bytes coverAtEnd = afterMdat({box("covr", {atom64("data", {})})});
    const Bytes coverInside = afterMdat({box("covr", {atom64("data", {})}), textItem(kNam, "x")});
    const std::vector<LogCase> cases = {
        {"refused qualifiers", bad,
         container(bad, kNam, "'\xC2\xA9nam'" + qualifier) + container(bad, "desc", "'desc'" + qualifier) +
             container(bad, "cpil", "'cpil'" + qualifier) + container(bad, "trkn", "'trkn'" + qualifier) +
             container(bad, "stik", "Invalid qualifier for 'stik' atom") +
             container(bad, "gnre", "'gnre'" + qualifier)},
        {"text not UTF-8", notUTF8,
         container(notUTF8, kNam, "'\xC2\xA9nam' atom 'data' contents cannot be converted to UTF8")},
        {"several data children", several,
         container(several, kNam, "'\xC2\xA9nam' atom has too many children") +
             container(several, "tmpo", "'tmpo' atom has invalid number of children")},
        // Reverse-DNS items need one mean, one name and data.
        {"reverse DNS", rdnsFile,
         container(rdnsFile, "----", "---- (MOOD) (com.apple.iTunes) has multiple data atoms") +
             container(rdnsFile, "----", "---- (com.apple.iTunes) has format errors", 1) +
             container(rdnsFile, "----", "---- (A) (com.apple.iTunes) has format errors", 2)},
        // Qualifier 27 (BMP) is passed on as a bare "image/": nothing is logged.
        {"artwork",
         m4aFile({box("covr", {data(27, picture), data(13, {0xFF, 0xD8, 0xFF}), data(14, {0x89})})}), ""},
        {"artwork framing", covers,
         container(covers, "covr", "Insufficient data in 'covr' atom item") +
             container(covers, "covr", "'covr' item missing 'data' atom")},
        {"artwork header at the end", coverAtEnd, line(offsetOf(coverAtEnd, "data"), "File", "Read error")},
        {"artwork header inside", coverInside, line(offsetOf(coverInside, "data"), "File", "Read error")},
    };
    expectLogs("a.m4a", cases);
    EXPECT_EQ(check(notUTF8).tag->item(field::Title), nullptr);
    EXPECT_EQ(check(coverInside).tag->item(field::Title), nullptr);

    // Text may use the first of several data atoms; a reverse-DNS item the
    // last, stored under the "----" header at the "----" offset.
    Checked multi = check(several, {{"MPEG4_MulData", "1"}});
    EXPECT_EQ(multi.log, container(several, "tmpo", "'tmpo' atom has invalid number of children"));
    EXPECT_EQ(multi.tag->item(field::Title)->value, "First");
    Checked mood = check(rdnsFile, {{"MPEG4_MulData", "1"}});
    EXPECT_EQ(mood.log, container(rdnsFile, "----", "---- (com.apple.iTunes) has format errors", 1) +
                            container(rdnsFile, "----", "---- (A) (com.apple.iTunes) has format errors", 2));
    const TagItem* item = mood.tag->item(32);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(std::tuple(item->value, item->fourCC, item->offset),
              std::tuple("happy", fourcc("----"), offsetOf(rdnsFile, "----")));
}

TEST(M4AItems, ReverseDNSNamesChooseFieldOrUserTextOrNothing) {
    Bytes file =
        m4aFile({rdnsItem("LABEL", "Records Inc"), rdnsItem("My Note", "kept"),
                 rdnsItem("Home Url", "dropped by name"), rdnsItem("Link", "http://dropped.example"),
                 rdnsItem("COMMENT", "list field, dropped"), rdnsItem("ArtworkDescriptor", "dropped"),
                 rdnsItem("Foreign", "dropped", "org.example"),
                 rdnsItem("Shouting", "kept too", "COM.APPLE.ITUNES")});
    Checked c = check(file);
    const TagItem *label = c.tag->item(field::Label), *user = c.tag->item(field::UserDefinedText);
    ASSERT_TRUE(label && user && user->items && user->items->size() == 2u);
    EXPECT_EQ(std::tuple(c.log, label->value, label->offset, c.tag->item(field::Comments)),
              std::tuple("", "Records Inc", offsetOf(file, "----", 0), nullptr));
    const TagItem &note = (*user->items)[0], &shouting = (*user->items)[1];
    EXPECT_EQ(std::tuple(note.desc, note.value, note.offset, shouting.desc),
              std::tuple("My Note", "kept", offsetOf(file, "----", 1), "Shouting"));
}

}  // namespace
}  // namespace sondrel
