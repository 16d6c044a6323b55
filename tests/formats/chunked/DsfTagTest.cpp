// The DSF checker: the three chunk headers, the derived audio properties and
// the metadata pointer with its fallback to the end of the audio.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DsfBuilder.h"
#include "tests/fixtures/SimpleID3Tag.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::chunked;

std::string line(const char* category, const std::string& message, uint64_t offset = 0) {
    char head[32];
    std::snprintf(head, sizeof head, "    %012" PRIu64 "  ", offset);
    return head + std::string(category) + ": " + message + "\n";
}

std::string dsf(const Bytes& b) {
    return problemsFor("x.dsf", b);
}

// Two channels of 32-byte blocks: the data chunk spans 80..156. The sample
// count claims a second so that the duration is not 0.
DsfLayout small() {
    DsfLayout l;
    l.blockSize = 32;
    l.sampleCount = 2822400;
    return l;
}
constexpr uint64_t kAudioEnd = 156;

Bytes taggedTag() {
    return id3v23Tag({id3v23Text("TIT2", "Title")}, 0, kID3Experimental);
}
const std::string kExperimental = "Experimental bit is set in the tag header";

void patch4(Bytes& b, size_t at, const char* id) {
    std::copy_n(id, 4, b.begin() + at);
}

TEST(DsfTag, SizeAndSignature) {
    EXPECT_EQ(dsf(Bytes(127, 0)), line("Fatal", "Insufficient data to contain a valid DSF file"));
    // 2 channels of 18-byte blocks end exactly at 128 bytes: the smallest file examined.
    DsfLayout l = small();
    l.blockSize = 18;
    ASSERT_EQ(dsfFile(l).size(), 128u);
    EXPECT_EQ(dsf(dsfFile(l)), "");

    Bytes b = dsfFile(small());
    patch4(b, 0, "DSF ");
    EXPECT_EQ(dsf(b), line("Fatal", "Invalid DSF file signature"));
    b = dsfFile(small());
    patchLE64(b, 4, 30);
    EXPECT_EQ(dsf(b), line("Fatal", "Invalid size in DSD chunk"));
    // A wrong total size is reported and the check goes on.
    b = dsfFile(small());
    patchLE64(b, kDsfTotalSize, 1000);
    patch4(b, kDsfFrequency, "\0\0\0\0");
    EXPECT_EQ(dsf(b), line("Container",
                           "The contained file size of 1000 does not match the actual file size of 156") +
                          line("Container", "Frame Sample Rate is 0"));
}

TEST(DsfTag, FmtFindingsAreReportedInOrderAndDoNotStop) {
    Bytes b = dsfFile(small());
    patch4(b, 28, "FMT ");
    patch4(b, kDsfFormatVersion, "\2\0\0\0");
    patch4(b, kDsfBitsPerSample, "\4\0\0\0");
    EXPECT_EQ(dsf(b), line("Fatal", "Invalid fmt signature") + line("Fatal", "File format is not 1") +
                          line("Fatal", "Invalid bits per sample"));

    // A 48-byte fmt chunk (no reserved field) followed at once by the data chunk.
    b = dsfFile(small());
    b.erase(b.begin() + 76, b.begin() + 80);
    patchLE64(b, kDsfFmtSize, 48);
    patchLE64(b, kDsfTotalSize, b.size());
    EXPECT_EQ(dsf(b), line("Fatal", "Invalid fmt chunk size"));
    // Eight-bit samples are valid.
    b = dsfFile(small());
    patch4(b, kDsfBitsPerSample, "\x08\0\0\0");
    EXPECT_EQ(dsf(b), "");
}

TEST(DsfTag, DataHeaderMustLieInTheFirst128Bytes) {
    Bytes b = dsfFile(small());
    patchLE64(b, kDsfFmtSize, 88);  // data header at 116..127: read, but not "data"
    EXPECT_EQ(dsf(b), line("Fatal", "Invalid data signature"));
    patchLE64(b, kDsfFmtSize, 89);
    EXPECT_EQ(dsf(b), line("Fatal", "Unexpected fmt chunk size"));
    patchLE64(b, kDsfFmtSize, ~uint64_t(0));
    EXPECT_EQ(dsf(b), line("Fatal", "Unexpected fmt chunk size"));
    patchLE64(b, kDsfFmtSize, 40);
    EXPECT_EQ(dsf(b), line("Fatal", "Invalid fmt chunk size") + line("Fatal", "Invalid data signature"));
}

TEST(DsfTag, RateAndDuration) {
    DsfLayout l = small();
    l.sampleCount = 1;  // far below a millisecond at 2.8 MHz
    EXPECT_EQ(dsf(dsfFile(l)), line("Container", "Duration is 0"));
    l.sampleCount = 2823;  // just over one millisecond
    EXPECT_EQ(dsf(dsfFile(l)), "");
    l.frequency = 0;
    EXPECT_EQ(dsf(dsfFile(l)), line("Container", "Frame Sample Rate is 0"));
    // Values that overflow the products are handled.
    Bytes b = dsfFile(small());
    patchLE64(b, kDsfSampleCount, ~uint64_t(0));
    patch4(b, kDsfFrequency, "\1\0\0\0");
    EXPECT_EQ(dsf(b), "");
}

TEST(DsfTag, MetadataPointer) {
    DsfLayout l = small();
    l.tag = taggedTag();
    const Bytes tagged = dsfFile(l);
    EXPECT_EQ(dsf(tagged), line("Tag", kExperimental, kAudioEnd));

    // Nothing at a pointer after the audio.
    Bytes b = tagged;
    patchLE64(b, kDsfMetadataPointer, kAudioEnd + 2);
    EXPECT_EQ(dsf(b), line("Container", "ID3 tag not at specified address"));
    // A pointer past the end: no tag can be read there, and no second message.
    patchLE64(b, kDsfMetadataPointer, b.size() + 1);
    EXPECT_EQ(dsf(b), line("Fatal", "ID3 tag offset is past the end of the file"));
    // Fewer than ten bytes left at the pointer: refused without a message.
    patchLE64(b, kDsfMetadataPointer, b.size() - 5);
    EXPECT_EQ(dsf(b), "");
    // A tag the reader refuses with its own message.
    b = tagged;
    b[kAudioEnd + 3] = 5;
    EXPECT_EQ(dsf(b), line("Framing", "Invalid ID3 version 2.5.0", kAudioEnd));
}

TEST(DsfTag, PointerInsideTheAudioFallsBackToTheAudioEnd) {
    DsfLayout l = small();
    l.tag = taggedTag();
    Bytes b = dsfFile(l);
    patchLE64(b, kDsfMetadataPointer, 100);
    EXPECT_EQ(dsf(b), line("Container", "ID3 tag offset is inside audio data") +
                          line("Tag", kExperimental, kAudioEnd));
    // No tag at the audio end either: no further message.
    b = dsfFile(small());
    patchLE64(b, kDsfMetadataPointer, 100);
    EXPECT_EQ(dsf(b), line("Container", "ID3 tag offset is inside audio data"));
    // A data size so large that the audio end cannot be computed.
    patchLE64(b, kDsfDataChunk + 4, ~uint64_t(0) - 10);
    EXPECT_EQ(dsf(b), line("Container", "ID3 tag offset is inside audio data"));
}

// Files laid out as DSF writers lay them out, with a full ID3v2 tag at the end.
TEST(DsfTag, WellFormedFilesAreClean) {
    DsfLayout stereo;  // DSD64, two channels of one 4096-byte block each
    stereo.tag = id3v23Tag({id3v23Text("TIT2", "Song"), id3v23Text("TPE1", "Someone"),
                            id3v23Text("TALB", "Record"), id3v23Text("TRCK", "3")},
                           64);
    EXPECT_EQ(dsf(dsfFile(stereo)), "");

    DsfLayout mono;  // DSD128, mono, a partly filled last block, no tag
    mono.channelType = 1;
    mono.channels = 1;
    mono.frequency = 5644800;
    mono.blocksPerChannel = 3;
    mono.sampleCount = 2 * 4096 * 8 + 1000;
    EXPECT_EQ(dsf(dsfFile(mono)), "");

    TempDir dir;
    EXPECT_EQ(problemsForFile(dir.write("on-disk.dsf", dsfFile(stereo))), "");
}

// Five gigabytes of audio, written sparse: the tag after it is found through
// the 64-bit metadata pointer and the audio is never read.
TEST(DsfTag, TagBeyondFourGiB) {
    DsfLayout l = small();
    const Bytes head = dsfFile(l);
    const Bytes tag = taggedTag();
    const uint64_t dataSize = 5'000'000'000;
    const uint64_t audioEnd = kDsfDataChunk + dataSize;
    Bytes first(head.begin(), head.begin() + 92);
    patchLE64(first, kDsfTotalSize, audioEnd + tag.size());
    patchLE64(first, kDsfMetadataPointer, audioEnd);
    patchLE64(first, kDsfDataChunk + 4, dataSize);
    TempDir dir;
    const std::string path = dir.path() + "/big.dsf";
    {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(first.data()), std::streamsize(first.size()));
        out.seekp(std::streamoff(audioEnd));
        out.write(reinterpret_cast<const char*>(tag.data()), std::streamsize(tag.size()));
        ASSERT_TRUE(out.good());
    }
    EXPECT_EQ(problemsForFile(path), line("Tag", kExperimental, audioEnd));
}

TEST(DsfTag, CorpusFilesAreScanned) {
    namespace fs = std::filesystem;
    const fs::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!fs::exists(corpus)) GTEST_SKIP() << "no corpus";
    int scanned = 0;
    for (const auto& e : fs::recursive_directory_iterator(corpus)) {
        if (!e.is_regular_file() || e.path().extension() != ".dsf") continue;
        const std::string log = problemsForFile(e.path().string());
        if (e.file_size() < 128) {
            EXPECT_NE(log, "") << e.path().filename();
        }
        ++scanned;
    }
    EXPECT_GT(scanned, 0);
}

}  // namespace
}  // namespace sondrel
