// The AIFF/AIFF-C checker: FORM header and size, chunk walk and its overflow
// rules, COMM, and the handling of one or more ID3 chunks.
#include <gtest/gtest.h>

#include <string>

#include "formats/chunked/AiffTag.h"
#include "tests/fixtures/AiffBuilder.h"
#include "tests/formats/chunked/ChunkedTestUtil.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::chunked;
using namespace fixtures::chunkedtest;

// A chunk header that declares `declared` bytes followed by only `present` bytes.
Bytes shortChunk(std::string_view id, uint32_t declared, size_t present) {
    return ByteBuilder().str(id).be32(declared).zeros(present).take();
}
Bytes patchedBE32(Bytes b, size_t at, uint32_t v) {
    return ByteBuilder(std::move(b)).patchBE32(at, v).take();
}

// COMM at 12..38 and SSND at 38..70 in every file below.
const Bytes kComm = aiffComm();
const Bytes kSsnd = aiffSsnd(16);

TEST(AiffTag, HeaderSizeAndWalkEnd) {
    Bytes riff = aiffForm({kComm, kSsnd});
    std::copy_n("RIFF", 4, riff.begin());
    expectLogs("x.aiff",
               {
                   {"too small", Bytes(10, 'F'), line(0, "Fatal", "Invalid file size")},
                   {"too short", ByteBuilder().str("FORM").be32(3).str("AIF").take(),
                    line(0, "Fatal", "Insufficient data to contain a valid AIFF file")},
                   {"not FORM", riff, line(0, "Fatal", "Missing FORM chunk")},
                   // The size is judged before the form type.
                   {"size before type", concat({aiffForm({kComm, kSsnd}, "WAVE"), Bytes(2)}),
                    sizeLine(62, 64) + line(0, "Fatal", "Invalid FORM type")},
                   {"AIFC", aiffForm({kComm, kSsnd}, "AIFC"), ""},
                   {"one trailing byte", concat({aiffForm({kComm, kSsnd}), Bytes(1)}), ""},
                   // An odd last chunk whose pad byte the FORM size leaves out.
                   {"uncounted pad", patchedBE32(aiffForm({kComm, aiffSsnd(15)}), 4, 61), ""},
                   // Without its pad byte at the very end: no overflow, but the
                   // rounded FORM size no longer matches.
                   {"missing pad", aiffForm({kComm, iffChunk("SSND", Bytes(23), false)}), sizeLine(62, 61)},
                   // A FORM size too large lets the walk go on, but a header that
                   // would end exactly at the end of the file is not read.
                   {"header at file end",
                    patchedBE32(concat({aiffForm({kComm, kSsnd}), ByteBuilder().str("COMM").be32(0).take()}),
                                4, 200),
                    sizeLine(200, 70)},
               });
}

TEST(AiffTag, CommRules) {
    // A COMM whose 80-bit rate has this sign and exponent word and this mantissa.
    auto rate = [](uint32_t exponent, uint64_t mantissa) {
        return aiffForm({iffChunk("COMM", aiffCommBody(ByteBuilder().be16(exponent).be64(mantissa))), kSsnd});
    };
    const Bytes aifcComm =
        concat({aiffCommBody(extended80(48000)), ByteBuilder().str("NONE").u8(0).u8(0).take()});
    expectLogs(
        "x.aiff",
        {
            {"only the type", ByteBuilder().str("FORM").be32(4).str("AIFF").take(),
             line(12, "Fatal", "Missing COMM chunk")},
            {"no room for a chunk", ByteBuilder().str("FORM").be32(12).str("AIFF").str("SSND").be32(0).take(),
             line(20, "Fatal", "Missing COMM chunk")},
            {"negative zero", rate(0x8000, 0), line(12, "Container", "The sample rate is 0")},
            // The smallest denormal is 0 as a double; a rate beyond a double's range is not.
            {"denormal rate", rate(0, 1), line(12, "Container", "The sample rate is 0")},
            {"huge rate", rate(0x7ffe, 1ull << 63), ""},
            // 2^-1074, the smallest double above 0 (exponent bias 16383, 63 fraction bits).
            {"smallest rate", rate(16383 + 63 - 1137, 1ull << 63), ""},
            // Only an exact zero counts: a rate that is not a number passes.
            {"NaN rate", rate(0x7fff, 0xC000000000000000), ""},
            {"AIFF-C COMM", aiffForm({iffChunk("COMM", aifcComm), kSsnd}, "AIFC"), ""},
        });
}

TEST(AiffTag, OverflowsAndID3Chunks) {
    // A writer counted the pad byte of an odd (27-byte) tag in the chunk size.
    const Bytes oddTag = id3Tag(3, id3TextFrame(3, "TIT2", "Titles"), 0x20);
    ASSERT_EQ(oddTag.size(), 27u);
    const Bytes id3 = iffChunk("ID3 ", experimentalTag());  // 34 bytes
    const std::string multiple = "Multiple ID3 chunks";
    expectLogs(
        "x.aiff",
        {
            {"before SSND", aiffForm({kComm, shortChunk("APPL", 100, 4)}),
             line(38, "Fatal", "Chunk overflows: size=100, next offset=146, file size=50")},
            {"after SSND", aiffForm({kComm, kSsnd, shortChunk("APPL", 100, 4)}),
             line(70, "Container", "Chunk overflows (recoverable): size=100, next offset=178, file size=82")},
            {"SSND itself", aiffForm({kComm, shortChunk("SSND", 1000, 24)}),
             line(38, "Container",
                  "Audio chunk overflows (recoverable): size=1000, next offset=1046, file size=70")},
            // "Recoverable" still ends the check: no missing-COMM verdict follows.
            {"recoverable ends", aiffForm({kSsnd, shortChunk("COMM", 18, 2)}),
             line(44, "Container", "Chunk overflows (recoverable): size=18, next offset=70, file size=54")},
            {"ID3 one byte short",
             aiffForm({kComm, kSsnd, concat({ByteBuilder().str("ID3 ").be32(28).take(), oddTag})}),
             sizeLine(98, 97) + line(70, "Container", "ID3 chunk overflows by one byte") +
                 line(78, "Tag", kExperimental)},
            // An odd declared size one byte short is an ordinary overrun.
            {"odd ID3 short",
             aiffForm({kComm, kSsnd,
                       concat({ByteBuilder().str("ID3 ").be32(27).take(),
                               Bytes(oddTag.begin(), oddTag.end() - 1)})}),
             line(70, "Container", "Chunk overflows (recoverable): size=27, next offset=105, file size=104")},
            // Followed by another chunk: fatal at the end of the walk.
            {"two before SSND", aiffForm({kComm, id3, id3, kSsnd}),
             line(46, "Tag", kExperimental) + line(72, "Container", multiple) + line(138, "Fatal", multiple)},
            {"chunk larger than tag",
             aiffForm({kComm, kSsnd, iffChunk("ID3 ", concat({experimentalTag(), Bytes(4)}))}),
             line(78, "Tag", kExperimental) +
                 line(70, "Container", "ID3 contained size does not reflect chunk size")},
            {"clean tag", aiffForm({kComm, kSsnd, iffChunk("ID3 ", cleanTag())}), ""},
            // A tag the reader refuses with a message stops the walk (no second-COMM line).
            {"refused tag", aiffForm({kComm, kSsnd, iffChunk("ID3 ", badVersionTag()), kComm}),
             line(78, "Framing", "Invalid ID3 version 2.5.0")},
        });
}

// A file beyond 4 GiB, written sparse: the walk's offsets pass 32 bits and
// the audio in between is never read.
TEST(AiffTag, ChunksBeyondFourGiB) {
    TempDir dir;
    const std::string path = dir.path() + "/big.aiff";
    const uint32_t big = 0xFFFFFF00;
    const Bytes head = concat({ByteBuilder().str("FORM").be32(0xFFFFFFFF).str("AIFF").take(), kComm,
                               ByteBuilder().str("APPL").be32(big).take()});
    const uint64_t ssndAt = head.size() + uint64_t(big);
    const Bytes tail = concat({kSsnd, iffChunk("ID3 ", experimentalTag())});
    writeSparse(path, head, ssndAt, tail);
    EXPECT_EQ(problemsForFile(path), sizeLine(4294967296, ssndAt + tail.size() - 8) +
                                         line(ssndAt + kSsnd.size() + 8, "Tag", kExperimental));
}

}  // namespace
}  // namespace sondrel
