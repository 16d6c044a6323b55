// The DSF checker: the three chunk headers, the derived audio properties and
// the metadata pointer with its fallback to the end of the audio.
#include <gtest/gtest.h>

#include <string>

#include "tests/fixtures/DsfBuilder.h"
#include "tests/formats/chunked/ChunkedTestUtil.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::chunked;
using namespace fixtures::chunkedtest;

// Two channels of 32-byte blocks: the data chunk spans 80..156. The sample
// count claims a second so that the duration is not 0.
DsfLayout small(uint64_t sampleCount = 2822400, Bytes tag = {}) {
    return {.blockSize = 32, .sampleCount = sampleCount, .tag = std::move(tag)};
}
constexpr uint64_t kAudioEnd = 156;

TEST(DsfTag, HeadersAndAudioProperties) {
    const Bytes base = dsfFile(small());
    // 2 channels of 18-byte blocks end exactly at 128 bytes: the smallest file examined.
    const DsfLayout smallest{.blockSize = 18, .sampleCount = 2822400};
    ASSERT_EQ(dsfFile(smallest).size(), 128u);
    // A 48-byte fmt chunk (no reserved field) followed at once by the data chunk.
    Bytes shortFmt = base;
    shortFmt.erase(shortFmt.begin() + 76, shortFmt.begin() + 80);
    shortFmt = patched(shortFmt, {{kDsfFmtSize, 48}, {kDsfTotalSize, shortFmt.size()}});
    const DsfLayout noRate{.frequency = 0, .blockSize = 32, .sampleCount = 2823};
    // DSD128 mono with a partly filled last block, as DSF writers lay it out.
    const DsfLayout mono{.channelType = 1,
                         .channels = 1,
                         .frequency = 5644800,
                         .blocksPerChannel = 3,
                         .sampleCount = 2 * 4096 * 8 + 1000};
    const std::string fmtSize = "Invalid fmt chunk size", dataSig = "Invalid data signature";
    expectLogs(
        "x.dsf",
        {
            {"127 bytes", Bytes(127, 0), line(0, "Fatal", "Insufficient data to contain a valid DSF file")},
            {"128 bytes", dsfFile(smallest), ""},
            {"DSD128 mono", dsfFile(mono), ""},
            // A wrong total size is reported and the check goes on.
            {"total size", patched(base, {{kDsfTotalSize, 1000}, {kDsfFrequency, 0, 4}}),
             line(0, "Container",
                  "The contained file size of 1000 does not match the actual file size of 156") +
                 line(0, "Container", "Frame Sample Rate is 0")},
            {"48-byte fmt", shortFmt, line(0, "Fatal", fmtSize)},
            {"8-bit samples", patched(base, {{kDsfBitsPerSample, 8, 4}}), ""},
            // The data header must lie in the first 128 bytes.
            {"data header at 116", patched(base, {{kDsfFmtSize, 88}}), line(0, "Fatal", dataSig)},
            {"data header at 117", patched(base, {{kDsfFmtSize, 89}}),
             line(0, "Fatal", "Unexpected fmt chunk size")},
            {"fmt size all ones", patched(base, {{kDsfFmtSize, ~uint64_t(0)}}),
             line(0, "Fatal", "Unexpected fmt chunk size")},
            {"fmt size 40", patched(base, {{kDsfFmtSize, 40}}),
             line(0, "Fatal", fmtSize) + line(0, "Fatal", dataSig)},
            {"one sample", dsfFile(small(1)), line(0, "Container", "Duration is 0")},
            {"just over a millisecond", dsfFile(small(2823)), ""},
            {"zero rate", dsfFile(noRate), line(0, "Container", "Frame Sample Rate is 0")},
            // Values that overflow the products are handled.
            {"overflowing products", patched(base, {{kDsfSampleCount, ~uint64_t(0)}, {kDsfFrequency, 1, 4}}),
             ""},
        });
}

TEST(DsfTag, MetadataPointer) {
    const Bytes tagged = dsfFile(small(2822400, experimentalTag()));
    const std::string inside = "ID3 tag offset is inside audio data";
    const Bytes untaggedInside = patched(dsfFile(small()), {{kDsfMetadataPointer, 100}});
    expectLogs("x.dsf",
               {
                   {"tag at the audio end", tagged, line(kAudioEnd, "Tag", kExperimental)},
                   {"nothing at the pointer", patched(tagged, {{kDsfMetadataPointer, kAudioEnd + 2}}),
                    line(0, "Container", "ID3 tag not at specified address")},
                   // No tag can be read there, and no second message.
                   {"past the end", patched(tagged, {{kDsfMetadataPointer, tagged.size() + 1}}),
                    line(0, "Fatal", "ID3 tag offset is past the end of the file")},
                   // Fewer than ten bytes left at the pointer: refused without a message.
                   {"five bytes left", patched(tagged, {{kDsfMetadataPointer, tagged.size() - 5}}), ""},
                   {"refused tag", patched(tagged, {{kAudioEnd + 3, 5, 1}}),
                    line(kAudioEnd, "Framing", "Invalid ID3 version 2.5.0")},
                   // A pointer inside the audio falls back to the audio end (as in the
                   // example cases), unless a data size so large that the audio end
                   // cannot be computed.
                   {"inside, huge data", patched(untaggedInside, {{kDsfDataChunk + 4, ~uint64_t(0) - 10}}),
                    line(0, "Container", inside)},
               });
}

// Five gigabytes of audio, written sparse: the tag after it is found through
// the 64-bit metadata pointer and the audio is never read.
TEST(DsfTag, TagBeyondFourGiB) {
    const Bytes tag = experimentalTag();
    const uint64_t dataSize = 5'000'000'000;
    const uint64_t audioEnd = kDsfDataChunk + dataSize;
    const Bytes head = dsfFile(small());
    const Bytes first =
        patched(Bytes(head.begin(), head.begin() + 92), {{kDsfTotalSize, audioEnd + tag.size()},
                                                         {kDsfMetadataPointer, audioEnd},
                                                         {kDsfDataChunk + 4, dataSize}});
    TempDir dir;
    const std::string path = dir.path() + "/big.dsf";
    writeSparse(path, first, audioEnd, tag);
    EXPECT_EQ(problemsForFile(path), line(audioEnd, "Tag", kExperimental));
}

}  // namespace
}  // namespace sondrel
