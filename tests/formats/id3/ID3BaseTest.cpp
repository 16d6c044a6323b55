// The ID3v2 tag header rules and the frame walk, checked through the reader
// that the audio checkers share.
#include <gtest/gtest.h>

#include "tests/fixtures/ID3Builder.h"
#include "tests/formats/id3/ID3ReaderHarness.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace testing;
using namespace std::string_view_literals;

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
    Bytes file;  // a tag, or the part of a file before the audio
    std::string log;
};
void expectLogs(std::initializer_list<Case> cases) {
    for (const Case& c : cases) EXPECT_EQ(readTag(withAudio(c.file)).log, c.log) << c.name;
}

TEST(ID3Header, VersionRevisionAndFlagRules) {
    const Bytes title = id3Frame("TIT2", id3Text("Title"));
    const Bytes oldTitle = id3Frame("TT2", id3Text("Title"), 2);
    const std::string badFlags = framing(0, "Invalid flag bits in ID3 header");
    const std::string nonStandard = line(0, "Tag", "Non standard ID3 version 2.1");
    const std::string experimental = line(0, "Tag", "Experimental bit is set in the tag header");
    expectLogs({
        {"version 2.5", id3Tag(5, title), framing(0, "Invalid ID3 version 2.5.0")},
        {"version 2.3.1", id3Tag(3, title, 0, 0, 1), framing(0, "Invalid ID3 version 2.3.1")},
        {"flags byte FF is refused silently", id3Tag(3, title, 0xFF), ""},
        {"revision byte FF is refused silently", id3Tag(2, oldTitle, 0, 0, 0xFF), ""},
        {"size byte with bit 7", ByteBuilder().str("ID3").bytes({3, 0, 0, 0, 0, 0x80, 0}).take(), ""},
        {"v2.2.5 is accepted", id3Tag(2, oldTitle, 0, 0, 5), ""},
        {"v2.2.1 is not walked", id3Tag(2, id3Frame("tt2", {}, 2), 0, 0, 1), nonStandard},
        {"v2.2.1 knows the experimental flag", id3Tag(2, oldTitle, 0x20, 0, 1), nonStandard + experimental},
        {"v2.2 experimental bit is only undefined", id3Tag(2, oldTitle, 0x20), badFlags},
        {"v2.3 undefined bit", id3Tag(3, title, 0x08), badFlags},
        {"v2.3 experimental", id3Tag(3, title, 0x20), experimental},
        {"v2.4 undefined bit", id3Tag(4, id3Frame("TIT2", id3Text("T"), 4), 0x01), badFlags},
    });
    const Bytes whole = id3Tag(3, title, 0, 40);
    EXPECT_EQ(readTag(truncated(whole, whole.size() - 10)).log, framing(0, "ID3 tag overflows the file"));
}

TEST(ID3Header, ExtendedHeaders) {
    auto ext = [](int version, const Bytes& header, const Bytes& frames) {
        return id3Tag(version, concat({header, frames}), 0x40);
    };
    const std::string refused = framing(0, "Invalid extended header size");
    expectLogs({
        {"v2.3 size 6 skips ten bytes", ext(3, ByteBuilder().be32(6).zeros(6).take(), markerFrame()),
         framing(20, kMarker)},
        // Size 7 is ignored: the walk starts after the header and meets zeros.
        {"v2.3 size 7", ext(3, ByteBuilder().be32(7).zeros(7).take(), markerFrame()), refused},
        {"v2.4 size counts its own field",
         ext(4, ByteBuilder().synchsafe32(6).u8(1).u8(0).take(), markerFrame(4)), framing(16, kMarker)},
        {"v2.4 size 5", ext(4, ByteBuilder().synchsafe32(5).u8(1).take(), markerFrame(4)), refused},
        {"v2.4 size with a high bit reads as 0", ext(4, {0, 0, 0, 0x86, 1, 0}, markerFrame(4)), refused},
        {"v2.4 header leaving one byte", ext(4, ByteBuilder().synchsafe32(6).u8(1).u8(0).take(), {0}), ""},
        {"v2.4 header reaching the tag end",
         ext(4, ByteBuilder().synchsafe32(10).u8(1).u8(0).zeros(4).take(), {}), refused},
    });
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

    // The header before the footer must repeat it exactly; a size of 0 is
    // reported at the footer, before the tag start moves back.
    Bytes differing = file;
    differing[audio.size() + 5] ^= 0x80;
    auto footer = [](uint8_t version, uint8_t flags, uint32_t size) {
        return ByteBuilder().str("3DI").bytes({version, 0, flags}).synchsafe32(size).take();
    };
    const Case cases[] = {
        {"v2.3", concat({audio, footer(3, 0x10, 10)}), framing(64, "Invalid ID3 version 2.3 footer tag")},
        {"flag", concat({audio, footer(4, 0, 10)}),
         framing(64, "Required ID3 footer flag not set in version 2.4")},
        {"size", concat({audio, footer(4, 0x10, 60)}), framing(64, "Invalid size for ID3 footer tag")},
        {"header differs", differing, ""},
        // A tag found through its footer may start at the file's first byte.
        {"alone", concat({tag, id3Footer(tag)}), framing(10, kMarker) + framing(23, "Frame overrun")},
    };
    for (const Case& c : cases) EXPECT_EQ(readTag(c.file, c.file.size() - 10, true).log, c.log) << c.name;
}

TEST(ID3Walk, HowTheWalkEnds) {
    const Bytes f = markerFrame();  // 13 bytes: the next frame stands at 23
    auto after = [&](std::string_view rest) {
        return id3Tag(3, concat({f, ByteBuilder().str(rest).take()}));
    };
    const std::string m = framing(10, kMarker);
    expectLogs({
        {"frame flush with the tag end", id3Tag(3, f), m},
        {"padding ends the walk even before non-zero bytes", id3Tag(3, concat({f, {0}, markerFrame()})), m},
        {"audio sync where a header does not fit", after("\xFF\xFB\x90\0\0"sv),
         m + framing(23, "The ID3 tag overflows into the audio stream")},
        {"body past the end", after("TALB\0\0\0\3\0\0xy"sv), m + framing(23, "Invalid frame size")},
    });

    EXPECT_EQ(readTag(withAudio(id3Tag(3, f, 0, 20))).reader->padding(), 20u);
    auto overflow =
        readTag(withAudio(id3Tag(3, concat({f, ByteBuilder().bytes({0xFF, 0xFB, 0x90, 0}).take()}))));
    EXPECT_EQ(std::pair(overflow.reader->walkEnd(), overflow.reader->header()->tagEndOffset),
              std::pair(23ul, 23ul));
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
    auto plain = [](const char* id, const Bytes& b) { return id3Frame(id, b, 4, 0, ID3Size::Natural); };
    const Bytes marker = markerFrame(4, ID3Size::Natural);
    // 300 written plainly (00 00 01 2C) reads as synchsafe 172, where no frame
    // follows; at 300 one does. The next frame's plain 256 (00 00 01 00) would
    // read as synchsafe 128, where a frame identifier seems to follow: only
    // the persisting plain reading finds the marker frame after it.
    const Bytes decoy = ByteBuilder().u8(0).fill(127, 'b').str("ABCD").fill(124, 'b').take();
    const std::pair<Bytes, uint64_t> cases[] = {
        {concat({plain("TPE1", body(200, 'a')), marker}), 220},  // 00 00 00 C8: bit 7 set
        {concat({plain("TPE1", body(130, 'a')), marker}), 150},  // 00 00 00 82
        {concat({plain("TPE1", body(256, 'a')), marker}), 276},  // 00 00 01 00: synchsafe 128 leads nowhere
        {concat({plain("TPE1", body(300, 'c')), plain("TALB", decoy), marker}), 586},
        {concat({id3Frame("TPE1", body(200, 'a'), 4), markerFrame(4)}), 220},  // true synchsafe stays so
    };
    for (const auto& [frames, at] : cases)
        EXPECT_EQ(readTag(withAudio(id3Tag(4, frames))).log, framing(at, kMarker)) << at;
    // Synchsafe 128 (plain 256 would reach the tag's end) leads to an
    // identifier with a Z: the synchsafe reading stands, two frames are walked.
    const Bytes z = concat({id3Frame("TPE1", body(128, 'a'), 4), id3Frame("TSIZ", body(118, 'z'), 4)});
    EXPECT_EQ(readTag(withAudio(id3Tag(4, z))).reader->getFrameCount(), 2u);
}

TEST(ID3Walk, WholeTagUnsynchronisation) {
    // Body 00 'A' FF 'B' 00 written with a 00 after the FF; the frame size
    // counts the body without it.
    const Bytes frame = ByteBuilder().str("TIT2").be32(5).be16(0).bytes({0, 'A', 0xFF, 0, 'B', 0}).take();
    auto r = readTag(withAudio(id3Tag(3, frame, 0x80)));
    ASSERT_NE(r.item(field::Title), nullptr);
    EXPECT_EQ(std::tuple(r.log, r.reader->sizeOfTag(), r.item(field::Title)->value),
              std::tuple(framing(10, kMarker), 15u, "A\u00FFB"));
    // v2.2 is compacted as a whole like v2.3.
    const Bytes v22 = ByteBuilder().str("TT2").be24(5).bytes({0, 'A', 0xFF, 0, 'B', 0}).take();
    EXPECT_EQ(readTag(withAudio(id3Tag(2, v22, 0x80))).log, framing(10, kMarker));
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

}  // namespace
}  // namespace sondrel
