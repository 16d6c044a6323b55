// The WAV and RF64 checker: header, chunk walk, recovery, sizes, ID3 chunks.
#include "formats/chunked/WavTag.h"

#include <gtest/gtest.h>

#include <string>

#include "core/Settings.h"
#include "core/Tag.h"
#include "core/Text.h"
#include "tests/fixtures/WavBuilder.h"
#include "tests/formats/chunked/ChunkedTestUtil.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::chunkedtest;

Bytes dataChunk(size_t n) {
    return riffChunk("data", ByteBuilder().fill(n, 0x11));
}
const std::string kRecovered = "The file was truncated due to overflow. Sufficient data to recover";
// The walk's dump of the chunk it cannot recover from.
std::string unrecoverable(uint64_t offset, const std::string& dump) {
    return line(offset, "Fatal", "Unrecoverable chunk error:\n\n" + dump);
}

// Layout used below: header 0..11, fmt 12..35, next chunk at 36.
const Bytes kFmt = wavFmtChunk();

TEST(WavTag, HeaderSizeAndWalk) {
    const Bytes clean = wavFile({kFmt, dataChunk(4)});
    expectLogs(
        "x.wav",
        {
            {"too small", ByteBuilder().str("RIFF").le32(3).str("WAV").take(),
             line(0, "Fatal", "File too small for header")},
            {"RIFX", ByteBuilder().str("RIFX").le32(4).str("WAVE").take(),
             line(0, "Fatal", "Missing RIFF id")},
            {"AVI", ByteBuilder().str("RIFF").le32(4).str("AVI ").take(),
             line(0, "Fatal", "The file is not marked as WAVE")},
            // Files of 12 to 19 bytes only get the size check: seven bytes that
            // cannot hold a chunk header are ignored.
            {"header only", ByteBuilder().str("RIFF").le32(4).str("WAVE").take(), ""},
            {"seven bytes", ByteBuilder().str("RIFF").le32(11).str("WAVE").str("fmt ").zeros(3).take(), ""},
            {"seven bytes, wrong size",
             ByteBuilder().str("RIFF").le32(4).str("WAVE").str("fmt ").zeros(3).take(),
             sizeLine(4, 11, "RIFF")},
            // One trailing byte is tolerated and nothing else.
            {"clean", clean, ""},
            {"one trailing byte", concat({clean, Bytes(1)}), ""},
            {"two trailing bytes", concat({clean, Bytes(2)}), sizeLine(40, 42, "RIFF")},
            {"short by one", patched(clean, {{4, 41, 4}}), sizeLine(41, 40, "RIFF")},
            // Odd chunks are followed by a pad byte except at the very end,
            // where the overflow test does not count it.
            {"odd with pad", wavFile({kFmt, dataChunk(3), riffChunk("junk", ByteBuilder().fill(5, 1))}), ""},
            {"odd last without pad", wavFile({kFmt, riffChunk("data", ByteBuilder().fill(3, 1), false)}), ""},
            // Identifier bytes 32 and 126 are printable; unknown chunks are skipped.
            {"printable id", wavFile({kFmt, riffChunk(" ~ab", {}), dataChunk(2)}), ""},
            {"two data", wavFile({kFmt, dataChunk(4), dataChunk(4)}),
             line(48, "Fatal", "The file contains more than one data chunk")},
            {"fmt too small", wavFile({riffChunk("fmt ", ByteBuilder().zeros(14)), dataChunk(4)}),
             line(12, "Fatal", "Invalid fmt chunk data")},
            {"extensible fmt", wavFile({riffChunk("fmt ", ByteBuilder().zeros(40)), dataChunk(4)}), ""},
            {"small LIST unread", wavFile({kFmt, riffChunk("LIST", ByteBuilder().str("INFO")), dataChunk(2)}),
             ""},
        });
}

TEST(WavTag, RecoveryAndID3Chunks) {
    // Offsets: fmt 12, data 36, first ID3 chunk 48 (tag at 56), the second after it.
    const Bytes badID3 = riffChunk("id3 ", badVersionTag());
    Bytes noTag = cleanTag();
    noTag[0] = 'X';
    const std::string bad("\x01xyz", 4), del("xyz\x7f", 4);
    const Bytes delAfterData = wavFile({kFmt, dataChunk(4), rawRiffChunk(del, 4, ByteBuilder().zeros(4))});
    expectLogs(
        "x.wav",
        {
            // After fmt and data an overrun is clipped and the walk ends.
            {"overrun after data",
             wavFile({kFmt, dataChunk(4), rawRiffChunk("junk", 100, ByteBuilder().zeros(10))}),
             line(48, "Framing", kRecovered)},
            {"data overrun after fmt", wavFile({kFmt, rawRiffChunk("data", 1000, ByteBuilder().zeros(20))}),
             line(36, "Framing", kRecovered)},
            // Before fmt or data it is not.
            {"data before fmt", wavFile({rawRiffChunk("data", 1000, ByteBuilder().zeros(20))}),
             unrecoverable(12, "0000000012 0000001000 0000001020 0000000040  0x64 0x61 0x74 0x61 -fmt")},
            {"before data", wavFile({kFmt, rawRiffChunk("bext", 1000, ByteBuilder().zeros(4))}),
             unrecoverable(36, "0000000036 0000001000 0000001044 0000000048  0x62 0x65 0x78 0x74 -data")},
            {"huge, neither", wavFile({rawRiffChunk("bext", 0x80000000u, ByteBuilder().zeros(4))}),
             unrecoverable(12,
                           "0000000012 2147483648 2147483668 0000000024  0x62 0x65 0x78 0x74 -data -fmt")},
            {"garbled before data", wavFile({kFmt, rawRiffChunk(bad, 4, ByteBuilder().zeros(4))}),
             line(36, "Framing", "Invalid chunk header") +
                 line(36, "Framing", "The file was truncated due to overflow") +
                 unrecoverable(36, "0000000036 0000000004 0000000048 0000000048  0x01 0x78 0x79 0x7a -data")},
            // After both, the garbled chunk ends the walk; the size check still runs.
            {"garbled after data", delAfterData, line(48, "Framing", "Invalid chunk header")},
            {"garbled, then size", concat({delAfterData, Bytes(2)}),
             line(48, "Framing", "Invalid chunk header") + sizeLine(52, 54, "RIFF")},
            // A last chunk without a tag still counts as read: the earlier,
            // broken tag is not read either.
            {"bad then none", wavFile({kFmt, dataChunk(4), badID3, riffChunk("id3 ", noTag)}), ""},
        });
}

TEST(WavTag, RF64) {
    const Bytes bigData = rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().zeros(16));
    const Bytes good = rf64File({kFmt, bigData}, 16);
    Bytes noDs64 = wavFile({kFmt, dataChunk(4)});
    std::copy_n("RF64", 4, noDs64.begin());
    expectLogs(
        "x.wav",
        {
            {"clean", good, ""},
            // The dump uses the data size from ds64.
            {"ds64 size, no fmt", rf64File({bigData}, 5000000000),
             unrecoverable(48, "0000000048 5000000000 5000000056 0000000072  0x64 0x61 0x74 0x61 -fmt")},
            // Only an all-ones header size is replaced by the ds64 size.
            {"plain header size", patched(good, {{4, 88, 4}}), ""},
            // ds64 must come first, and only data may be extended.
            {"no ds64", noDs64, line(12, "File", "Missing ds64 chunk for WAV-RF64 file")},
            {"extended fmt", rf64File({rawRiffChunk("fmt ", 0xFFFFFFFF, ByteBuilder().zeros(16))}, 0),
             line(48, "File", "WAV-RF64 file only extended 'data' chunks can be processed")},
            {"second ds64", rf64File({kFmt, ds64Chunk(0, 0), dataChunk(4)}, 0),
             line(72, "Framing", "More than one ds64 chunk")},
            // In a plain RIFF file ds64 is reported and the walk goes on.
            {"ds64 in RIFF", wavFile({ds64Chunk(0, 0), kFmt, dataChunk(4)}),
             line(12, "Fatal", "Invalid ds64 chunk data")},
            {"two ds64 in RIFF", wavFile({ds64Chunk(0, 0), ds64Chunk(0, 0), kFmt}),
             line(12, "Fatal", "Invalid ds64 chunk data") + line(48, "Framing", "More than one ds64 chunk")},
        });
}

// Each region as "type@offset+size", marked "odd" for an odd data size and
// "cut" when clipped at the file's end.
std::string describe(const std::vector<ChunkRegion>& regions) {
    std::string out;
    for (const auto& r : regions)
        out += "[" + text::fourCCString(r.chunkType()) + "@" + std::to_string(r.offset()) + "+" +
               std::to_string(r.size()) + (r.oddSize() ? " odd" : "") + (r.truncated() ? " cut" : "") + "]";
    return out;
}

TEST(WavTag, ChunksAreSortedIntoKeepAndRemoveRegions) {
    TempDir dir;
    const Bytes info =
        riffChunk("LIST", ByteBuilder().str("INFO").bytes(riffChunk("INAM", ByteBuilder().str("ab"))));
    const Bytes adtl = riffChunk("LIST", ByteBuilder().str("adtl").zeros(9));
    const std::string path =
        dir.write("r.wav", wavFile({kFmt, info, adtl, dataChunk(3), riffChunk("id3 ", cleanTag()),
                                    rawRiffChunk("junk", 100, ByteBuilder().zeros(4))}));
    const Settings settings = settingsWith();
    Tag tag(path, settings, Tag::NoAnalysis{});
    WavTag checker(path, tag);
    // INFO lists and ID3 chunks are removable; the overrunning last chunk is clipped.
    EXPECT_EQ(describe(checker.getKeepRegions()),
              "[    @0+12][fmt @12+24][LIST@58+22 odd][data@80+12 odd][junk@150+12 cut]");
    EXPECT_EQ(describe(checker.getRemoveRegions()), "[LIST@36+22][id3 @92+58 odd]");
}

}  // namespace
}  // namespace sondrel
