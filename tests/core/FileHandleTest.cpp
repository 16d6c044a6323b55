#include "core/FileHandle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

Bytes numbered(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = uint8_t(i * 7 + 3);
    return b;
}

// The same rules must hold for a file on disk and for bytes in memory.
class FileHandleBoth : public ::testing::TestWithParam<bool> {
  protected:
    std::unique_ptr<FileHandle> make(const Bytes& contents) {
        if (!GetParam()) return FileHandle::fromMemory(contents);
        std::string err;
        return FileHandle::openForReading(dir_.write("f.bin", contents), err);
    }
    fixtures::TempDir dir_;
};

TEST_P(FileHandleBoth, ReadsOnlyWholeRanges) {
    auto h = make(numbered(100));
    ASSERT_TRUE(h);
    EXPECT_EQ(h->seekToEnd(), 100u);
    auto d = h->readDataAtOffset(90, 10);
    ASSERT_TRUE(d);
    EXPECT_EQ((*d)[0], numbered(100)[90]);
    EXPECT_FALSE(h->readDataAtOffset(95, 10)) << "a short read gives none, not 5 bytes";
    EXPECT_FALSE(h->readDataAtOffset(~uint64_t(0) - 2, 8)) << "offset + length wraps";
    EXPECT_FALSE(h->readDataAtOffset(0, uint64_t(1) << 62))
        << "no allocation for a range the file cannot hold";
    auto end = h->readToEndFromOffset(100);
    ASSERT_TRUE(end);
    EXPECT_TRUE(end->empty());
    EXPECT_FALSE(h->readToEndFromOffset(101));
}

TEST_P(FileHandleBoth, MarkerSearchOverlapsBlocksAndStopsAtShortReads) {
    Bytes data(30000, 0);
    // A marker straddling the first block boundary (10240) is found at its true offset.
    const uint8_t marker[] = {'f', 'L', 'a', 'C'};
    std::copy(marker, marker + 4, data.begin() + 10238);
    auto h = make(data);
    EXPECT_EQ(h->spanForMarker(marker, 4, 0, data.size()), 10238u);
    EXPECT_EQ(h->spanForMarker(marker, 4, 10239, data.size()), FileHandle::kNotFound);
    // The marker must end at or before stop.
    EXPECT_EQ(h->spanForMarker(marker, 4, 0, 10241), FileHandle::kNotFound);
    EXPECT_EQ(h->spanForMarker(marker, 4, 0, 10242), 10238u);

    // A stop beyond the end of the file: the last, partial block's read is
    // short, so a marker there is not found.
    Bytes tail(12000, 0);
    std::copy(marker, marker + 4, tail.begin() + 11000);
    auto t = make(tail);
    EXPECT_EQ(t->spanForMarker(marker, 4, 0, 50000), FileHandle::kNotFound);
    EXPECT_EQ(t->spanForMarker(marker, 4, 0, 12000), 11000u);
}

INSTANTIATE_TEST_SUITE_P(MemoryAndDisk, FileHandleBoth, ::testing::Values(false, true));

TEST(FileHandleOpen, RefusesWhatIsNotARegularFileWithoutBlocking) {
    fixtures::TempDir dir;
    std::string fifo = dir.path() + "/song.mp3";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
    std::string err;
    EXPECT_FALSE(FileHandle::openForReading(fifo, err));
    EXPECT_EQ(err, "The item is a FIFO (named pipe), not a regular file");
    EXPECT_FALSE(FileHandle::openForReading(dir.path(), err));
    EXPECT_EQ(err, "The item is a folder, not a file");
    EXPECT_FALSE(FileHandle::openForReading("/dev/null", err));
    EXPECT_EQ(err, "The item is a device, not a regular file");
    EXPECT_FALSE(FileHandle::openForReading(dir.path() + "/missing.mp3", err));
    EXPECT_EQ(err, "No such file or directory");
}

// A file cut shorter while mapped reads as zeros past the cut, and the view says so.
TEST(FileHandleOpen, MappedViewSurvivesTheFileBeingCutShorter) {
    fixtures::TempDir dir;
    const Bytes data = numbered(3 * 4096 + 10);
    const std::string path = dir.write("f.ogg", data);
    std::string err;
    auto h = FileHandle::openForReading(path, err);
    const ByteSpan view = h->mapWhole();
    ASSERT_TRUE(std::equal(view.begin(), view.end(), data.begin(), data.end()));
    ASSERT_EQ(::truncate(path.c_str(), 4096), 0);
    EXPECT_EQ(view[4095], data[4095]);
    EXPECT_FALSE(h->viewLost());
    EXPECT_EQ(view[2 * 4096 + 1], 0);
    EXPECT_TRUE(h->viewLost());
}

}  // namespace
}  // namespace sondrel
