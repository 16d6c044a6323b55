// Clean MP3 files written by real encoders during the test run give no
// problem lines (what taggers write is checked with the everyday files), and
// every corpus file that begins with an ID3v2 tag is read through the tag
// reader.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "core/Tag.h"
#include "tests/fixtures/MpegBuilder.h"
#include "tests/formats/id3/ID3ReaderHarness.h"

namespace sondrel {
namespace {

using namespace fixtures;
namespace fs = std::filesystem;

class MP3RealFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* tool : {"sox", "lame"})
            if (!haveTool(tool)) GTEST_SKIP() << tool << " is not installed";
        wav_ = path("tone.wav");
        ASSERT_TRUE(
            run("sox -n -r 44100 -c 2 -b 16 '" + wav_ + "' synth 3 sine 440 sine 660 >/dev/null 2>&1"));
    }
    std::string path(const std::string& name) const { return dir_.path() + "/" + name; }
    // Encodes the tone into `name` with `command` (%i the input, %o the output).
    std::string encode(std::string command, const std::string& name) {
        command.replace(command.find("%i"), 2, "'" + wav_ + "'");
        command.replace(command.find("%o"), 2, "'" + path(name) + "'");
        EXPECT_TRUE(run(command + " </dev/null >/dev/null 2>&1")) << command;
        return path(name);
    }

    TempDir dir_;
    std::string wav_;
};

TEST_F(MP3RealFiles, UntaggedStreamsFromLameAndFfmpeg) {
    // Constant bitrate without a summary frame (scanned frame by frame),
    // constant with an Info frame, variable with a Xing frame, MPEG-2; by
    // default ffmpeg adds an ID3v2.4 tag naming the encoder, written with a
    // terminating nil, which the text frame rules report.
    const char* ff = "ffmpeg -loglevel error -i %i -c:a ";
    const struct {
        const char *tool, *name;
        std::string command, log;
    } encoders[] = {
        {"lame", "cbr.mp3", "lame --quiet --noreplaygain -t -b 128 %i %o", ""},
        {"lame", "info.mp3", "lame --quiet -b 192 %i %o", ""},
        {"lame", "vbr.mp3", "lame --quiet -V 2 %i %o", ""},
        {"lame", "mpeg2.mp3", "lame --quiet -m m --resample 22.05 -b 64 %i %o", ""},
        {"ffmpeg", "ff.mp2", std::string(ff) + "mp2 -b:a 192k %o", ""},
        {"ffmpeg", "ff.mp3", std::string(ff) + "libmp3lame -b:a 128k -id3v2_version 0 %o", ""},
        {"ffmpeg", "fftag.mp3", std::string(ff) + "libmp3lame -b:a 128k %o",
         "    000000000010  Framing: ID3 'TSSE' frame: text string contains redundant trailing nil(s)\n"},
    };
    for (const auto& e : encoders) {
        if (!haveTool(e.tool)) continue;
        EXPECT_EQ(problemsForFile(encode(e.command, e.name)), e.log) << e.command;
    }
}

TEST(ID3Corpus, EveryLeadingTagIsReadWithinBounds) {
    const fs::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!fs::is_directory(corpus)) GTEST_SKIP() << "no shared corpus";
    const Settings settings = settingsWith({{"LogDups", "1"}});
    int tags = 0, accepted = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        std::string error;
        auto handle = FileHandle::openForReading(entry.path().string(), error);
        if (!handle) continue;
        const uint64_t size = handle->length();
        auto magic = handle->readDataAtOffset(0, 3);
        if (!magic || std::string(magic->begin(), magic->end()) != "ID3") continue;
        SCOPED_TRACE(entry.path().string());
        ++tags;
        Tag record(entry.path().string(), settings, Tag::NoAnalysis{});
        ID3Base reader(record);
        uint64_t base = 0, audio = 0;
        if (reader.flacEntryHandle(*handle, size, record, base, audio)) {
            ++accepted;
            EXPECT_LE(base, size);
            EXPECT_EQ(base + audio, size);
        }
        // One line per frame at most, plus the header's own lines.
        EXPECT_LE(record.errorCount(), reader.getFrameCount() * 16 + 8);
    }
    EXPECT_GT(tags, 0);
    EXPECT_GT(accepted, tags / 2);
}

}  // namespace
}  // namespace sondrel
