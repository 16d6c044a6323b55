// Monkey's Audio checker: stream header search and layouts, the ID3v1 probe,
// the APE tag footer and header rules, and the item walk.
#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/LogCases.h"

namespace sondrel {
namespace {

using namespace fixtures;

Bytes tagWith(std::vector<Bytes> items) {
    return apeTag(ApeTagSpec().items(items));
}

const std::string kReadError = line(0, "File", "Read error");
const std::string kNoProperties = line(0, "File", "Cannot extract file properties");
const std::string kNoAudioProperties = line(0, "File", "Cannot determine audio properties");

// File size, the marker search and the stream header layouts; the stream
// header offsets count from where the marker was found.
TEST(ApeTag, StreamHeader) {
    const Bytes keyless = tagWith({apeItem("", "x")});
    expectLogs(
        "x.ape",
        {
            // 41 bytes are too small for the marker and tag steps; the stream
            // header is still read, and the new layout's 68-byte read fails.
            {"41 bytes", truncated(macHeaderNew(), 41),
             line(0, "File", "Invalid file size for APE file") + kReadError + kNoProperties},
            {"42 bytes", truncated(macHeaderNew(), 42), kReadError + kNoProperties},
            {"3 bytes", Bytes{'M', 'A', 'C'}, line(0, "File", "Invalid file size for APE file") + kReadError},
            // Old layout without the WAVE header: reported, but counted as read.
            {"old, no WAVE header", concat({macHeaderOld(3979, false), Bytes(100, 0)}), kNoAudioProperties},
            {"old, WAVE header", concat({macHeaderOld(3979), Bytes(100, 0)}), ""},
            {"old, cut in the WAVE header", truncated(macHeaderOld(3970), 60), kReadError + kNoProperties},
            // New layout: a descriptor length other than 52 is an absolute offset
            // of 24 more bytes, readable or not, never counted from the marker.
            {"descriptor readable", concat({macHeaderNew(3990, 100), Bytes(100, 0)}), ""},
            {"descriptor past the end", concat({macHeaderNew(3990, 170), Bytes(100, 0)}),
             kReadError + kNoProperties},
            {"descriptor absolute", concat({Bytes(100, 0), macHeaderNew(3990, 170), Bytes(20, 0)}), ""},
            // The marker across the first 10240-byte block of the search.
            {"marker searched", concat({Bytes(10238, 0x11), macHeaderOld(3970, false), Bytes(50, 0)}),
             line(10238, "File", "Cannot determine audio properties")},
            {"marker behind 'M's", concat({Bytes(7, 'M'), macHeaderNew(), keyless}),
             line(7 + 80, "File", "Tag Item key is empty")},
            // No marker: the ID3v1 and tag steps are skipped; the stream header is
            // read at 0 (version 0 here, so the old layout).
            {"no marker", concat({Bytes(100, 0), keyless, id3v1Tag()}),
             line(0, "File", "Missing 'MAC ' header") + kNoAudioProperties},
        });
}

// The footer and its reads. With an ID3v1 tag in the last 128 bytes the
// footer is looked for 160 bytes from the end; the ID3v1 tag is noted
// whatever the settings say. Reads before the start of the file fail.
TEST(ApeTag, FooterAndTagReads) {
    const Bytes stream = macHeaderNew();
    const Bytes body = concat({stream, Bytes(100, 0)});
    const Bytes withV1 = concat({body, tagWith({apeItem("Title", "x"), apeItem("", "y")}), id3v1Tag()});
    expectLogs(
        "x.ape",
        {
            {"ID3v1 moves the footer", withV1,
             line(withV1.size() - 128, "File", "Contains an ID3V1 tag") +
                 line(body.size() + apeItem("Title", "x").size(), "File", "Tag Item key is empty")},
            {"item area larger than the file",
             concat({stream, apeTag(ApeTagSpec().items({apeItem("", "x")}).tagSize(1000))}), kReadError},
            // A tag size below 32 makes a negative item-area size.
            {"tag size 8", concat({stream, apeTag(ApeTagSpec().items({apeItem("", "x")}).tagSize(8))}),
             kReadError},
            // The header probe 32 bytes before a footer that starts at 10.
            {"header probe before the file",
             concat({truncated(stream, 10), apeTag(ApeTagSpec().headerFlag(true))}),
             kReadError + kReadError + kNoProperties},
        });
}

TEST(ApeTag, Items) {
    const Bytes stream = concat({macHeaderNew(), Bytes(20, 0)});
    const uint64_t base = stream.size();
    const Bytes noPrefix = {0xFF, 0xD8, 0xFF, 0xE0, 'J', 'F', 'I', 'F'};
    const Bytes cover = apeItem("Cover Art (front)", noPrefix, kItemBinary);
    // APEv2: binary covers need the file-name prefix; the key match ignores case and "Artwork-" alone is a
    // cover key.
    const Bytes v2 = tagWith(
        {cover, apeItem("artwork-", noPrefix, kItemBinary),
         apeItem("COVER ART (FRONT)", concat({Bytes{'a', '.', 'j', 'p', 'g', 0}, noPrefix}), kItemBinary),
         apeItem("Cover Art (back)", noPrefix, kItemBinary),
         apeItem("Cover Art (front)", noPrefix, kItemExternal),
         apeItem("Cover Art (front)", noPrefix, kItemBinary | kItemReadOnly),
         apeItem("Comment", Bytes{0xC3, 0x28, 0xFF})});
    const std::vector<Bytes> keys = {apeItem("", "a"), apeItem("Caf\xe9", "b"), apeItem("\x01\x7f", "c"),
                                     apeItem("\tTitle", "d"), apeItem("", "e")};
    uint64_t at[5] = {base};
    for (size_t i = 1; i < 5; ++i) at[i] = at[i - 1] + keys[i - 1].size();
    const Bytes title = apeItem("Title", "Song");
    auto area = [&](const Bytes& items, uint32_t count) {
        return concat({stream, apeTag(ApeTagSpec().items({items}).count(count))});
    };
    const std::string overflow = line(base, "File", "Tag Item overflows");
    const std::string unterminated = "Tag Item key name not terminated";
    expectLogs(
        "x.ape",
        {
            {"APEv2 artwork", concat({stream, v2}),
             line(base, "Tag", "Artwork item is missing data prefix") +
                 line(base + cover.size(), "Tag", "Artwork item is missing data prefix")},
            {"keys", concat({stream, tagWith(keys)}),
             line(at[0], "File", "Tag Item key is empty") + line(at[1], "File", "Tag Item key is empty") +
                 line(at[2], "File", "Tag Item key is invalid") +
                 line(at[4], "File", "Tag Item key is empty")},
            {"count 0", concat({stream, apeTag(ApeTagSpec().items(keys).count(0))}), ""},
            // A count larger than the items ends quietly at the end of the area,
            // or with an overflow when fewer than 8 bytes remain.
            {"count past the area", area(title, 5), ""},
            {"count past the area, 7 bytes left", area(concat({title, Bytes(7, 0)}), 5),
             line(base + title.size(), "File", "Tag Item overflows")},
            {"uncounted trailing bytes", area(concat({title, Bytes(7, 0)}), 1), ""},
            // Value size beyond the area, measured from the flags field.
            {"value size wraps", area(ByteBuilder().le32(0xFFFFFFF0).le32(0).str("K").u8(0).take(), 1),
             overflow},
            {"value size past the area",
             area(ByteBuilder().le32(10).le32(0).str("ab").u8(0).zeros(5).take(), 1), overflow},
            {"key to the end of the area", area(ByteBuilder().le32(0).le32(0).str("Title").take(), 1),
             line(base, "File", unterminated)},
            {"key at the end of the area", area(concat({title, ByteBuilder().le32(0).le32(0).take()}), 2),
             line(base + title.size(), "File", unterminated)},
            {"one-byte key", area(apeItem("\x01", "v"), 1), line(base, "File", "Tag Item key is invalid")},
            // Keys are read in 64 KiB windows.
            {"long key", area(apeItem(std::string(70000, 'K'), "v"), 1), ""},
        });
}

}  // namespace
}  // namespace sondrel
