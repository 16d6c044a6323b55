// The atom walk: sizes, 64-bit headers, truncation at the file end, the
// "udta" tail, the rating repair and the advice for renamed MP3 files.
#include "formats/mp4/Atom.h"

#include <gtest/gtest.h>

#include "tests/fixtures/ID3Builder.h"
#include "tests/formats/mp4/M4ATestSupport.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::mp4;

// The synthetic root starts 8 bytes before the file; its offset is printed as it is.
constexpr uint64_t kRootOffset = ~uint64_t(0) - 7;
const std::string kRename =
    "The file starts with an ID3 marker. More than likely the file is an mp3 file.  Try changing the "
    "filename extension to .mp3";

Bytes withoutMdat(const std::vector<Bytes>& items = {}) {
    return concat({ftyp(), box("moov", {trak("soun"), udta(items)})});
}
Bytes udtaWithTail(size_t tail) {
    const Bytes u = udta({textItem("\251nam", "Title")});
    const Bytes longer = ByteBuilder(u).zeros(tail).patchBE32(0, uint32_t(u.size() + tail)).take();
    return concat({ftyp(), box("moov", {trak("soun"), longer}), atom("mdat", Bytes(8, 0))});
}

TEST(M4AAtomTree, WalkFaults) {
    const Bytes overMdat = concat({withoutMdat(), atomSized(5000, "mdat", Bytes(100, 0))});
    const uint64_t end = m4aFile().size();
    // An item declaring 4 bytes more than the item list holds. Types are
    // rendered byte by byte, 0xA9 as the copyright sign.
    const Bytes item = textItem("\251nam", "Title");
    const Bytes childOver = m4aFile({ByteBuilder(item).patchBE32(0, uint32_t(item.size() + 4)).take()});
    const uint64_t ilst = offsetOf(childOver, "ilst"), nam = offsetOf(childOver, "\251nam");
    // The writer's 25-byte rating claims 26 bytes; the next item starts where the 25 bytes end.
    const Bytes rating = m4aFile({atomSized(26, "rtng", data(21, {0})), textItem("\251nam", "After")});
    const Bytes tail5 = udtaWithTail(5);
    // An ID3v2 header read as an atom header: its size runs past the file.
    const Bytes mp3 = concat({id3Tag(3, Bytes(10, 0)), Bytes{0xFF, 0xFB, 0x90, 0x64}, Bytes(400, 0)});
    const std::vector<LogCase> cases = {
        {"last atom past the end", overMdat,
         line(offsetOf(overMdat, "mdat"), "Container", "'mdat' overflows file size (truncated)")},
        // A 64-bit header that does not fit is reported with size 1.
        {"64-bit header cut", concat({m4aFile(), ByteBuilder().be32(1).str("free").be32(0).take()}),
         line(kRootOffset, "Container",
              "'root-free' atom overflows. size=1, next offset=" + std::to_string(end + 1) +
                  ", container end=" + std::to_string(end + 12))},
        {"child past its container", childOver,
         line(ilst, "Container",
              "'ilst-\xC2\xA9nam' atom overflows. size=" + std::to_string(item.size() + 4) +
                  ", next offset=" + std::to_string(nam + item.size() + 4) +
                  ", container end=" + std::to_string(ilst + 8 + item.size()))},
        {"64-bit sizes",
         concat({withoutMdat(
                     {box("\251nam", {atom64("data", ByteBuilder().be32(1).be32(0).str("Big").take())})}),
                 atom64("mdat", Bytes(32, 0))}),
         ""},
        {"udta with a 4-byte terminator", udtaWithTail(4), ""},
        {"udta with 5 more bytes", tail5,
         line(offsetOf(tail5, "udta"), "Container", "'udta' Atom overflows container")},
        {"rating of 26 around 17", rating,
         line(offsetOf(rating, "rtng"), "Container", "'rtng' atom has invalid length")},
        {"true 26-byte rating", m4aFile({box("rtng", {data(21, {0, 0})})}), ""},
        {"MP3 renamed", mp3,
         line(0, "Container", "'{0x00}{0x00}{0x00}{0x00}' overflows file size (truncated)") +
             line(0, "Rename(mp3)", kRename)},
        {"first atom not ftyp", concat({atom("free", {}), m4aFile()}), line(0, "Rename(mp3)", kRename)},
        {"first atom fails", ByteBuilder().be32(4).str("ftyp").zeros(8).take(),
         line(0, "Container", "Atom too small")},
    };
    expectLogs("a.m4a", cases);
    // The items around the faults are read.
    for (const auto& [file, title] : {std::pair(rating, "After"), std::pair(cases[3].file, "Big")}) {
        const Checked c = check(file);
        const TagItem* item = c.tag->item(field::Title);
        EXPECT_EQ(item ? item->value : "none", title);
    }
}

}  // namespace
}  // namespace sondrel
