// Clean files made by real encoders and taggers during the test run give no
// problem lines; every FLAC and Ogg file of the shared corpus is checked
// without a crash and with a well-formed verdict.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "core/Text.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using namespace fixtures;

// "    %012lu  Category: message", as the log writes a problem.
bool isProblemLine(const std::string& l) {
    if (l.size() < 18 || l.compare(0, 4, "    ") != 0 || l.compare(16, 2, "  ") != 0) return false;
    for (size_t i = 4; i < 16; ++i)
        if (l[i] < '0' || l[i] > '9') return false;
    for (const char* word : {"File", "Container", "Framing", "Tag", "Fatal", "Privacy", "Rename(mp3)"}) {
        std::string prefix = std::string(word) + ": ";
        if (l.compare(18, prefix.size(), prefix) == 0) return l.size() > 18 + prefix.size();
    }
    return false;
}

bool haveTools(std::initializer_list<const char*> tools) {
    for (const char* t : tools)
        if (!haveTool(t)) return false;
    return true;
}

// One second of a tone as 16-bit stereo WAV, and a small JPEG.
struct Sources {
    TempDir dir;
    std::string wav = dir.path() + "/tone.wav";
    std::string jpeg = dir.path() + "/cover.jpg";
    bool ok = run("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=1 -fflags +bitexact -map_metadata "
                  "-1 -ac 2 -ar 44100 '" +
                  wav + "'") &&
              run("ffmpeg -v error -f lavfi -i color=c=blue:s=64x64:d=1 -frames:v 1 '" + jpeg + "'");
};

TEST(FlacOggRealFiles, FlacByFlacAndMetaflac) {
    if (!haveTools({"ffmpeg", "flac", "metaflac"})) GTEST_SKIP() << "flac, metaflac or ffmpeg missing";
    Sources s;
    ASSERT_TRUE(s.ok);
    std::string flac = s.dir.path() + "/tagged.flac";
    ASSERT_TRUE(run("flac -s -f -o '" + flac + "' '" + s.wav + "'"));
    ASSERT_TRUE(
        run("metaflac --set-tag='TITLE=Déjà vu' --set-tag='ARTIST=Someone' --set-tag='COMMENT=two\nlines' "
            "--import-picture-from='3||front||" +
            s.jpeg + "' --add-padding=1024 '" + flac + "'"));
    EXPECT_EQ(problemsForFile(flac), "");
}

TEST(FlacOggRealFiles, VorbisAndOpusByTheirEncoders) {
    if (!haveTools({"ffmpeg", "oggenc", "opusenc"})) GTEST_SKIP() << "oggenc, opusenc or ffmpeg missing";
    Sources s;
    ASSERT_TRUE(s.ok);
    std::string ogg = s.dir.path() + "/a.ogg", opus = s.dir.path() + "/a.opus";
    ASSERT_TRUE(run("oggenc -Q -t 'A title' -a 'An artist' -c 'DATE=2024' -o '" + ogg + "' '" + s.wav + "'"));
    ASSERT_TRUE(run("opusenc --quiet --title 'A title' --artist 'Ärtist' --picture '" + s.jpeg + "' '" +
                    s.wav + "' '" + opus + "'"));
    EXPECT_EQ(problemsForFile(ogg), "");
    EXPECT_EQ(problemsForFile(opus), "");
}

TEST(FlacOggRealFiles, SameFormatsByFfmpeg) {
    if (!haveTools({"ffmpeg"})) GTEST_SKIP() << "ffmpeg missing";
    Sources s;
    ASSERT_TRUE(s.ok);
    for (const char* name : {"f.flac", "v.ogg", "o.opus", "v.oga"}) {
        std::string out = s.dir.path() + "/" + name;
        std::string codec = std::string(name).ends_with(".opus")   ? "-c:a libopus"
                            : std::string(name).ends_with(".flac") ? "-c:a flac"
                                                                   : "-c:a libvorbis";
        ASSERT_TRUE(run("ffmpeg -v error -i '" + s.wav + "' " + codec +
                        " -metadata title=T -metadata artist=A '" + out + "'"))
            << name;
        EXPECT_EQ(problemsForFile(out), "") << name;
    }
}

TEST(FlacOggRealFiles, CorpusScansWithoutCrash) {
    const std::filesystem::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!std::filesystem::exists(corpus)) GTEST_SKIP() << "no corpus";
    int scanned = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        std::string ext = entry.path().extension().string();
        if (!text::equalsCaseInsensitive(ext, ".flac") && !text::equalsCaseInsensitive(ext, ".ogg") &&
            !text::equalsCaseInsensitive(ext, ".oga") && !text::equalsCaseInsensitive(ext, ".opus"))
            continue;
        std::string out = problemsForFile(entry.path().string());
        size_t start = 0;
        while (start < out.size()) {
            size_t end = out.find('\n', start);
            ASSERT_NE(end, std::string::npos) << entry.path();
            EXPECT_TRUE(isProblemLine(out.substr(start, end - start))) << entry.path() << "\n" << out;
            start = end + 1;
        }
        // Empty and one-byte files can never pass.
        if (entry.file_size() < 42) {
            EXPECT_NE(out, "") << entry.path();
        }
        ++scanned;
    }
    EXPECT_GT(scanned, 50);
}

}  // namespace
}  // namespace sondrel
