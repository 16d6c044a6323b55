// The WAV and RF64 checker: header, chunk walk, recovery, sizes, ID3 chunks.
#include "formats/chunked/WavTag.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/Settings.h"
#include "core/Tag.h"
#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
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
std::string sizeLine(const char* kind, uint64_t declared, uint64_t adjusted) {
    return line(0, "Container",
                std::string("The ") + kind + " contained file size of " + std::to_string(declared) +
                    " does not represent the adjusted file size of " + std::to_string(adjusted));
}
std::string wav(const Bytes& b) {
    return problemsFor("x.wav", b);
}
Bytes dataChunk(size_t n) {
    return riffChunk("data", ByteBuilder().fill(n, 0x11));
}
Bytes withByte(Bytes b, uint8_t v) {
    b.push_back(v);
    return b;
}

// Layout used below: header 0..11, fmt 12..35, next chunk at 36.
const Bytes kFmt = wavFmtChunk();

TEST(WavHeader, RefusesWhatIsNotAWaveFile) {
    EXPECT_EQ(wav(ByteBuilder().str("RIFF").le32(3).str("WAV").take()),
              line(0, "Fatal", "File too small for header"));
    EXPECT_EQ(wav(ByteBuilder().str("RIFX").le32(4).str("WAVE").take()), line(0, "Fatal", "Missing RIFF id"));
    EXPECT_EQ(wav(ByteBuilder().str("RIFF").le32(4).str("AVI ").take()),
              line(0, "Fatal", "The file is not marked as WAVE"));
}

TEST(WavHeader, FilesOfTwelveToNineteenBytesOnlyGetTheSizeCheck) {
    EXPECT_EQ(wav(ByteBuilder().str("RIFF").le32(4).str("WAVE").take()), "");
    // Seven bytes that cannot hold a chunk header are ignored.
    EXPECT_EQ(wav(ByteBuilder().str("RIFF").le32(11).str("WAVE").str("fmt ").zeros(3).take()), "");
    EXPECT_EQ(wav(ByteBuilder().str("RIFF").le32(4).str("WAVE").str("fmt ").zeros(3).take()),
              sizeLine("RIFF", 4, 11));
}

TEST(WavSize, OneTrailingByteIsToleratedAndNothingElse) {
    const Bytes clean = wavFile({kFmt, dataChunk(4)});
    EXPECT_EQ(wav(clean), "");
    EXPECT_EQ(wav(withByte(clean, 0)), "");
    EXPECT_EQ(wav(withByte(withByte(clean, 0), 0)), sizeLine("RIFF", 40, 42));
    Bytes shortByOne = clean;
    ByteBuilder patched(shortByOne);
    patched.patchLE32(4, 41);
    EXPECT_EQ(wav(patched.take()), sizeLine("RIFF", 41, 40));
}

TEST(WavWalk, OddChunksAreFollowedByAPadByteExceptAtTheVeryEnd) {
    // An odd data chunk with its pad byte, then more chunks.
    EXPECT_EQ(wav(wavFile({kFmt, dataChunk(3), riffChunk("junk", ByteBuilder().fill(5, 1))})), "");
    // The last chunk is odd and the file ends without its pad byte: the
    // overflow test does not count the pad byte.
    EXPECT_EQ(wav(wavFile({kFmt, riffChunk("data", ByteBuilder().fill(3, 1), false)})), "");
    // Identifier bytes 32 and 126 are printable; unknown chunks are skipped.
    EXPECT_EQ(wav(wavFile({kFmt, riffChunk(" ~ab", {}), dataChunk(2)})), "");
}

TEST(WavWalk, ZeroSizeFirstDataChunkLetsASecondPassButNotAThird) {
    EXPECT_EQ(wav(wavFile({kFmt, dataChunk(0), dataChunk(4)})), "");
    EXPECT_EQ(wav(wavFile({kFmt, dataChunk(4), dataChunk(4)})),
              line(48, "Fatal", "The file contains more than one data chunk"));
}

TEST(WavWalk, FormatChunkMustHoldSixteenBytes) {
    EXPECT_EQ(wav(wavFile({riffChunk("fmt ", ByteBuilder().zeros(14)), dataChunk(4)})),
              line(12, "Fatal", "Invalid fmt chunk data"));
    // The extensible form of 40 bytes is accepted.
    EXPECT_EQ(wav(wavFile({riffChunk("fmt ", ByteBuilder().zeros(40)), dataChunk(4)})), "");
}

TEST(WavWalk, SmallListChunksAreAcceptedUnread) {
    EXPECT_EQ(wav(wavFile({kFmt, riffChunk("LIST", ByteBuilder().str("INFO")), dataChunk(2)})), "");
}

TEST(WavRecovery, OverrunAfterFormatAndDataIsClippedAndTheWalkEnds) {
    const Bytes f = wavFile({kFmt, dataChunk(4), rawRiffChunk("junk", 100, ByteBuilder().zeros(10))});
    EXPECT_EQ(wav(f),
              line(48, "Framing", "The file was truncated due to overflow. Sufficient data to recover"));
}

TEST(WavRecovery, OverrunOfTheDataChunkItselfAfterFormatRecovers) {
    const Bytes f = wavFile({kFmt, rawRiffChunk("data", 1000, ByteBuilder().zeros(20))});
    EXPECT_EQ(wav(f),
              line(36, "Framing", "The file was truncated due to overflow. Sufficient data to recover"));
}

TEST(WavRecovery, OverrunBeforeFormatOrDataIsUnrecoverable) {
    EXPECT_EQ(wav(wavFile({rawRiffChunk("data", 1000, ByteBuilder().zeros(20))})),
              line(12, "Fatal",
                   "Unrecoverable chunk error:\n\n0000000012 0000001000 0000001020 0000000040  "
                   "0x64 0x61 0x74 0x61 -fmt"));
    EXPECT_EQ(wav(wavFile({kFmt, rawRiffChunk("bext", 1000, ByteBuilder().zeros(4))})),
              line(36, "Fatal",
                   "Unrecoverable chunk error:\n\n0000000036 0000001000 0000001044 0000000048  "
                   "0x62 0x65 0x78 0x74 -data"));
    EXPECT_EQ(wav(wavFile({rawRiffChunk("bext", 0x80000000u, ByteBuilder().zeros(4))})),
              line(12, "Fatal",
                   "Unrecoverable chunk error:\n\n0000000012 2147483648 2147483668 0000000024  "
                   "0x62 0x65 0x78 0x74 -data -fmt"));
}

TEST(WavRecovery, GarbledHeaderEndsTheWalkOnlyAfterFormatAndData) {
    const std::string bad("\x01xyz", 4);
    EXPECT_EQ(wav(wavFile({kFmt, rawRiffChunk(bad, 4, ByteBuilder().zeros(4))})),
              line(36, "Framing", "Invalid chunk header") +
                  line(36, "Framing", "The file was truncated due to overflow") +
                  line(36, "Fatal",
                       "Unrecoverable chunk error:\n\n0000000036 0000000004 0000000048 0000000048  "
                       "0x01 0x78 0x79 0x7a -data"));
    // After both, the garbled chunk ends the walk; the size check still runs.
    const std::string del("\x7fxyz", 4);
    EXPECT_EQ(wav(wavFile({kFmt, dataChunk(4), rawRiffChunk(del, 4, ByteBuilder().zeros(4))})),
              line(48, "Framing", "Invalid chunk header"));
    Bytes f = wavFile({kFmt, dataChunk(4), rawRiffChunk(del, 4, ByteBuilder().zeros(4))});
    f.push_back(0);
    f.push_back(0);
    EXPECT_EQ(wav(f), line(48, "Framing", "Invalid chunk header") + sizeLine("RIFF", 52, 54));
}

TEST(WavRF64, DataSizeComesFromDs64) {
    EXPECT_EQ(wav(rf64File({kFmt, rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().zeros(16))}, 16)), "");
    // The overflow test and the dump use the size from ds64.
    EXPECT_EQ(wav(rf64File({kFmt, rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().zeros(16))}, 5000000000)),
              line(72, "Framing", "The file was truncated due to overflow. Sufficient data to recover"));
    EXPECT_EQ(wav(rf64File({rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().zeros(16))}, 5000000000)),
              line(48, "Fatal",
                   "Unrecoverable chunk error:\n\n0000000048 5000000000 5000000056 0000000072  "
                   "0x64 0x61 0x74 0x61 -fmt"));
}

TEST(WavRF64, Ds64MustComeFirstAndOnlyDataMayBeExtended) {
    Bytes noDs64 = wavFile({kFmt, dataChunk(4)});
    noDs64[1] = 'F', noDs64[2] = '6', noDs64[3] = '4';
    EXPECT_EQ(wav(noDs64), line(12, "File", "Missing ds64 chunk for WAV-RF64 file"));
    EXPECT_EQ(wav(rf64File({rawRiffChunk("fmt ", 0xFFFFFFFF, ByteBuilder().zeros(16))}, 0)),
              line(48, "File", "WAV-RF64 file only extended 'data' chunks can be processed"));
    EXPECT_EQ(wav(rf64File({kFmt, ds64Chunk(0, 0), dataChunk(4)}, 0)),
              line(72, "Framing", "More than one ds64 chunk"));
    // The 16 size bytes are read even from a shorter ds64 chunk.
    EXPECT_EQ(wav(ByteBuilder().str("RF64").le32(20).str("WAVE").bytes(riffChunk("ds64", Bytes(8))).take()),
              line(12, "File", "Read error"));
}

TEST(WavRF64, OnlyAnAllOnesHeaderSizeIsReplacedByTheDs64Size) {
    const Bytes good = rf64File({kFmt, rawRiffChunk("data", 0xFFFFFFFF, ByteBuilder().zeros(16))}, 16);
    ByteBuilder wrongDs64(good);
    wrongDs64.patchLE32(20, 180);
    EXPECT_EQ(wav(wrongDs64.take()), sizeLine("RF64", 180, 88));
    ByteBuilder plainHeader(good);
    plainHeader.patchLE32(4, 88);
    EXPECT_EQ(wav(plainHeader.take()), "");
    ByteBuilder wrongHeader(good);
    wrongHeader.patchLE32(4, 1000);
    EXPECT_EQ(wav(wrongHeader.take()), sizeLine("RF64", 1000, 88));
}

TEST(WavRF64, Ds64InAPlainRiffFileIsReportedAndTheWalkGoesOn) {
    EXPECT_EQ(wav(wavFile({ds64Chunk(0, 0), kFmt, dataChunk(4)})),
              line(12, "Fatal", "Invalid ds64 chunk data"));
    EXPECT_EQ(wav(wavFile({ds64Chunk(0, 0), ds64Chunk(0, 0), kFmt})),
              line(12, "Fatal", "Invalid ds64 chunk data") + line(48, "Framing", "More than one ds64 chunk"));
}

// Tags for the ID3 chunk tests: a clean one and one that the header reader
// refuses with a message.
Bytes cleanTag() {
    return id3Tag(3, id3Frame("TIT2", id3Text("Title")), 0, 8);
}
Bytes badVersionTag() {
    Bytes t = cleanTag();
    t[3] = 5;
    return t;
}

TEST(WavID3, OnlyTheLastID3ChunkIsRead) {
    // Offsets: fmt 12, data 36, first ID3 chunk 48 (tag at 56), the second
    // after it.
    const Bytes first = riffChunk("id3 ", badVersionTag());
    const Bytes second = riffChunk("ID3 ", cleanTag());
    EXPECT_EQ(wav(wavFile({kFmt, dataChunk(4), first, second})), "");
    const uint64_t secondTag = 48 + first.size() + 8;
    EXPECT_EQ(
        wav(wavFile({kFmt, dataChunk(4), riffChunk("ID3 ", cleanTag()), riffChunk("id3 ", badVersionTag())})),
        line(secondTag, "Framing", "Invalid ID3 version 2.5.0"));
}

TEST(WavID3, ASilentlyRefusedLastTagStillCountsAsRead) {
    // The last chunk holds no tag at all: nothing is logged and the earlier,
    // broken tag is not read either.
    Bytes noTag = cleanTag();
    noTag[0] = 'X';
    EXPECT_EQ(
        wav(wavFile({kFmt, dataChunk(4), riffChunk("id3 ", badVersionTag()), riffChunk("id3 ", noTag)})), "");
}

TEST(WavRegions, ChunksAreSortedIntoKeepAndRemoveRegions) {
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
    ASSERT_EQ(checker.getKeepRegions().size(), 5u);
    ASSERT_EQ(checker.getRemoveRegions().size(), 2u);
    const auto& keep = checker.getKeepRegions();
    EXPECT_EQ(keep[0].chunkType(), fourcc("    "));
    EXPECT_EQ(keep[0].size(), 12u);
    EXPECT_EQ(keep[1].chunkType(), fourcc("fmt "));
    EXPECT_EQ(keep[2].chunkType(), fourcc("LIST"));
    EXPECT_EQ(keep[2].offset(), 36u + info.size());
    EXPECT_TRUE(keep[2].oddSize());
    EXPECT_EQ(keep[2].size(), adtl.size());
    EXPECT_EQ(keep[3].chunkType(), fourcc("data"));
    EXPECT_EQ(keep[3].size(), 12u);
    // The overrunning last chunk is clipped to the file's end.
    EXPECT_EQ(keep[4].chunkType(), fourcc("junk"));
    EXPECT_TRUE(keep[4].truncated());
    EXPECT_EQ(keep[4].size(), 12u);
    EXPECT_FALSE(keep[3].truncated());
    const auto& remove = checker.getRemoveRegions();
    EXPECT_EQ(remove[0].chunkType(), fourcc("LIST"));
    EXPECT_EQ(remove[0].offset(), 36u);
    EXPECT_EQ(remove[1].chunkType(), fourcc("id3 "));
}

// Real files written by encoders during the test run give no problem lines.
TEST(WavRealFiles, EncoderOutputIsClean) {
    TempDir dir;
    int made = 0;
    if (haveTool("sox")) {
        const std::string p = dir.path() + "/sox.wav";
        ASSERT_TRUE(run("sox -n -r 44100 -c 2 -b 16 '" + p + "' synth 0.2 sine 440"));
        EXPECT_EQ(problemsForFile(p), "") << p;
        const std::string q = dir.path() + "/sox24.wav";
        ASSERT_TRUE(run("sox -n -r 48000 -c 1 -b 24 '" + q + "' synth 0.1 sine 1000"));
        EXPECT_EQ(problemsForFile(q), "") << q;
        ++made;
    }
    if (haveTool("ffmpeg")) {
        const std::string ff =
            "ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i sine=frequency=440:duration=0.2 ";
        const std::string p = dir.path() + "/info.wav";
        ASSERT_TRUE(run(ff + "-metadata title=Sinewave -metadata artist=Tester '" + p + "'"));
        EXPECT_EQ(problemsForFile(p), "") << p;
        const std::string r = dir.path() + "/rf64.wav";
        ASSERT_TRUE(run(ff + "-rf64 always -metadata title=Sinewave '" + r + "'"));
        EXPECT_EQ(problemsForFile(r), "") << r;
        ++made;
    }
    if (made == 0) GTEST_SKIP() << "neither sox nor ffmpeg is installed";
}

}  // namespace
}  // namespace sondrel
