// The DSDIFF checker: fixed start, property walk, sound chunks, ID3 chunks.
#include "formats/chunked/DffTag.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/Settings.h"
#include "core/Tag.h"
#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/WavBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

std::string line(uint64_t offset, const char* category, const std::string& message) {
    char head[40];
    std::snprintf(head, sizeof head, "    %012llu  ", static_cast<unsigned long long>(offset));
    return head + std::string(category) + ": " + message + "\n";
}
std::string dff(const Bytes& b) {
    return problemsFor("x.dff", b);
}

Bytes cleanTag() {
    return id3Tag(3, concat({id3Frame("TIT2", id3Text("Title")), id3Frame("TPE1", id3Text("Artist"))}), 0, 6);
}
Bytes badVersionTag() {
    Bytes t = cleanTag();
    t[3] = 5;
    return t;
}

// Layout of the standard file: PROP data at 44 (FS at 48, CHNL at 64, CMPR
// at 86), the sound chunk at 118 (DSD: 76 bytes, to 194).
const Bytes kProps = dffStandardProps();

TEST(DffStructure, PublishedLayoutsAreClean) {
    EXPECT_EQ(dff(dffFile({kProps, dffDsdChunk()})), "");
    EXPECT_EQ(dff(dffFile({dffStandardProps("DST "), dffDstChunk(3)})), "");
    EXPECT_EQ(dff(dffFile({kProps, dffDsdChunk(), iff64Chunk("COMT", ByteBuilder().be16(0)),
                           iff64Chunk("ID3 ", cleanTag())})),
              "");
    // An odd chunk at the very end without its pad byte.
    EXPECT_EQ(dff(dffFile({kProps, iff64Chunk("DSD ", ByteBuilder().fill(65, 0x69), false)})), "");
}

TEST(DffStructure, DeclaredSizeToleratesOneTrailingByteAndIsCheckedFirst) {
    const Bytes clean = dffFile({kProps, dffDsdChunk()});
    Bytes longer = clean;
    longer.push_back(0);
    EXPECT_EQ(dff(longer), "");
    longer.push_back(0);
    EXPECT_EQ(dff(longer),
              line(0, "Container",
                   "The contained file size of 182 does not represent the adjusted file size of 184"));
    Bytes wrongForm = longer;
    wrongForm[15] = 'F';
    EXPECT_EQ(dff(wrongForm),
              line(0, "Container",
                   "The contained file size of 182 does not represent the adjusted file size of 184") +
                  line(0, "Fatal", "Invalid DFF signature"));
}

TEST(DffStructure, FixedStartMustBeComplete) {
    EXPECT_EQ(dff(ByteBuilder().str("FRM8").zeros(120).take()),
              line(0, "Fatal", "Insufficient data to contain a valid DFF file"));
    Bytes f = dffFile({kProps, dffDsdChunk()});
    Bytes noFver = f;
    noFver[19] = 'X';
    EXPECT_EQ(dff(noFver), line(0, "Fatal", "Missing FVER chunk"));
    Bytes fverSize = f;
    fverSize[27] = 8;
    EXPECT_EQ(dff(fverSize), line(0, "Fatal", "Missing FVER chunk size"));
    Bytes noProp = f;
    noProp[32] = 'Q';
    EXPECT_EQ(dff(noProp), line(36, "Fatal", "Missing PROP chunk"));
    // The property data must be readable and of type "SND "; both failures
    // read as a read error.
    Bytes notSnd = f;
    notSnd[44] = 'X';
    EXPECT_EQ(dff(notSnd), line(44, "File", "Read error"));
    ByteBuilder hugeProp(f);
    hugeProp.patchBE32(40, 0x7FFFFFFF);
    EXPECT_EQ(dff(hugeProp.take()), line(44, "File", "Read error"));
}

TEST(DffProperties, MissingPropertiesAreReportedInOrder) {
    const Bytes sound = dffDsdChunk(100);
    EXPECT_EQ(dff(dffFile({dffPropChunk({dffChnlProperty(), dffCmprProperty()}), sound})),
              line(44, "Fatal", "Missing FS property"));
    EXPECT_EQ(dff(dffFile({dffPropChunk({dffCmprProperty()}), sound})),
              line(44, "Fatal", "Missing FS property"));
    EXPECT_EQ(dff(dffFile({dffPropChunk({dffFsProperty(), dffCmprProperty()}), sound})),
              line(44, "Fatal", "Missing CHNL property"));
    EXPECT_EQ(dff(dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty()}), sound})),
              line(44, "Fatal", "Missing CMPR property"));
    // Property data too short to hold one property.
    EXPECT_EQ(dff(dffFile({iff64Chunk("PROP", ByteBuilder().str("SND ").zeros(8)), sound})),
              line(44, "Fatal", "Missing FS property"));
}

TEST(DffProperties, EachPropertyOnlyOnce) {
    const Bytes sound = dffDsdChunk();
    EXPECT_EQ(
        dff(dffFile(
            {dffPropChunk({dffFsProperty(), dffFsProperty(), dffChnlProperty(), dffCmprProperty()}), sound})),
        line(64, "Fatal", "Duplicate FS property"));
    EXPECT_EQ(dff(dffFile(
                  {dffPropChunk({dffFsProperty(), dffChnlProperty(), dffChnlProperty(1), dffCmprProperty()}),
                   sound})),
              line(86, "Fatal", "Duplicate CHNL property"));
    EXPECT_EQ(
        dff(dffFile({dffPropChunk({dffCmprProperty(), dffFsProperty(), dffChnlProperty(), dffCmprProperty()}),
                     sound})),
        line(118, "Fatal", "Duplicate CMPR property"));
}

TEST(DffProperties, ChannelCountsMapToChannelModes) {
    const Bytes sound = dffDsdChunk();
    EXPECT_EQ(dff(dffFile({dffStandardProps("DSD ", 0), sound})),
              line(64, "Fatal", "Invalid number of channels (0)"));
    EXPECT_EQ(dff(dffFile({dffStandardProps("DSD ", 7), sound})),
              line(64, "Fatal", "Invalid number of channels (7)"));
    TempDir dir;
    const Settings settings = settingsWith();
    const uint64_t expected[] = {0, 1, 2, 3, 4, 6, 7};
    for (uint16_t channels = 1; channels <= 6; ++channels) {
        const std::string path = dir.write("c" + std::to_string(channels) + ".dff",
                                           dffFile({dffStandardProps("DSD ", channels), sound}));
        Tag tag(path, settings, Tag::NoAnalysis{});
        DffTag checker(path, tag);
        EXPECT_EQ(tag.errorCount(), 0u) << channels;
        EXPECT_EQ(checker.getChannelMode(), expected[channels]) << channels;
        EXPECT_EQ(checker.getSampleRate(), 2822400u);
    }
}

TEST(DffSound, SoundChunkMustMatchTheCompressionType) {
    EXPECT_EQ(dff(dffFile({kProps, dffDstChunk()})),
              line(118, "Fatal", "Sound chunk does not match compression type"));
    // DST properties: the sound chunk is at 114.
    EXPECT_EQ(dff(dffFile({dffStandardProps("DST "), dffDsdChunk()})),
              line(114, "Fatal", "Sound chunk does not match compression type"));
    EXPECT_EQ(dff(dffFile({kProps, dffDsdChunk(), dffDsdChunk()})),
              line(194, "Fatal", "File contains more than one sound chunk"));
    EXPECT_EQ(dff(dffFile({dffStandardProps("DST "), dffDstChunk(), dffDstChunk()})),
              line(114 + dffDstChunk().size(), "Fatal", "File contains more than one sound chunk"));
}

TEST(DffSound, DstChunkOpensWithFrameInformation) {
    const Bytes props = dffStandardProps("DST ");
    const Bytes tail = iff64Chunk("COMT", ByteBuilder().zeros(20));
    EXPECT_EQ(dff(dffFile({props, iff64Chunk("DST ", ByteBuilder().zeros(16)), tail})),
              line(114, "Fatal", "DST chunk too small"));
    EXPECT_EQ(dff(dffFile({props, iff64Chunk("DST ", iff64Chunk("DSTF", ByteBuilder().zeros(10))), tail})),
              line(126, "Fatal", "Missing DST-FRTE chunk"));
    // An odd 17-byte chunk at the end rounds to 18 but cannot give 18 bytes.
    EXPECT_EQ(dff(dffFile({props, tail, iff64Chunk("DST ", ByteBuilder().str("FRTE").zeros(13), false)})),
              line(114 + tail.size() + 12, "File", "Read error"));
}

TEST(DffSound, ChunksMustFitAndTheSoundMustComeFirst) {
    EXPECT_EQ(dff(dffFile({kProps, ByteBuilder().str("DSD ").be64(1000).zeros(20).take()})),
              line(118, "Fatal", "Chunk overflows. size=1000, next offset=1130, file size=150"));
    EXPECT_EQ(dff(dffFile({kProps, iff64Chunk("ID3 ", cleanTag()), dffDsdChunk()})),
              line(118, "Fatal", "ID3 tag precedes sound chunk"));
    EXPECT_EQ(dff(dffFile({kProps, iff64Chunk("COMT", ByteBuilder().zeros(30))})),
              line(0, "Fatal", "Missing DSD or DST sound chunk"));
    // Nothing at all after the property chunk.
    EXPECT_EQ(dff(dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty(), dffCmprProperty(),
                                         iff64Chunk("LSCO", ByteBuilder().zeros(20))})})),
              line(0, "Fatal", "Missing DSD or DST sound chunk"));
}

TEST(DffID3, TheLastID3ChunkIsRead) {
    // An ID3 property alone is read: its tag starts 12 bytes after the
    // property header at 118.
    const Bytes propWithID3 = dffPropChunk(
        {dffFsProperty(), dffChnlProperty(), dffCmprProperty(), iff64Chunk("ID3 ", badVersionTag())});
    EXPECT_EQ(dff(dffFile({propWithID3, dffDsdChunk()})), line(130, "Framing", "Invalid ID3 version 2.5.0"));
    // A later top-level ID3 chunk wins over the property.
    EXPECT_EQ(dff(dffFile({propWithID3, dffDsdChunk(), iff64Chunk("id3 ", cleanTag())})), "");
    // Of two top-level chunks only the last is read.
    const Bytes first = iff64Chunk("ID3 ", cleanTag());
    EXPECT_EQ(dff(dffFile({kProps, dffDsdChunk(), first, iff64Chunk("ID3 ", badVersionTag())})),
              line(194 + first.size() + 12, "Framing", "Invalid ID3 version 2.5.0"));
    EXPECT_EQ(dff(dffFile({kProps, dffDsdChunk(), iff64Chunk("ID3 ", badVersionTag()), first})), "");
}

TEST(DffRealFiles, BuiltFileWithTagOnDiskIsClean) {
    TempDir dir;
    const std::string path =
        dir.write("tagged.dff", dffFile({kProps, dffDsdChunk(4096), iff64Chunk("ID3 ", cleanTag())}));
    EXPECT_EQ(problemsForFile(path), "");
    const std::string dst = dir.write(
        "dst.dff", dffFile({dffStandardProps("DST ", 6), dffDstChunk(10), iff64Chunk("ID3 ", cleanTag())}));
    EXPECT_EQ(problemsForFile(dst), "");
}

}  // namespace
}  // namespace sondrel
