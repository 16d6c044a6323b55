// The ID3v2 tag header rules and the frame walk, checked through the reader
// that the audio checkers share.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/fixtures/ID3Builder.h"
#include "tests/formats/id3/ID3ReaderHarness.h"

namespace sondrel {
namespace {

using fixtures::ByteBuilder;
using fixtures::concat;
using fixtures::id3Footer;
using fixtures::id3Frame;
using fixtures::ID3Size;
using fixtures::id3Tag;
using fixtures::id3Text;
using fixtures::mpegAudio;
using testing::readTag;

std::string line(uint64_t offset, const char* category, const std::string& message) {
    return fmt::format("    {:012}  {}: {}\n", offset, category, message);
}
std::string framing(uint64_t offset, const std::string& message) {
    return line(offset, "Framing", message);
}

// A frame whose decoder always reports at its own offset: a title with a
// trailing nil. Handy to prove where the walk found a frame.
Bytes markerFrame(int version = 3, ID3Size form = ID3Size::Default) {
    return id3Frame("TIT2", ByteBuilder().u8(0).str("a").u8(0).take(), version, 0, form);
}
const std::string kMarker = "ID3 'TIT2' frame: text string contains redundant trailing nil(s)";

Bytes withAudio(const Bytes& tag) {
    return concat({tag, mpegAudio()});
}

struct Case {
    const char* name;
    Bytes file;
    std::string log;
};

TEST(ID3Header, VersionRevisionAndFlagRules) {
    const Bytes title = id3Frame("TIT2", id3Text("Title"));
    const Bytes oldTitle = id3Frame("TT2", id3Text("Title"), 2);
    Bytes truncated = id3Tag(3, title, 0, 40);
    truncated.resize(truncated.size() - 10);
    const Case cases[] = {
        {"version 2.5", withAudio(id3Tag(5, title)), framing(0, "Invalid ID3 version 2.5.0")},
        {"version 2.3.1", withAudio(id3Tag(3, title, 0, 0, 1)), framing(0, "Invalid ID3 version 2.3.1")},
        {"version byte FF",
         withAudio(ByteBuilder().str("ID3").bytes({0xFF, 0, 0}).synchsafe32(20).zeros(20).take()),
         framing(0, "Invalid ID3 version 2.255.0")},
        {"flags byte FF is refused silently", withAudio(id3Tag(3, title, 0xFF)), ""},
        {"revision byte FF is refused silently", withAudio(id3Tag(2, oldTitle, 0, 0, 0xFF)), ""},
        {"size byte with bit 7", withAudio(ByteBuilder().str("ID3").bytes({3, 0, 0, 0, 0, 0x80, 0}).take()),
         ""},
        {"v2.2.5 is accepted", withAudio(id3Tag(2, oldTitle, 0, 0, 5)), ""},
        {"v2.2.1 is not walked", withAudio(id3Tag(2, id3Frame("tt2", {}, 2), 0, 0, 1)),
         line(0, "Tag", "Non standard ID3 version 2.1")},
        {"v2.2.1 knows the experimental flag", withAudio(id3Tag(2, oldTitle, 0x20, 0, 1)),
         line(0, "Tag", "Non standard ID3 version 2.1") +
             line(0, "Tag", "Experimental bit is set in the tag header")},
        {"v2.2 compression", withAudio(id3Tag(2, oldTitle, 0x40)),
         framing(0, "Compression not supported in ID3 version 2.2")},
        {"v2.2 experimental bit is only undefined", withAudio(id3Tag(2, oldTitle, 0x20)),
         framing(0, "Invalid flag bits in ID3 header")},
        {"v2.3 undefined bit", withAudio(id3Tag(3, title, 0x08)),
         framing(0, "Invalid flag bits in ID3 header")},
        {"v2.3 experimental", withAudio(id3Tag(3, title, 0x20)),
         line(0, "Tag", "Experimental bit is set in the tag header")},
        {"v2.4 undefined bit", withAudio(id3Tag(4, id3Frame("TIT2", id3Text("T"), 4), 0x01)),
         framing(0, "Invalid flag bits in ID3 header")},
        {"size 0", withAudio(id3Tag(3, {})), framing(0, "Invalid ID3 tag size of 0")},
        {"tag longer than the file", truncated, framing(0, "ID3 tag overflows the file")},
    };
    for (const Case& c : cases) EXPECT_EQ(readTag(c.file).log, c.log) << c.name;
}

TEST(ID3Header, HeaderProblemsUseFileOffsetsWalkProblemsTagPositions) {
    // A tag inside a container 12 bytes into the file: the header and frame
    // messages carry file offsets, the walk's messages positions in the tag.
    const Bytes frames = concat({markerFrame(), ByteBuilder().str("TALB").be32(100).be16(0).str("x").take()});
    const Bytes file = concat({Bytes(12, 'j'), id3Tag(3, frames, 0x08), mpegAudio()});
    EXPECT_EQ(readTag(file, 12).log, framing(12, "Invalid flag bits in ID3 header") + framing(22, kMarker) +
                                         framing(23, "Invalid frame size"));
}

TEST(ID3Header, ExtendedHeaders) {
    const Bytes v23Ext = ByteBuilder().be32(6).zeros(6).take();
    const Bytes v23Bad = ByteBuilder().be32(7).zeros(7).take();
    const Bytes v24Ext = ByteBuilder().synchsafe32(6).u8(1).u8(0).take();
    const Case cases[] = {
        {"v2.3 size 6 skips ten bytes", withAudio(id3Tag(3, concat({v23Ext, markerFrame()}), 0x40)),
         framing(20, kMarker)},
        {"v2.3 size 7 is ignored: the walk starts after the header and meets zeros",
         withAudio(id3Tag(3, concat({v23Bad, markerFrame()}), 0x40)),
         framing(0, "Invalid extended header size")},
        {"v2.4 size counts its own field", withAudio(id3Tag(4, concat({v24Ext, markerFrame(4)}), 0x40)),
         framing(16, kMarker)},
        {"v2.4 size 5 refuses the tag",
         withAudio(id3Tag(4, concat({ByteBuilder().synchsafe32(5).u8(1).take(), markerFrame(4)}), 0x40)),
         framing(0, "Invalid extended header size")},
        {"v2.4 size with a high bit reads as 0",
         withAudio(id3Tag(
             4, concat({ByteBuilder().bytes({0, 0, 0, 0x86}).bytes({1, 0}).take(), markerFrame(4)}), 0x40)),
         framing(0, "Invalid extended header size")},
        {"v2.4 header reaching the tag end refuses the tag",
         withAudio(id3Tag(4, ByteBuilder().synchsafe32(10).u8(1).u8(0).zeros(4).take(), 0x40)),
         framing(0, "Invalid extended header size")},
    };
    for (const Case& c : cases) EXPECT_EQ(readTag(c.file).log, c.log) << c.name;
}

TEST(ID3Header, FooterFoundTags) {
    const Bytes audio = mpegAudio(64);
    const Bytes tag = id3Tag(4, concat({markerFrame(4), ByteBuilder().str("TALB").take()}), 0x10);
    const Bytes file = concat({audio, tag, id3Footer(tag)});
    auto r = readTag(file, file.size() - 10, true);
    // Frame messages at file offsets, walk messages from the tag's first byte.
    EXPECT_EQ(r.log, framing(74, kMarker) + framing(23, "Frame overrun"));
    ASSERT_NE(r.reader->header(), nullptr);
    EXPECT_EQ(r.reader->header()->offset, 64u);

    auto footerOnly = [&](const Bytes& footer) {
        const Bytes f = concat({audio, footer});
        return readTag(f, f.size() - 10, true).log;
    };
    EXPECT_EQ(footerOnly(ByteBuilder().str("3DI").bytes({3, 0, 0x10}).synchsafe32(10).take()),
              framing(64, "Invalid ID3 version 2.3 footer tag"));
    EXPECT_EQ(footerOnly(ByteBuilder().str("3DI").bytes({4, 0, 0}).synchsafe32(10).take()),
              framing(64, "Required ID3 footer flag not set in version 2.4"));
    EXPECT_EQ(footerOnly(ByteBuilder().str("3DI").bytes({4, 0, 0x10}).synchsafe32(60).take()),
              framing(64, "Invalid size for ID3 footer tag"));
    // The header before the footer must repeat it exactly.
    Bytes differing = concat({audio, tag, id3Footer(tag)});
    differing[audio.size() + 5] ^= 0x80;
    EXPECT_EQ(readTag(differing, differing.size() - 10, true).log, "");
    // A size of 0 is reported at the footer, before the tag start moves back.
    const Bytes empty = id3Tag(4, {}, 0x10);
    const Bytes zero = concat({audio, empty, id3Footer(empty)});
    EXPECT_EQ(readTag(zero, zero.size() - 10, true).log, framing(74, "Invalid ID3 tag size of 0"));
}

TEST(ID3Walk, HowTheWalkEnds) {
    const Bytes f = markerFrame();  // 13 bytes: the next frame stands at 23
    const std::string m = framing(10, kMarker);
    struct WalkCase {
        const char* name;
        Bytes content;
        std::string log;
    };
    const WalkCase cases[] = {
        {"frame flush with the tag end", f, m},
        {"padding ends the walk even before non-zero bytes",
         concat({f, ByteBuilder().u8(0).take(), markerFrame()}), m},
        {"three bytes left", concat({f, ByteBuilder().str("TAL").take()}), m + framing(23, "Frame overrun")},
        {"header does not fit", concat({f, ByteBuilder().str("TALB").bytes({0, 0, 0}).take()}),
         m + framing(23, "Frame overrun")},
        {"audio sync where a header does not fit",
         concat({f, ByteBuilder().bytes({0xFF, 0xFB, 0x90, 0, 0}).take()}),
         m + framing(23, "The ID3 tag overflows into the audio stream")},
        {"body past the end", concat({f, ByteBuilder().str("TALB").be32(3).be16(0).str("xy").take()}),
         m + framing(23, "Invalid frame size")},
    };
    for (const WalkCase& c : cases) EXPECT_EQ(readTag(withAudio(id3Tag(3, c.content))).log, c.log) << c.name;

    auto padded = readTag(withAudio(id3Tag(3, f, 0, 20)));
    EXPECT_EQ(padded.reader->padding(), 20u);
    auto overflow =
        readTag(withAudio(id3Tag(3, concat({f, ByteBuilder().bytes({0xFF, 0xFB, 0x90, 0}).take()}))));
    EXPECT_EQ(overflow.reader->walkEnd(), 23u);
    EXPECT_EQ(overflow.reader->header()->tagEndOffset, 23u);
}

TEST(ID3Walk, RefusedFramesNameThePreviousOne) {
    // A data-length indicator of 0 makes the frame set-up refuse the frame.
    const Bytes refused = id3Frame("TIT2", ByteBuilder().zeros(4).str("abc").take(), 4, 0x0001);
    EXPECT_EQ(readTag(withAudio(id3Tag(4, refused))).log, framing(10, "Invalid frame"));
    EXPECT_EQ(readTag(withAudio(id3Tag(4, concat({markerFrame(4), refused})))).log,
              framing(10, kMarker) + framing(23, "Invalid frame. Previous frame at 10"));
}

// v2.4 sizes should be synchsafe, but many writers use plain numbers. Once a
// plain size is detected, the rest of the tag is read with plain sizes.
TEST(ID3Walk, SynchsafeOrPlainSizesInV24) {
    auto body = [](size_t n, char c) { return ByteBuilder().u8(0).fill(n - 1, uint8_t(c)).take(); };
    // 200 written plainly (00 00 00 C8) has bit 7 set in a size byte.
    EXPECT_EQ(readTag(withAudio(id3Tag(4, concat({id3Frame("TPE1", body(200, 'a'), 4, 0, ID3Size::Natural),
                                                  markerFrame(4, ID3Size::Natural)}))))
                  .log,
              framing(220, kMarker));
    // 130 written plainly reads as 00 00 00 82.
    EXPECT_EQ(readTag(withAudio(id3Tag(4, concat({id3Frame("TPE1", body(130, 'a'), 4, 0, ID3Size::Natural),
                                                  markerFrame(4, ID3Size::Natural)}))))
                  .log,
              framing(150, kMarker));
    // 300 written plainly (00 00 01 2C) reads as synchsafe 172, where no frame
    // follows; at 300 one does. The next frame's plain 256 (00 00 01 00) would
    // read as synchsafe 128, where a frame identifier seems to follow: only
    // the persisting plain reading finds the marker frame after it.
    const Bytes decoy = ByteBuilder().u8(0).fill(127, 'b').str("ABCD").fill(124, 'b').take();
    EXPECT_EQ(readTag(withAudio(id3Tag(4, concat({id3Frame("TPE1", body(300, 'c'), 4, 0, ID3Size::Natural),
                                                  id3Frame("TALB", decoy, 4, 0, ID3Size::Natural),
                                                  markerFrame(4, ID3Size::Natural)}))))
                  .log,
              framing(586, kMarker));
    // A true synchsafe 200 followed by a frame stays synchsafe.
    EXPECT_EQ(
        readTag(withAudio(id3Tag(4, concat({id3Frame("TPE1", body(200, 'a'), 4), markerFrame(4)})))).log,
        framing(220, kMarker));
}

TEST(ID3Walk, WholeTagUnsynchronisation) {
    // Body 00 'A' FF 'B' 00 written with a 00 after the FF; the frame size
    // counts the body without it.
    const Bytes frame = ByteBuilder().str("TIT2").be32(5).be16(0).bytes({0, 'A', 0xFF, 0, 'B', 0}).take();
    auto r = readTag(withAudio(id3Tag(3, frame, 0x80)));
    EXPECT_EQ(r.log, framing(10, kMarker));
    EXPECT_TRUE(r.reader->wholeTagUnsynchronised());
    EXPECT_EQ(r.reader->total(), 25u);
    EXPECT_EQ(r.reader->sizeOfTag(), 15u);
    if (testing::fieldTableFilled()) {
        ASSERT_NE(r.item(field::Title), nullptr);
        EXPECT_EQ(r.item(field::Title)->value,
                  "A\u00FF"
                  "B");
    }
    // v2.4 is never de-unsynchronised as a whole; a frame flagged 0x0002
    // undoes its own (were the tag compacted too, the frame would overrun).
    const Bytes v24 = id3Frame("TIT2", {0, 'A', 0xFF, 0, 'B', 0}, 4, 0x0002);
    EXPECT_EQ(readTag(withAudio(id3Tag(4, v24, 0x80))).log, framing(10, kMarker));
    // Away from the file start the walk ends at the compacted length, which
    // is not an offset: the walk stays inside the tag's bytes.
    EXPECT_EQ(readTag(concat({Bytes(100, 'j'), id3Tag(3, frame, 0x80), mpegAudio()}), 100).log,
              framing(110, kMarker));
}

TEST(ID3Walk, WalkWithoutHeaderStaysInsideTheBuffer) {
    for (uint64_t end : {uint64_t(0), uint64_t(5), uint64_t(10), uint64_t(1) << 40, ~uint64_t(0)}) {
        auto r = readTag(withAudio(id3Tag(3, markerFrame(), 0xFF)));
        r.reader->walkWithoutHeader(end);
        EXPECT_LE(r.tag->errorCount(), 1u) << end;
        auto refusedLate = readTag(withAudio(id3Tag(4, ByteBuilder().synchsafe32(3).take(), 0x40)));
        refusedLate.reader->walkWithoutHeader(end);
        EXPECT_LE(refusedLate.tag->errorCount(), 2u) << end;
    }
}

TEST(ID3Walk, FlacEntryGivesTheAudioRange) {
    Settings settings;
    const Bytes tag = id3Tag(3, markerFrame(), 0, 7);
    const Bytes file = withAudio(tag);
    Tag record("/memory/a.flac", settings, Tag::NoAnalysis{});
    ID3Base reader(record);
    auto handle = FileHandle::fromMemory(file);
    uint64_t base = 1, size = 1;
    EXPECT_TRUE(reader.flacEntryHandle(*handle, file.size(), record, base, size));
    EXPECT_EQ(base, tag.size());
    EXPECT_EQ(size, file.size() - tag.size());
    EXPECT_EQ(testing::problemLines(record), framing(10, kMarker));
    EXPECT_EQ(reader.getVersion(), 3u);
    EXPECT_EQ(reader.getFrameList().size(), 1u);

    Tag refused("/memory/b.flac", settings, Tag::NoAnalysis{});
    ID3Base other(refused);
    const Bytes bad = withAudio(id3Tag(3, markerFrame(), 0, 0, 1));
    auto badHandle = FileHandle::fromMemory(bad);
    base = size = 1;
    EXPECT_FALSE(other.flacEntryHandle(*badHandle, bad.size(), refused, base, size));
    EXPECT_EQ(base, 1u);
    EXPECT_EQ(testing::problemLines(refused), framing(0, "Invalid ID3 version 2.3.1"));
}

}  // namespace
}  // namespace sondrel
