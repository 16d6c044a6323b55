// Clean files made by real encoders and taggers during the test run give no
// problem lines; every FLAC and Ogg file of the shared corpus is checked
// without a crash and with a well-formed verdict.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core/Text.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using namespace fixtures;

TEST(FlacOggRealFiles, CleanFilesFromRealTools) {
    if (!haveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
    // One second of a tone as 16-bit stereo WAV, and a small JPEG.
    TempDir dir;
    const std::string wav = "'" + dir.path() + "/tone.wav'", jpeg = dir.path() + "/cover.jpg";
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=1 -fflags +bitexact "
                    "-map_metadata -1 -ac 2 -ar 44100 " +
                    wav) &&
                run("ffmpeg -v error -f lavfi -i color=c=blue:s=64x64:d=1 -frames:v 1 '" + jpeg + "'"));
    const std::string ffmpeg = "ffmpeg -v error -i " + wav + " -metadata title=T -metadata artist=A -c:a ";
    struct Case {
        std::string file;
        std::vector<const char*> tools;
        std::string command;  // writes the file named last
    } cases[] = {
        {"tagged.flac",
         {"flac", "metaflac"},
         "flac -s -f -o OUT " + wav +
             " && metaflac --set-tag='TITLE=Déjà vu' --set-tag='ARTIST=Someone' "
             "--set-tag='COMMENT=two\nlines' "
             "--import-picture-from='3||front||" +
             jpeg + "' --add-padding=1024 OUT"},
        {"a.ogg", {"oggenc"}, "oggenc -Q -t 'A title' -a 'An artist' -c 'DATE=2024' -o OUT " + wav},
        {"a.opus",
         {"opusenc"},
         "opusenc --quiet --title 'A title' --artist 'Ärtist' --picture '" + jpeg + "' " + wav + " OUT"},
        {"f.flac", {}, ffmpeg + "flac OUT"},
        {"v.ogg", {}, ffmpeg + "libvorbis OUT"},
        {"o.opus", {}, ffmpeg + "libopus OUT"},
        {"v.oga", {}, ffmpeg + "libvorbis OUT"},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.file);
        bool tools = true;
        for (const char* t : c.tools) tools = tools && haveTool(t);
        if (!tools) continue;
        const std::string out = dir.path() + "/" + c.file;
        for (size_t at; (at = c.command.find("OUT")) != std::string::npos;)
            c.command.replace(at, 3, "'" + out + "'");
        ASSERT_TRUE(run(c.command));
        EXPECT_EQ(problemsForFile(out), "");
    }
}

}  // namespace
}  // namespace sondrel
