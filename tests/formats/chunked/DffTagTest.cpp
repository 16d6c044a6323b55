// The DSDIFF checker: fixed start, property walk, sound chunks, ID3 chunks.
#include "formats/chunked/DffTag.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/formats/chunked/ChunkedTestUtil.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::chunkedtest;

// Layout of the standard file: PROP data at 44 (FS at 48, CHNL at 64, CMPR
// at 86), the sound chunk at 118 (DSD: 76 bytes, to 194).
const Bytes kProps = dffStandardProps();
const Bytes kDstProps = dffStandardProps("DST ");  // its sound chunk is at 114

TEST(DffTag, StructureAndFixedStart) {
    const Bytes clean = dffFile({kProps, dffDsdChunk()});
    expectLogs(
        "x.dff",
        {
            {"DSD", clean, ""},
            {"DST", dffFile({kDstProps, dffDstChunk(3)}), ""},
            {"comment and tag",
             dffFile({kProps, dffDsdChunk(), iff64Chunk("COMT", {}), iff64Chunk("ID3 ", cleanTag())}), ""},
            {"DST, 6 channels, tagged",
             dffFile({dffStandardProps("DST ", 6), dffDstChunk(10), iff64Chunk("ID3 ", cleanTag())}), ""},
            // An odd chunk at the very end without its pad byte.
            {"odd last", dffFile({kProps, iff64Chunk("DSD ", ByteBuilder().fill(65, 0x69), false)}), ""},
            // One trailing byte is tolerated; the size is checked before the form.
            {"one trailing byte", concat({clean, Bytes(1)}), ""},
            {"two trailing bytes", concat({clean, Bytes(2)}), sizeLine(182, 184)},
            {"too short", ByteBuilder().str("FRM8").zeros(120).take(),
             line(0, "Fatal", "Insufficient data to contain a valid DFF file")},
            {"no FVER", patched(clean, {{19, 'X', 1}}), line(0, "Fatal", "Missing FVER chunk")},
            {"FVER size", patched(clean, {{27, 8, 1}}), line(0, "Fatal", "Missing FVER chunk size")},
            {"no PROP", patched(clean, {{32, 'Q', 1}}), line(36, "Fatal", "Missing PROP chunk")},
            // Property data that is unreadable or not of type "SND " reads as a read error.
            {"not SND", patched(clean, {{44, 'X', 1}}), line(44, "File", "Read error")},
            {"huge PROP", patched(clean, {{40, 0xFFFFFF7F, 4}}), line(44, "File", "Read error")},
        });
}

TEST(DffTag, Properties) {
    const Bytes sound = dffDsdChunk(100);
    const Bytes fs = dffFsProperty(), chnl = dffChnlProperty(), cmpr = dffCmprProperty();
    auto props = [&](const std::vector<Bytes>& p) { return dffFile({dffPropChunk(p), sound}); };
    auto channels = [&](uint16_t n) { return dffFile({dffStandardProps("DSD ", n), sound}); };
    expectLogs(
        "x.dff",
        {
            // Missing properties are reported in order.
            {"only CMPR", props({cmpr}), line(44, "Fatal", "Missing FS property")},
            {"too short for one", dffFile({iff64Chunk("PROP", ByteBuilder().str("SND ").zeros(8)), sound}),
             line(44, "Fatal", "Missing FS property")},
            {"no property at all", dffFile({iff64Chunk("PROP", ByteBuilder().str("SND ")), sound}),
             line(44, "Fatal", "Missing FS property")},
            // Each property only once.
            {"two FS", props({fs, fs, chnl, cmpr}), line(64, "Fatal", "Duplicate FS property")},
            {"two CHNL", props({fs, chnl, dffChnlProperty(1), cmpr}),
             line(86, "Fatal", "Duplicate CHNL property")},
            {"two CMPR", props({cmpr, fs, chnl, cmpr}), line(118, "Fatal", "Duplicate CMPR property")},
            {"0 channels", channels(0), line(64, "Fatal", "Invalid number of channels (0)")},
            {"7 channels", channels(7), line(64, "Fatal", "Invalid number of channels (7)")},
        });
    // Every channel count from 1 to 6 has a channel mode.
    for (uint16_t n = 1; n <= 6; ++n) EXPECT_EQ(problemsFor("x.dff", channels(n)), "") << n;
}

TEST(DffTag, SoundAndID3Chunks) {
    // An ID3 property alone is read: its tag starts 12 bytes after the property header at 118.
    const Bytes propWithID3 = dffPropChunk(
        {dffFsProperty(), dffChnlProperty(), dffCmprProperty(), iff64Chunk("ID3 ", badVersionTag())});
    const Bytes first = iff64Chunk("ID3 ", cleanTag());
    const std::string badVersion = "Invalid ID3 version 2.5.0";
    expectLogs(
        "x.dff",
        {
            {"two DST", dffFile({kDstProps, dffDstChunk(), dffDstChunk()}),
             line(114 + dffDstChunk().size(), "Fatal", "File contains more than one sound chunk")},
            {"overflow", dffFile({kProps, ByteBuilder().str("DSD ").be64(1000).zeros(20).take()}),
             line(118, "Fatal", "Chunk overflows. size=1000, next offset=1130, file size=150")},
            {"ID3 first", dffFile({kProps, iff64Chunk("ID3 ", cleanTag()), dffDsdChunk()}),
             line(118, "Fatal", "ID3 tag precedes sound chunk")},
            {"no sound", dffFile({kProps, iff64Chunk("COMT", ByteBuilder().zeros(30))}),
             line(0, "Fatal", "Missing DSD or DST sound chunk")},
            {"nothing after PROP",
             dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty(), dffCmprProperty(),
                                    iff64Chunk("LSCO", ByteBuilder().zeros(20))})}),
             line(0, "Fatal", "Missing DSD or DST sound chunk")},
            // The last ID3 chunk is read; a top-level one wins over the property.
            {"ID3 property", dffFile({propWithID3, dffDsdChunk()}), line(130, "Framing", badVersion)},
            {"property, then chunk", dffFile({propWithID3, dffDsdChunk(), iff64Chunk("id3 ", cleanTag())}),
             ""},
            {"clean then bad", dffFile({kProps, dffDsdChunk(), first, iff64Chunk("ID3 ", badVersionTag())}),
             line(194 + first.size() + 12, "Framing", badVersion)},
            {"bad then clean", dffFile({kProps, dffDsdChunk(), iff64Chunk("ID3 ", badVersionTag()), first}),
             ""},
        });
}

}  // namespace
}  // namespace sondrel
