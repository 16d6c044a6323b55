// Monkey's Audio checker: stream header search and layouts, the ID3v1 probe,
// the APE tag footer and header rules, and the item walk.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::apeItem;
using fixtures::apeTag;
using fixtures::ApeTagSpec;
using fixtures::ByteBuilder;
using fixtures::concat;
using fixtures::macHeaderNew;
using fixtures::macHeaderOld;
using fixtures::problemsFor;

std::string line(uint64_t offset, const char* category, const std::string& message) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "    %012llu  ", static_cast<unsigned long long>(offset));
    return buf + std::string(category) + ": " + message + "\n";
}

Bytes truncated(Bytes b, size_t n) {
    b.resize(n);
    return b;
}

// A file of 41 bytes is too small for the marker and tag steps; the stream
// header is still read, and the new layout's 68-byte read fails.
TEST(ApeTag, FileSizeBoundaryAt42Bytes) {
    const Bytes header = macHeaderNew();
    EXPECT_EQ(problemsFor("x.ape", truncated(header, 41)),
              line(0, "File", "Invalid file size for APE file") + line(0, "File", "Read error") +
                  line(0, "File", "Cannot extract file properties"));
    EXPECT_EQ(problemsFor("x.ape", truncated(header, 42)),
              line(0, "File", "Read error") + line(0, "File", "Cannot extract file properties"));
    EXPECT_EQ(problemsFor("x.ape", Bytes{'M', 'A', 'C'}),
              line(0, "File", "Invalid file size for APE file") + line(0, "File", "Read error"));
}

TEST(ApeTag, BothHeaderLayoutsWithAnApeV2TagAreClean) {
    const Bytes tag =
        apeTag(ApeTagSpec().items({apeItem("Title", "Song"), apeItem("Artist", "Bj\xc3\xb6rk")}));
    const Bytes headed =
        apeTag(ApeTagSpec().items({apeItem("Title", "Song")}).headerFlag(true).writeHeader(true));
    for (const Bytes& stream :
         {macHeaderOld(3970), macHeaderOld(3950), macHeaderNew(3980), macHeaderNew(3990)}) {
        Bytes audio = concat({stream, Bytes(500, 0x55)});
        EXPECT_EQ(problemsFor("x.ape", concat({audio, tag})), "");
        EXPECT_EQ(problemsFor("x.ape", concat({audio, headed})), "");
        EXPECT_EQ(problemsFor("x.ape", audio), "");
    }
}

TEST(ApeTag, StreamHeaderLayouts) {
    // Old layout without the WAVE header: reported, but the header counts as read.
    EXPECT_EQ(problemsFor("x.ape", concat({macHeaderOld(3979, false), Bytes(100, 0)})),
              line(0, "File", "Cannot determine audio properties"));
    // Old layout cut inside the WAVE header.
    EXPECT_EQ(problemsFor("x.ape", truncated(concat({macHeaderOld(3970)}), 60)),
              line(0, "File", "Read error") + line(0, "File", "Cannot extract file properties"));
    // New layout: a descriptor length other than 52 is an absolute offset of
    // 24 more bytes, readable here ...
    EXPECT_EQ(problemsFor("x.ape", concat({macHeaderNew(3990, 100), Bytes(100, 0)})), "");
    // ... and past the end of this short file.
    EXPECT_EQ(problemsFor("x.ape", concat({macHeaderNew(3990, 170), Bytes(100, 0)})),
              line(0, "File", "Read error") + line(0, "File", "Cannot extract file properties"));
    // The offset does not count from the stream header (which starts at 100 here).
    EXPECT_EQ(problemsFor("x.ape", concat({Bytes(100, 0), macHeaderNew(3990, 170), Bytes(20, 0)})), "");
}

// The marker is searched for when the file does not start with it; the
// stream header offsets then count from where it was found.
TEST(ApeTag, MarkerFoundBySearchOrMissing) {
    const Bytes junk(10238, 0x11);  // puts the marker across the first 10240-byte block
    EXPECT_EQ(problemsFor("x.ape", concat({junk, macHeaderOld(3970, false), Bytes(50, 0)})),
              line(10238, "File", "Cannot determine audio properties"));
    EXPECT_EQ(problemsFor("x.ape", concat({Bytes(7, 'M'), macHeaderNew(),
                                           apeTag(ApeTagSpec().items({apeItem("", "x")}))})),
              line(7 + 80, "File", "Tag Item key is empty"));

    // No marker: the ID3v1 and tag steps are skipped; the stream header is
    // read at 0 (version 0 here, so the old layout).
    const Bytes noMarker =
        concat({Bytes(100, 0), apeTag(ApeTagSpec().items({apeItem("", "x")})), fixtures::id3v1Tag()});
    EXPECT_EQ(problemsFor("x.ape", noMarker), line(0, "File", "Missing 'MAC ' header") +
                                                  line(0, "File", "Cannot determine audio properties"));
}

// With an ID3v1 tag in the last 128 bytes the footer is looked for 160
// bytes from the end. The ID3v1 tag is noted whatever the settings say.
TEST(ApeTag, ID3v1MovesTheFooter) {
    const Bytes stream = concat({macHeaderNew(), Bytes(100, 0)});
    const Bytes tag = apeTag(ApeTagSpec().items({apeItem("Title", "x"), apeItem("", "y")}));
    const Bytes file = concat({stream, tag, fixtures::id3v1Tag()});
    const uint64_t v1 = file.size() - 128;
    const uint64_t secondItem = stream.size() + apeItem("Title", "x").size();
    EXPECT_EQ(problemsFor("x.ape", file),
              line(v1, "File", "Contains an ID3V1 tag") + line(secondItem, "File", "Tag Item key is empty"));
}

// Footer, header probe or item area before the start of the file.
TEST(ApeTag, TagReadsOutsideTheFileAreReadErrors) {
    const Bytes stream = macHeaderNew();
    // ID3v1 in a file shorter than 160 bytes: the footer offset wraps.
    const Bytes withV1 = concat({truncated(stream, 12), fixtures::id3v1Tag()});
    EXPECT_EQ(problemsFor("x.ape", withV1),
              line(withV1.size() - 128, "File", "Contains an ID3V1 tag") + line(0, "File", "Read error"));
    // An item area larger than the file.
    EXPECT_EQ(
        problemsFor("x.ape", concat({stream, apeTag(ApeTagSpec().items({apeItem("", "x")}).tagSize(1000))})),
        line(0, "File", "Read error"));
    // A tag size below 32 makes a negative item-area size.
    EXPECT_EQ(
        problemsFor("x.ape", concat({stream, apeTag(ApeTagSpec().items({apeItem("", "x")}).tagSize(8))})),
        line(0, "File", "Read error"));
    // The header probe 32 bytes before a footer that starts at 10.
    const Bytes tiny = concat({truncated(stream, 10), apeTag(ApeTagSpec().headerFlag(true))});
    EXPECT_EQ(problemsFor("x.ape", tiny), line(0, "File", "Read error") + line(0, "File", "Read error") +
                                              line(0, "File", "Cannot extract file properties"));
}

TEST(ApeTag, ItemKindsAndArtwork) {
    const Bytes stream = concat({macHeaderNew(), Bytes(20, 0)});
    const Bytes noPrefix = {0xFF, 0xD8, 0xFF, 0xE0, 'J', 'F', 'I', 'F'};
    const Bytes withPrefix = concat({Bytes{'a', '.', 'j', 'p', 'g', 0}, noPrefix});
    const Bytes cover = apeItem("Cover Art (front)", noPrefix, fixtures::kItemBinary);
    // APEv2: binary covers need the file-name prefix; the key match ignores case.
    const Bytes v2 = apeTag(ApeTagSpec().items(
        {cover, apeItem("artwork-BACK", noPrefix, fixtures::kItemBinary),
         apeItem("COVER ART (FRONT)", withPrefix, fixtures::kItemBinary),
         apeItem("Cover Art (back)", noPrefix, fixtures::kItemBinary),
         apeItem("Cover Art (front)", noPrefix, fixtures::kItemExternal),
         apeItem("Cover Art (front)", noPrefix, fixtures::kItemBinary | fixtures::kItemReadOnly),
         apeItem("Comment", Bytes{0xC3, 0x28, 0xFF})}));
    const uint64_t base = stream.size();
    EXPECT_EQ(problemsFor("x.ape", concat({stream, v2})),
              line(base, "Tag", "Artwork item is missing data prefix") +
                  line(base + cover.size(), "Tag", "Artwork item is missing data prefix"));
    // APEv1: flags are ignored, every value is text; the walk goes on to the next item.
    const Bytes v1 = apeTag(ApeTagSpec().version(fixtures::kApeV1).items({cover, apeItem("", "x")}));
    EXPECT_EQ(problemsFor("x.ape", concat({stream, v1})),
              line(base + cover.size(), "File", "Tag Item key is empty"));
}

TEST(ApeTag, ItemKeys) {
    const Bytes stream = concat({macHeaderNew(), Bytes(20, 0)});
    const uint64_t base = stream.size();
    const std::vector<Bytes> items = {apeItem("", "a"), apeItem("Caf\xe9", "b"), apeItem("\x01\x7f", "c"),
                                      apeItem("\tTitle", "d"), apeItem("", "e")};
    std::string expected;
    const char* messages[] = {"Tag Item key is empty", "Tag Item key is empty", "Tag Item key is invalid",
                              nullptr, "Tag Item key is empty"};
    uint64_t at = base;
    for (size_t i = 0; i < items.size(); ++i) {
        if (messages[i]) expected += line(at, "File", messages[i]);
        at += items[i].size();
    }
    EXPECT_EQ(problemsFor("x.ape", concat({stream, apeTag(ApeTagSpec().items(items))})), expected);
    // With a count of 0 nothing is examined.
    EXPECT_EQ(problemsFor("x.ape", concat({stream, apeTag(ApeTagSpec().items(items).count(0))})), "");
}

TEST(ApeTag, ItemAreaOverflows) {
    const Bytes stream = concat({macHeaderNew(), Bytes(20, 0)});
    const uint64_t base = stream.size();
    const Bytes title = apeItem("Title", "Song");
    auto check = [&](const Bytes& area, uint32_t count) {
        return problemsFor("x.ape", concat({stream, apeTag(ApeTagSpec().items({area}).count(count))}));
    };
    // A count larger than the items: ends quietly at the end of the area ...
    EXPECT_EQ(check(title, 5), "");
    // ... or with an overflow when fewer than 8 bytes remain.
    EXPECT_EQ(check(concat({title, Bytes(7, 0)}), 5),
              line(base + title.size(), "File", "Tag Item overflows"));
    // Trailing bytes after the counted items are not examined.
    EXPECT_EQ(check(concat({title, Bytes(7, 0)}), 1), "");
    // Value size beyond the area (measured from the flags field).
    EXPECT_EQ(check(ByteBuilder().le32(0xFFFFFFF0).le32(0).str("K").u8(0).take(), 1),
              line(base, "File", "Tag Item overflows"));
    EXPECT_EQ(check(ByteBuilder().le32(10).le32(0).str("ab").u8(0).zeros(5).take(), 1),
              line(base, "File", "Tag Item overflows"));
    // Keys that run to the end of the area, or start there.
    EXPECT_EQ(check(ByteBuilder().le32(0).le32(0).str("Title").take(), 1),
              line(base, "File", "Tag Item key name not terminated"));
    EXPECT_EQ(check(concat({title, ByteBuilder().le32(0).le32(0).take()}), 2),
              line(base + title.size(), "File", "Tag Item key name not terminated"));
}

// A leading ID3v2 tag that the reader refuses stops the marker search; the
// stream header is then read at 0 (the ID3 header's bytes 4-5 as a version).
TEST(ApeTag, RefusedLeadingID3v2Tag) {
    // Bytes 8-11 then read as a descriptor length of 52.
    const Bytes id3 = ByteBuilder().str("ID3").u8(3).u8(0).u8(0xFF).bytes({0, 0, 0x34, 0}).zeros(16).take();
    const Bytes file = concat({id3, macHeaderNew(), apeTag(ApeTagSpec().items({apeItem("", "x")}))});
    EXPECT_EQ(problemsFor("x.ape", file), line(0, "File", "Error extracting ID3v2 tag"));
    // Refused with the reader's own message; revision 1 and flags 0 read as version 1.
    Bytes v231 = file;
    v231[4] = 1;
    v231[5] = 0;
    EXPECT_EQ(problemsFor("x.ape", v231), line(0, "Framing", "Invalid ID3 version 2.3.1") +
                                              line(0, "File", "Error extracting ID3v2 tag") +
                                              line(0, "File", "Cannot determine audio properties"));
}

// An accepted tag is read into the record; the stream is searched for from
// the end of the tag, and the tag's own bytes are never taken for "MAC ".
TEST(ApeTag, AcceptedLeadingID3v2Tag) {
    const Bytes frame = ByteBuilder().str("TIT2").be32(9).be16(0).u8(0).str("MAC Song").take();
    const Bytes id3 = ByteBuilder()
                          .str("ID3")
                          .u8(3)
                          .u8(0)
                          .u8(0)
                          .synchsafe32(uint32_t(frame.size() + 20))
                          .bytes(frame)
                          .zeros(20)
                          .take();
    const Bytes junk(5, 0);
    const Bytes file = concat({id3, junk, macHeaderOld(3970, false), Bytes(100, 0),
                               apeTag(ApeTagSpec().items({apeItem("", "x")}))});
    const uint64_t mac = id3.size() + junk.size();
    const uint64_t items = mac + macHeaderOld(3970, false).size() + 100;
    EXPECT_EQ(problemsFor("x.ape", file), line(0, "File", "File contains an ID3v2 tag") +
                                              line(mac, "File", "Cannot determine audio properties") +
                                              line(items, "File", "Tag Item key is empty"));
}

}  // namespace
}  // namespace sondrel
