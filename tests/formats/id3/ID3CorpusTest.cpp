// Robustness over real files: every corpus file that begins with an ID3v2
// tag is read through the tag reader straight from disk.
#include <gtest/gtest.h>

#include <filesystem>

#include "core/FileHandle.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/id3/ID3Base.h"
#include "tests/formats/id3/ID3ReaderHarness.h"

namespace sondrel {
namespace {

TEST(ID3Corpus, EveryLeadingTagIsReadWithinBounds) {
    const std::filesystem::path root = SONDREL_SHARED_DIR "/corpus";
    if (!std::filesystem::is_directory(root)) GTEST_SKIP() << "no corpus";
    const Settings settings = fixtures::settingsWith({{"LogDups", "1"}});
    int tags = 0, accepted = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file()) continue;
        std::string error;
        auto handle = FileHandle::openForReading(entry.path().string(), error);
        if (!handle) continue;
        const uint64_t size = handle->length();
        auto magic = handle->readDataAtOffset(0, 3);
        if (!magic || std::string(magic->begin(), magic->end()) != "ID3") continue;
        ++tags;
        Tag record(entry.path().string(), settings, Tag::NoAnalysis{});
        ID3Base reader(record);
        uint64_t base = 0, audio = 0;
        const bool ok = reader.flacEntryHandle(*handle, size, record, base, audio);
        if (ok) {
            ++accepted;
            EXPECT_LE(base, size) << entry.path();
            EXPECT_EQ(base + audio, size) << entry.path();
        }
        // One line per frame at most, plus the header's own lines.
        EXPECT_LE(record.errorCount(), reader.getFrameList().size() * 16 + 8) << entry.path();
    }
    EXPECT_GT(tags, 0);
    EXPECT_GT(accepted, tags / 2);
}

}  // namespace
}  // namespace sondrel
