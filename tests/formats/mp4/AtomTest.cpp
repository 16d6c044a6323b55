// The atom walk: sizes, 64-bit headers, truncation at the file end, the
// "udta" tail, the rating repair and the advice for renamed MP3 files.
#include "formats/mp4/Atom.h"

#include <gtest/gtest.h>

#include "tests/formats/mp4/M4ATestSupport.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::mp4;

constexpr uint64_t kRootOffset = ~uint64_t(0) - 7;

Bytes withoutMdat(const std::vector<Bytes>& items = {}) {
    return concat({ftyp(), box("moov", {trak("soun"), udta(items)})});
}

TEST(M4AAtomTree, SizeZeroRunsToTheFileEndOnlyAtTheTopLevel) {
    // A last top-level atom of size 0 takes the rest of the file.
    Bytes file = concat({withoutMdat(), atomSized(0, "mdat", Bytes(100, 0))});
    EXPECT_EQ(check(file).log, "");

    // Inside any other atom it is too small, and the item is skipped.
    Bytes zeroData = m4aFile({box("\251nam", {atomSized(0, "data", {})}), textItem("\251ART", "Artist")});
    Checked c = check(zeroData);
    EXPECT_EQ(c.log, line(offsetOf(zeroData, "data"), "Container", "Atom too small"));
    ASSERT_NE(c.tag->item(field::Artist), nullptr);
    EXPECT_EQ(c.tag->item(field::Title), nullptr);
}

TEST(M4AAtomTree, LastTopLevelAtomPastTheFileEndIsKeptTruncated) {
    Bytes file = concat({withoutMdat(), atomSized(5000, "mdat", Bytes(100, 0))});
    EXPECT_EQ(check(file).log,
              line(offsetOf(file, "mdat"), "Container", "'mdat' overflows file size (truncated)"));
}

TEST(M4AAtomTree, LeftoverBytesAreAnOverflowOfTheirContainer) {
    // Fewer than 8 bytes after the last top-level atom: the synthetic root
    // starts 8 bytes before the file, and its offset is printed as it is.
    Bytes file = concat({m4aFile(), Bytes(7, 0)});
    EXPECT_EQ(check(file).log, line(kRootOffset, "Container", "'root' Atom overflows container"));

    // A 64-bit header that does not fit is reported with size 1.
    Bytes big = concat({m4aFile(), ByteBuilder().be32(1).str("free").be32(0).take()});
    const uint64_t at = m4aFile().size();
    EXPECT_EQ(check(big).log,
              line(kRootOffset, "Container",
                   "'root-free' atom overflows. size=1, next offset=" + std::to_string(at + 1) +
                       ", container end=" + std::to_string(at + 12)));
}

TEST(M4AAtomTree, ChildPastItsContainerNamesBothTypes) {
    // The item declares 4 bytes more than the item list holds. Types are
    // rendered byte by byte, 0xA9 as the copyright sign.
    Bytes item = textItem("\251nam", "Title");
    Bytes longer = item;
    ByteBuilder patch(longer);
    patch.patchBE32(0, uint32_t(item.size() + 4));
    Bytes file = m4aFile({patch.take()});
    const uint64_t ilst = offsetOf(file, "ilst");
    const uint64_t nam = offsetOf(file, "\251nam");
    const uint64_t end = ilst + 8 + item.size();
    EXPECT_EQ(check(file).log,
              line(ilst, "Container",
                   "'ilst-\xC2\xA9nam' atom overflows. size=" + std::to_string(item.size() + 4) +
                       ", next offset=" + std::to_string(nam + item.size() + 4) +
                       ", container end=" + std::to_string(end)));
}

TEST(M4AAtomTree, SixtyFourBitSizesCountASixteenByteHeader) {
    Bytes file = concat(
        {withoutMdat({box("\251nam", {atom64("data", ByteBuilder().be32(1).be32(0).str("Big").take())})}),
         atom64("mdat", Bytes(32, 0))});
    Checked c = check(file);
    EXPECT_EQ(c.log, "");
    ASSERT_NE(c.tag->item(field::Title), nullptr);
    EXPECT_EQ(c.tag->item(field::Title)->value, "Big");

    // A 64-bit size below its 16-byte header is too small.
    Bytes small = concat({withoutMdat(), ByteBuilder().be32(1).str("mdat").be64(12).zeros(8).take()});
    EXPECT_EQ(check(small).log, line(withoutMdat().size(), "Container", "Atom too small"));
}

TEST(M4AAtomTree, UdtaMayEndWithAFourByteTerminatorButNotMore) {
    auto fileWithTail = [](size_t tail) {
        Bytes u = udta({textItem("\251nam", "Title")});
        u.insert(u.end(), tail, 0);
        ByteBuilder b(u);
        b.patchBE32(0, uint32_t(u.size()));
        return concat({ftyp(), box("moov", {trak("soun"), b.take()}), atom("mdat", Bytes(8, 0))});
    };
    EXPECT_EQ(check(fileWithTail(4)).log, "");
    Bytes five = fileWithTail(5);
    EXPECT_EQ(check(five).log, line(offsetOf(five, "udta"), "Container", "'udta' Atom overflows container"));
}

TEST(M4AAtomTree, RatingOf26AroundA17ByteDataAtomIsReadAs25) {
    // The writer's 25-byte rating claims 26 bytes; the next item starts
    // where the 25 bytes end.
    Bytes rating = atomSized(26, "rtng", data(21, {0}));
    Bytes file = m4aFile({rating, textItem("\251nam", "After")});
    Checked c = check(file);
    EXPECT_EQ(c.log, line(offsetOf(file, "rtng"), "Container", "'rtng' atom has invalid length"));
    ASSERT_NE(c.tag->item(field::Title), nullptr);
    EXPECT_EQ(c.tag->item(field::Title)->value, "After");

    // A true 26-byte rating (an 18-byte data atom) is left alone.
    EXPECT_EQ(check(m4aFile({box("rtng", {data(21, {0, 0})})})).log, "");
}

TEST(M4AAtomTree, MP3WithAnMPEG4ExtensionGetsTheRenameAdvice) {
    // An ID3v2 header read as an atom header: its size runs past the file.
    Bytes mp3 = ByteBuilder()
                    .str("ID3")
                    .bytes({3, 0, 0})
                    .synchsafe32(10)
                    .zeros(10)
                    .bytes({0xFF, 0xFB, 0x90, 0x64})
                    .zeros(400)
                    .take();
    EXPECT_EQ(check(mp3).log,
              line(0, "Container", "'{0x00}{0x00}{0x00}{0x00}' overflows file size (truncated)") +
                  line(0, "Rename(mp3)",
                       "The file starts with an ID3 marker. More than likely the file is an mp3 file.  Try "
                       "changing the filename extension to .mp3"));

    // Any other first atom than "ftyp" draws the same advice.
    Bytes noFtyp = concat({atom("free", {}), m4aFile()});
    EXPECT_EQ(check(noFtyp).log,
              line(0, "Rename(mp3)",
                   "The file starts with an ID3 marker. More than likely the file is an mp3 file.  Try "
                   "changing the filename extension to .mp3"));
}

TEST(M4AAtomTree, AWalkFailingAtItsFirstAtomLogsOnlyItsOwnLine) {
    Bytes file = ByteBuilder().be32(4).str("ftyp").zeros(8).take();
    EXPECT_EQ(check(file).log, line(0, "Container", "Atom too small"));
}

}  // namespace
}  // namespace sondrel
