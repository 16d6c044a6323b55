// Clean MP3 files written by real encoders and tagged by real taggers during
// the test run give no problem lines; every MPEG file of the shared corpus is
// checked without a crash and with a well-formed verdict, and every corpus
// file that begins with an ID3v2 tag is read through the tag reader.
#include <gtest/gtest.h>

#include <algorithm>
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

TEST_F(MP3RealFiles, TaggedByRealTaggers) {
    const std::string base = encode("lame --quiet -V 4 %i %o", "base.mp3");
    std::string jpg = path("cover.jpg");  // a small JPEG cover
    if (!haveTool("ffmpeg") ||
        !run("ffmpeg -loglevel error -f lavfi -i color=c=red:s=32x32 -frames:v 1 '" + jpg + "' </dev/null"))
        jpg.clear();
    const std::string picture = jpg.empty() ? "" : " --add-image '" + jpg + ":FRONT_COVER'";
    const std::string eyed3 = "eyeD3 --quiet -t 'A Title' -a 'An Artist' -A 'An Album' -n 3 -Y 2020 -G Rock" +
                              picture + " -c 'A comment' --add-comment 'Second:desc:eng'";
    const struct {
        const char* tool;
        std::string command;
        uint8_t version;
    } taggers[] = {
        {"eyeD3", eyed3 + " --to-v2.3", 3},
        {"eyeD3", eyed3 + " --to-v2.4", 4},
        {"id3v2",
         "id3v2 -2 -t 'A Title' -a 'An Artist' -A 'An Album' -T 3 -y 2021 -g 17 -c 'desc':'A comment':'eng'",
         3},
    };
    int ran = 0;
    for (const auto& t : taggers) {
        if (!haveTool(t.tool)) continue;
        const std::string f = path(std::to_string(++ran) + ".mp3");
        fs::copy_file(base, f);
        ASSERT_TRUE(run(t.command + " '" + f + "' >/dev/null 2>&1")) << t.command;
        SCOPED_TRACE(t.command);
        EXPECT_EQ(problemsForFile(f), "");
        // The tag reader finds the tagger's items.
        const Bytes bytes = testing::readFile(f);
        ASSERT_EQ(bytes.at(3), t.version);
        auto r = testing::readTag(bytes);
        ASSERT_NE(r.item(field::Title), nullptr);
        EXPECT_EQ(r.item(field::Title)->value, "A Title");
        ASSERT_NE(r.item(field::Comments), nullptr);
        ASSERT_TRUE(r.item(field::Comments)->items.has_value());
        EXPECT_TRUE(std::ranges::any_of(*r.item(field::Comments)->items,
                                        [](const TagItem& c) { return c.value == "A comment"; }));
        EXPECT_NE(r.item(field::Genre), nullptr);
    }
    if (haveTool("mid3v2")) {
        // This tagger ends every v2.4 text with a nil: the text frame rules
        // report exactly that and nothing else.
        const std::string f = path("mid3v2.mp3");
        fs::copy_file(base, f);
        std::string cmd = "mid3v2 -t 'A Title' -a 'An Artist' -A 'An Album' -T 3/10 -c 'desc:A comment:eng'";
        if (!jpg.empty()) cmd += " -p '" + jpg + ":Cover:3:image/jpeg'";
        ASSERT_TRUE(run(cmd + " '" + f + "' >/dev/null 2>&1"));
        std::istringstream lines(problemsForFile(f));
        int count = 0;
        for (std::string l; std::getline(lines, l); ++count)
            EXPECT_TRUE(l.ends_with("text string contains redundant trailing nil(s)") ||
                        l.ends_with("'COMM' frame: text string contains redundant nil(s)"))
                << l;
        EXPECT_EQ(count, 5);
        ++ran;
    }
    if (ran == 0) GTEST_SKIP() << "no tagger is installed";
}

// "    %012lu  Category: message", as the log writes a problem.
bool isProblemLine(const std::string& l) {
    if (l.size() < 18 || !l.starts_with("    ") || l.compare(16, 2, "  ") != 0) return false;
    for (size_t i = 4; i < 16; ++i)
        if (!std::isdigit(static_cast<unsigned char>(l[i]))) return false;
    for (std::string category : {"File", "Container", "Framing", "Tag", "Fatal", "Privacy"})
        if (l.compare(18, category.size() + 2, category + ": ") == 0) return l.size() > 20 + category.size();
    return false;
}

TEST(MP3Corpus, EveryMpegFileGetsAWellFormedVerdict) {
    const fs::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!fs::is_directory(corpus)) GTEST_SKIP() << "no shared corpus";
    int checked = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        std::string ext = entry.path().extension().string();
        for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
        if (ext != ".mp3" && ext != ".mp2") continue;
        SCOPED_TRACE(entry.path().string());
        auto started = std::chrono::steady_clock::now();
        std::string log = problemsForFile(entry.path().string());
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
        std::istringstream lines(log);
        for (std::string l; std::getline(lines, l);) EXPECT_TRUE(isProblemLine(l)) << l;
        // A file too small to hold anything is never passed silently.
        if (entry.file_size() <= 10) {
            EXPECT_NE(log.find("Fatal: Invalid file size"), std::string::npos);
        }
        ++checked;
    }
    EXPECT_GT(checked, 100);
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
