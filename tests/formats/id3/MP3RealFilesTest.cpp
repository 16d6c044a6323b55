// Clean MP3 files written by real encoders and tagged by real taggers during
// the test run give no problem lines; every MPEG file of the shared corpus is
// checked without a crash and with a well-formed verdict.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "core/Tag.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;
namespace fs = std::filesystem;

// True when the ID3v2 tag reader is the real one (the stand-in finds no tag).
bool haveTagReader() {
    static const bool present =
        problemsFor("probe.mp3", concat({id3v2Tag(5, {}, 20), mpegFrames(MpegSpec{}, 3)}))
            .find("Invalid ID3 version") != std::string::npos;
    return present;
}

class MP3RealFiles : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* tool : {"sox", "lame"})
            if (!haveTool(tool)) GTEST_SKIP() << tool << " is not installed";
        wav_ = dir_.path() + "/tone.wav";
        ASSERT_TRUE(
            run("sox -n -r 44100 -c 2 -b 16 '" + wav_ + "' synth 3 sine 440 sine 660 >/dev/null 2>&1"));
    }
    std::string path(const std::string& name) const { return dir_.path() + "/" + name; }
    std::string copy(const std::string& from, const std::string& to) const {
        fs::copy_file(path(from), path(to));
        return path(to);
    }
    // A small JPEG cover.
    std::string cover() {
        std::string jpg = path("cover.jpg");
        if (!fs::exists(jpg) && haveTool("ffmpeg"))
            run("ffmpeg -loglevel error -f lavfi -i color=c=red:s=32x32 -frames:v 1 '" + jpg +
                "' </dev/null");
        return fs::exists(jpg) ? jpg : std::string();
    }

    TempDir dir_;
    std::string wav_;
};

TEST_F(MP3RealFiles, UntaggedStreamsFromLameAndFfmpeg) {
    // Constant bitrate without a summary frame (scanned frame by frame),
    // constant with an Info frame, variable with a Xing frame.
    ASSERT_TRUE(run("lame --quiet --noreplaygain -t -b 128 '" + wav_ + "' '" + path("cbr.mp3") + "'"));
    ASSERT_TRUE(run("lame --quiet -b 192 '" + wav_ + "' '" + path("info.mp3") + "'"));
    ASSERT_TRUE(run("lame --quiet -V 2 '" + wav_ + "' '" + path("vbr.mp3") + "'"));
    ASSERT_TRUE(run("lame --quiet -m m --resample 22.05 -b 64 '" + wav_ + "' '" + path("mpeg2.mp3") + "'"));
    for (const char* name : {"cbr.mp3", "info.mp3", "vbr.mp3", "mpeg2.mp3"})
        EXPECT_EQ(problemsForFile(path(name)), "") << name;
    if (!haveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    ASSERT_TRUE(run("ffmpeg -loglevel error -i '" + wav_ + "' -c:a mp2 -b:a 192k '" + path("ff.mp2") +
                    "' </dev/null"));
    EXPECT_EQ(problemsForFile(path("ff.mp2")), "");
    ASSERT_TRUE(run("ffmpeg -loglevel error -i '" + wav_ + "' -c:a libmp3lame -b:a 128k -id3v2_version 0 '" +
                    path("ff.mp3") + "' </dev/null"));
    EXPECT_EQ(problemsForFile(path("ff.mp3")), "");
    // By default ffmpeg adds an ID3v2.4 tag naming the encoder, written with
    // a terminating nil, which the text frame rules report.
    ASSERT_TRUE(run("ffmpeg -loglevel error -i '" + wav_ + "' -c:a libmp3lame -b:a 128k '" +
                    path("fftag.mp3") + "' </dev/null"));
    if (!haveTagReader()) GTEST_SKIP() << "ffmpeg's tagged file needs the ID3v2 tag reader";
    EXPECT_EQ(
        problemsForFile(path("fftag.mp3")),
        "    000000000010  Framing: ID3 'TSSE' frame: text string contains redundant trailing nil(s)\n");
}

TEST_F(MP3RealFiles, TaggedByRealTaggers) {
    if (!haveTagReader()) GTEST_SKIP() << "needs the ID3v2 tag reader";
    ASSERT_TRUE(run("lame --quiet -V 4 '" + wav_ + "' '" + path("base.mp3") + "'"));
    std::string jpg = cover();
    std::vector<std::string> tagged;
    if (haveTool("eyeD3")) {
        for (const char* v : {"2.3", "2.4"}) {
            std::string f = copy("base.mp3", std::string("eyed3-") + v + ".mp3");
            std::string cmd = std::string("eyeD3 --quiet --to-v") + v +
                              " -t 'A Title' -a 'An Artist' -A 'An Album' -n 3 -Y 2020" +
                              " -c 'A comment' --add-comment 'Second:desc:eng'";
            if (!jpg.empty()) cmd += " --add-image '" + jpg + ":FRONT_COVER'";
            ASSERT_TRUE(run(cmd + " '" + f + "' >/dev/null 2>&1")) << v;
            tagged.push_back(f);
        }
    }
    if (haveTool("mid3v2")) {
        // This tagger ends every v2.4 text with a nil: the text frame rules
        // report exactly that and nothing else.
        std::string f = copy("base.mp3", "mid3v2.mp3");
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
    }
    if (haveTool("id3v2")) {
        std::string f = copy("base.mp3", "id3v2.mp3");
        ASSERT_TRUE(
            run("id3v2 -2 -t 'A Title' -a 'An Artist' -A 'An Album' -T 3 -c 'desc':'A comment':'eng' '" + f +
                "' >/dev/null 2>&1"));
        tagged.push_back(f);
    }
    if (tagged.empty()) GTEST_SKIP() << "no tagger is installed";
    for (const auto& f : tagged) EXPECT_EQ(problemsForFile(f), "") << f;
}

// "    %012lu  Category: message", as the log writes a problem.
bool isProblemLine(const std::string& l) {
    if (l.size() < 18 || l.compare(0, 4, "    ") != 0 || l.compare(16, 2, "  ") != 0) return false;
    for (size_t i = 4; i < 16; ++i)
        if (!std::isdigit(static_cast<unsigned char>(l[i]))) return false;
    for (const char* category : {"File", "Container", "Framing", "Tag", "Fatal", "Privacy"}) {
        std::string head = std::string(category) + ": ";
        if (l.compare(18, head.size(), head) == 0) return l.size() > 18 + head.size();
    }
    return false;
}

TEST(MP3Corpus, EveryMpegFileGetsAWellFormedVerdict) {
    fs::path corpus = SONDREL_SHARED_DIR "/corpus";
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

}  // namespace
}  // namespace sondrel
