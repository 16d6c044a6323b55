// The AIFF/AIFF-C checker: FORM header and size, chunk walk and its overflow
// rules, COMM, and the handling of one or more ID3 chunks.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "formats/chunked/AiffTag.h"
#include "tests/fixtures/AiffBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/SimpleID3Tag.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::chunked;

std::string line(uint64_t offset, const char* category, const std::string& message) {
    char head[32];
    std::snprintf(head, sizeof head, "    %012" PRIu64 "  ", offset);
    return head + std::string(category) + ": " + message + "\n";
}

std::string aiff(const Bytes& b) {
    return problemsFor("x.aiff", b);
}

// A chunk header that declares `declared` bytes followed by only `present` bytes.
Bytes shortChunk(std::string_view id, uint32_t declared, size_t present) {
    return ByteBuilder().str(id).be32(declared).zeros(present).take();
}

// A 26-byte tag (even) that the reader announces by its experimental flag.
Bytes evenTag() {
    return id3v23Tag({id3v23Text("TIT2", "Title")}, 0, kID3Experimental);
}
const std::string kExperimental = "Experimental bit is set in the tag header";

// COMM at 12..38 and SSND at 38..70 in every file below.
const Bytes kComm = aiffComm();
const Bytes kSsnd = aiffSsnd(16);

TEST(AiffTag, HeaderRules) {
    EXPECT_EQ(aiff(Bytes(10, 'F')), line(0, "Fatal", "Invalid file size"));
    EXPECT_EQ(aiff(ByteBuilder().str("FORM").be32(3).str("AIF").take()),
              line(0, "Fatal", "Insufficient data to contain a valid AIFF file"));

    Bytes riff = aiffForm({kComm, kSsnd});
    std::copy_n("RIFF", 4, riff.begin());
    EXPECT_EQ(aiff(riff), line(0, "Fatal", "Missing FORM chunk"));

    // The size is judged before the form type.
    Bytes wrongType = aiffForm({kComm, kSsnd}, "WAVE");
    wrongType.resize(wrongType.size() + 2);
    EXPECT_EQ(aiff(wrongType),
              line(0, "Container",
                   "The contained file size of 62 does not represent the adjusted file size of 64") +
                  line(0, "Fatal", "Invalid FORM type"));
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd}, "AIFC")), "");
}

TEST(AiffTag, FormSizeAllowsOneTrailingByteAndAnUncountedPadByte) {
    Bytes plusOne = aiffForm({kComm, kSsnd});
    plusOne.push_back(0);
    EXPECT_EQ(aiff(plusOne), "");

    // An odd last chunk whose pad byte the FORM size leaves out.
    Bytes oddLast = aiffForm({kComm, aiffSsnd(15)});
    ASSERT_EQ(oddLast.size(), 70u);
    oddLast = ByteBuilder(oddLast).patchBE32(4, 61).take();
    EXPECT_EQ(aiff(oddLast), "");

    // The same chunk without its pad byte at the very end: no overflow, but
    // the rounded FORM size no longer matches.
    EXPECT_EQ(aiff(aiffForm({kComm, iffChunk("SSND", Bytes(23), false)})),
              line(0, "Container",
                   "The contained file size of 62 does not represent the adjusted file size of 61"));
}

TEST(AiffTag, WalkEndsAtTheDeclaredFormEnd) {
    // Landing on 8 + FORM size ends the walk: the second COMM is never seen.
    Bytes b = concat({aiffForm({kComm, kSsnd}), kComm});
    EXPECT_EQ(aiff(b), line(0, "Container",
                            "The contained file size of 62 does not represent the adjusted file size of 88"));

    // A FORM size too large lets the walk go on, but a header that would end
    // exactly at the end of the file is not read.
    Bytes tail = concat({aiffForm({kComm, kSsnd}), ByteBuilder().str("COMM").be32(0).take()});
    tail = ByteBuilder(tail).patchBE32(4, 200).take();
    EXPECT_EQ(aiff(tail),
              line(0, "Container",
                   "The contained file size of 200 does not represent the adjusted file size of 70"));
}

TEST(AiffTag, MissingComm) {
    // The FORM holds only its type; then a file too short for a chunk; then a walk without COMM.
    EXPECT_EQ(aiff(ByteBuilder().str("FORM").be32(4).str("AIFF").take()),
              line(12, "Fatal", "Missing COMM chunk"));
    EXPECT_EQ(aiff(ByteBuilder().str("FORM").be32(12).str("AIFF").str("SSND").be32(0).take()),
              line(20, "Fatal", "Missing COMM chunk"));
    EXPECT_EQ(aiff(aiffForm({kSsnd})), line(44, "Fatal", "Missing COMM chunk"));
}

TEST(AiffTag, CommRules) {
    EXPECT_EQ(aiff(aiffForm({iffChunk("COMM", Bytes(16)), kSsnd})),
              line(12, "Fatal", "Invalid size for COMM chunk"));
    // A zero rate is reported and the walk goes on, here to a second COMM that stops it.
    EXPECT_EQ(aiff(aiffForm({aiffComm(0), kSsnd, kComm})),
              line(12, "Container", "The sample rate is 0") + line(70, "Fatal", "More than one COMM chunk"));
    const Bytes negativeZero = ByteBuilder().be16(0x8000).be64(0).take();
    EXPECT_EQ(aiff(aiffForm({iffChunk("COMM", aiffCommBody(negativeZero)), kSsnd})),
              line(12, "Container", "The sample rate is 0"));
    // Only an exact zero counts: a rate that is not a number passes.
    const Bytes nan = ByteBuilder().be16(0x7fff).be64(0xC000000000000000).take();
    EXPECT_EQ(aiff(aiffForm({iffChunk("COMM", aiffCommBody(nan)), kSsnd})), "");
    // AIFF-C's longer COMM (compression type and name) is fine.
    Bytes aifcComm = concat({aiffCommBody(extended80(48000)), ByteBuilder().str("NONE").u8(0).u8(0).take()});
    EXPECT_EQ(aiff(aiffForm({iffChunk("COMM", aifcComm), kSsnd}, "AIFC")), "");
}

TEST(AiffTag, ExtendedSampleRateDecoding) {
    const uint8_t cd[10] = {0x40, 0x0e, 0xac, 0x44, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(AiffTag::extendedToDouble(cd), 44100.0);
    for (double v : {8000.0, 11025.0, 48000.0, 2822400.0, 0.5, 1.0, -96000.0, 1e300}) {
        EXPECT_EQ(AiffTag::extendedToDouble(extended80(v).data()), v) << v;
    }
    // Beyond the range of a double, and the smallest denormal, which is 0 there.
    const Bytes huge = ByteBuilder().be16(0x7ffe).be64(0x8000000000000000).take();
    EXPECT_TRUE(std::isinf(AiffTag::extendedToDouble(huge.data())));
    const Bytes tiny = ByteBuilder().be16(0).be64(1).take();
    EXPECT_EQ(AiffTag::extendedToDouble(tiny.data()), 0.0);
    const Bytes inf = ByteBuilder().be16(0xffff).be64(0x8000000000000000).take();
    EXPECT_EQ(AiffTag::extendedToDouble(inf.data()), -INFINITY);
}

TEST(AiffTag, OverflowBeforeSoundDataIsFatalAfterItRecoverable) {
    EXPECT_EQ(aiff(aiffForm({kComm, shortChunk("APPL", 100, 4)})),
              line(38, "Fatal", "Chunk overflows: size=100, next offset=146, file size=50"));
    EXPECT_EQ(
        aiff(aiffForm({kComm, kSsnd, shortChunk("APPL", 100, 4)})),
        line(70, "Container", "Chunk overflows (recoverable): size=100, next offset=178, file size=82"));
    EXPECT_EQ(aiff(aiffForm({kComm, shortChunk("SSND", 1000, 24)})),
              line(38, "Container",
                   "Audio chunk overflows (recoverable): size=1000, next offset=1046, file size=70"));
    // "Recoverable" still ends the check: no missing-COMM verdict follows.
    EXPECT_EQ(aiff(aiffForm({kSsnd, shortChunk("COMM", 18, 2)})),
              line(44, "Container", "Chunk overflows (recoverable): size=18, next offset=70, file size=54"));
}

TEST(AiffTag, ID3ChunkOneByteShort) {
    // A writer counted the pad byte of an odd (27-byte) tag in the chunk size.
    const Bytes oddTag = id3v23Tag({id3v23Text("TIT2", "Titles")}, 0, kID3Experimental);
    ASSERT_EQ(oddTag.size(), 27u);
    const Bytes evenSized = concat({ByteBuilder().str("ID3 ").be32(28).take(), oddTag});
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, evenSized})),
              line(0, "Container",
                   "The contained file size of 98 does not represent the adjusted file size of 97") +
                  line(70, "Container", "ID3 chunk overflows by one byte") + line(78, "Tag", kExperimental));

    // An odd declared size one byte short is an ordinary overrun.
    const Bytes oddSized =
        concat({ByteBuilder().str("ID3 ").be32(27).take(), Bytes(oddTag.begin(), oddTag.end() - 1)});
    EXPECT_EQ(
        aiff(aiffForm({kComm, kSsnd, oddSized})),
        line(70, "Container", "Chunk overflows (recoverable): size=27, next offset=105, file size=104"));
}

TEST(AiffTag, AdjacentID3Chunks) {
    const Bytes id3 = iffChunk("ID3 ", evenTag());  // 34 bytes
    // At the end: the first is read, each repeat and the end draw a type-1 line.
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, id3, id3})), line(78, "Tag", kExperimental) +
                                                            line(104, "Container", "Multiple ID3 chunks") +
                                                            line(138, "Container", "Multiple ID3 chunks"));
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, id3, id3, id3})),
              line(78, "Tag", kExperimental) + line(104, "Container", "Multiple ID3 chunks") +
                  line(138, "Container", "Multiple ID3 chunks") +
                  line(172, "Container", "Multiple ID3 chunks"));
    // Followed by another chunk: fatal at the end of the walk.
    EXPECT_EQ(aiff(aiffForm({kComm, id3, id3, kSsnd})), line(46, "Tag", kExperimental) +
                                                            line(72, "Container", "Multiple ID3 chunks") +
                                                            line(138, "Fatal", "Multiple ID3 chunks"));
}

TEST(AiffTag, SeparatedID3ChunksStopTheWalk) {
    const Bytes id3 = iffChunk("ID3 ", evenTag());
    // The second COMM after the second tag is never reached.
    EXPECT_EQ(aiff(aiffForm({kComm, id3, kSsnd, id3, kComm})),
              line(46, "Tag", kExperimental) + line(104, "Fatal", "Multiple ID3 chunks"));
}

TEST(AiffTag, ID3ChunkContents) {
    // No tag in the chunk: nothing from the reader, but the sizes differ.
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, iffChunk("ID3 ", Bytes(16))})),
              line(70, "Container", "ID3 contained size does not reflect chunk size"));
    // A chunk larger than its tag.
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, iffChunk("ID3 ", concat({evenTag(), Bytes(4)}))})),
              line(78, "Tag", kExperimental) +
                  line(70, "Container", "ID3 contained size does not reflect chunk size"));
    // Only the upper-case identifier is known.
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, iffChunk("id3 ", Bytes(16))})), "");
    // A tag the reader refuses with a message stops the walk (no second-COMM line).
    Bytes badVersion = evenTag();
    badVersion[3] = 5;
    EXPECT_EQ(aiff(aiffForm({kComm, kSsnd, iffChunk("ID3 ", badVersion), kComm})),
              line(78, "Framing", "Invalid ID3 version 2.5.0"));
}

// Lines of a log that are not the frame reader's remark on a terminated text
// value (ffmpeg ends every text frame with a nil, which the tag reader reports).
std::string withoutTrailingNilRemarks(const std::string& log) {
    std::string kept, l;
    std::istringstream in(log);
    while (std::getline(in, l))
        if (l.find("text string contains redundant trailing nil(s)") == std::string::npos) kept += l + "\n";
    return kept;
}

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// Files written by real encoders during the test run draw no problem lines.
TEST(AiffTag, RealFilesAreClean) {
    TempDir dir;
    const std::string d = dir.path() + "/";
    int made = 0;
    if (haveTool("sox")) {
        for (const char* name : {"sox.aiff", "sox.aifc", "sox-mono8.aiff"}) {
            const std::string opts =
                std::string(name) == "sox-mono8.aiff" ? "-r 8000 -c 1 -b 8" : "-r 44100 -c 2";
            ASSERT_TRUE(run("sox -n " + opts + " '" + d + name + "' synth 0.1 sine 440 2>/dev/null")) << name;
            EXPECT_EQ(problemsForFile(d + name), "") << name;
            // The same file with an ID3 chunk appended and the FORM size grown to cover it.
            Bytes tagged = concat(
                {readFile(d + name),
                 iffChunk("ID3 ",
                          id3v23Tag({id3v23Text("TIT2", "Song"), id3v23Text("TPE1", "Someone")}, 100))});
            tagged = ByteBuilder(tagged).patchBE32(4, uint32_t(tagged.size() - 8)).take();
            EXPECT_EQ(problemsForFile(dir.write(std::string("tagged-") + name, tagged)), "") << name;
            ++made;
        }
    }
    if (haveTool("ffmpeg")) {
        const std::string src = "ffmpeg -v error -nostdin -f lavfi -i sine=duration=0.1:sample_rate=48000 ";
        const std::pair<const char*, const char*> files[] = {
            {"ff.aiff", ""},
            {"ff.aifc", "-c:a pcm_f32be"},
            {"ff-alaw.aifc", "-c:a pcm_alaw"},
            {"ff-id3.aiff",
             "-write_id3v2 1 -metadata title=Song -metadata artist=Someone -metadata album=Record"},
            {"ff-id3.aifc",
             "-c:a pcm_s24be -write_id3v2 1 -id3v2_version 3 -metadata title=Song -metadata date=2024"},
        };
        for (const auto& [name, opts] : files) {
            ASSERT_TRUE(run(src + opts + " -y '" + d + name + "'")) << name;
            EXPECT_EQ(withoutTrailingNilRemarks(problemsForFile(d + name)), "") << name;
            ++made;
        }
    }
    if (made == 0) GTEST_SKIP() << "neither sox nor ffmpeg is installed";
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
    const uint64_t id3At = ssndAt + kSsnd.size();
    const Bytes tail = concat({kSsnd, iffChunk("ID3 ", evenTag())});
    {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(head.data()), std::streamsize(head.size()));
        out.seekp(std::streamoff(ssndAt));
        out.write(reinterpret_cast<const char*>(tail.data()), std::streamsize(tail.size()));
        ASSERT_TRUE(out.good());
    }
    const uint64_t fileSize = ssndAt + tail.size();
    EXPECT_EQ(problemsForFile(path),
              line(0, "Container",
                   "The contained file size of 4294967296 does not represent the adjusted file size of " +
                       std::to_string(fileSize - 8)) +
                  line(id3At + 8, "Tag", kExperimental));
}

// Third-party files: every one is scanned to the end without crash or hang;
// the empty and deliberately broken ones draw at least one line.
TEST(AiffTag, CorpusFilesAreScanned) {
    namespace fs = std::filesystem;
    const fs::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!fs::exists(corpus)) GTEST_SKIP() << "no corpus";
    int scanned = 0;
    for (const auto& e : fs::recursive_directory_iterator(corpus)) {
        const std::string ext = e.path().extension().string();
        if (!e.is_regular_file() || (ext != ".aif" && ext != ".aiff" && ext != ".aifc")) continue;
        const std::string log = problemsForFile(e.path().string());
        const std::string name = e.path().filename().string();
        if (name.starts_with("empty_file") || name.starts_with("invalid_file") || e.file_size() < 12) {
            EXPECT_NE(log, "") << name;
        }
        ++scanned;
    }
    EXPECT_GT(scanned, 0);
}

}  // namespace
}  // namespace sondrel
