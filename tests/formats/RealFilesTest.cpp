// Files written by real encoders and taggers during the test run give no
// problem lines (rows whose tools are missing are skipped). ffmpeg ends every
// ID3 text frame with a nil, which the frame rules report; where it writes an
// ID3 tag those lines are left out.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>

#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using namespace fixtures;

TEST(RealFiles, EncodersAndTaggersWriteCleanFiles) {
    if (!haveTool("sox") || !haveTool("ffmpeg")) GTEST_SKIP() << "sox or ffmpeg is not installed";
    TempDir dir;
    const std::string d = "'" + dir.path() + "/";
    // %i a 2-second stereo tone, %j a small JPEG, %o the file made.
    ASSERT_TRUE(run("sox -n -r 44100 -c 2 -b 16 " + d + "tone.wav' synth 2 sine 440 sine 660") &&
                run("ffmpeg -v error -f lavfi -i color=c=blue:s=64x64:d=1 -frames:v 1 " + d + "cover.jpg'"));
    const std::string ff = "ffmpeg -v error -nostdin -y -i %i ",
                      lavfi = "ffmpeg -v error -nostdin -y -f lavfi ";
    const std::string meta =
        "-metadata title='A Title' -metadata artist='Ärtist' -metadata album=Record "
        "-metadata track=3/12 -metadata disc=1/2 -metadata genre=Rock -metadata date=2021 ";
    const struct {
        const char *tools, *name;
        std::string command;
        bool id3 = false;  // ffmpeg wrote an ID3 tag
    } rows[] = {
        {"lame", "cbr.mp3", "lame --quiet --noreplaygain -t -b 128 %i %o"},
        {"lame", "info.mp3", "lame --quiet -b 192 %i %o"},
        {"lame", "vbr.mp3", "lame --quiet -V 2 %i %o"},
        {"lame", "mpeg2.mp3", "lame --quiet -m m --resample 22.05 -b 64 %i %o"},
        {"", "ff.mp2", ff + "-c:a mp2 -b:a 192k %o"},
        {"", "ff.mp3", ff + "-c:a libmp3lame -id3v2_version 0 %o"},
        {"", "fftag.mp3", ff + meta + "-c:a libmp3lame %o", true},
        {"flac metaflac", "tagged.flac",
         "flac -s -f -o %o %i && metaflac --set-tag='TITLE=Déjà vu' --set-tag='COMMENT=two\nlines' "
         "--import-picture-from='3||front||%j' --add-padding=1024 %o"},
        {"oggenc", "a.ogg", "oggenc -Q -t 'A title' -a 'An artist' -c 'DATE=2024' -o %o %i"},
        {"opusenc", "a.opus", "opusenc --quiet --title 'A title' --artist 'Ärtist' --picture %j %i %o"},
        {"", "f.flac", ff + meta + "-c:a flac %o"},
        {"", "v.ogg", ff + meta + "-c:a libvorbis %o"},
        {"", "o.opus", ff + meta + "-c:a libopus %o"},
        {"", "v.oga", ff + meta + "-c:a libvorbis %o"},
        {"", "sox24.wav", "sox %i -r 48000 -c 1 -b 24 %o"},
        {"", "sox.aiff", "sox %i %o"},
        {"", "sox.aifc", "sox %i %o"},
        {"", "sox-mono8.aiff", "sox %i -r 8000 -c 1 -b 8 %o"},
        {"", "info.wav", ff + meta + "%o"},
        {"", "rf64.wav", ff + "-rf64 always " + meta + "%o"},
        {"", "ff.aifc", ff + "-c:a pcm_f32be %o"},
        {"", "ff-alaw.aifc", ff + "-c:a pcm_alaw %o"},
        {"", "ff-id3.aiff", ff + "-write_id3v2 1 " + meta + "%o", true},
        {"", "ff-id3.aifc", ff + "-c:a pcm_s24be -write_id3v2 1 -id3v2_version 3 " + meta + "%o", true},
        {"wavpack", "stereo.wv", "wavpack -q -y -w 'Title=Test tone' -w 'Artist=Somebody' %i -o %o"},
        {"wavpack", "lossy.wv", "wavpack -q -y -b256 %i -o %o"},
        {"wavpack", "hires.wv", "sox %i -r 96000 -b 24 %o.wav && wavpack -q -y -hh %o.wav -o %o"},
        {"wavpack", "six.wv", "sox -n -r 48000 -c 6 %o.wav synth 1 sine 440 && wavpack -q -y %o.wav -o %o"},
        {"", "aac.m4a",
         ff + "-i %j -map 0:a -map 1:v -c:a aac -c:v copy -disposition:v attached_pic " + meta + "%o"},
        {"", "alac.m4a",
         ff + "-i %j -map 0:a -map 1:v -c:a alac -c:v copy -disposition:v attached_pic " + meta + "%o"},
        {"", "movie.mp4",
         lavfi + "-i testsrc=size=64x48:rate=5:duration=1 -i %i -c:v mpeg4 -c:a aac -shortest " + meta +
             "%o"},
        {"AtomicParsley", "ap.m4a",
         ff + "-c:a aac %o && AtomicParsley %o --overWrite --title T --tracknum 1/9 --disk 1/1 --genre Jazz "
              "--compilation true --bpm 120 --artwork %j >/dev/null"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        bool have = true;
        std::istringstream tools(r.tools);
        for (std::string t; tools >> t;) have = have && haveTool(t);
        if (!have) continue;
        std::string command = r.command;
        for (const auto& [from, to] : {std::pair<std::string, std::string>{"%i", d + "tone.wav'"},
                                       {"%j", d + "cover.jpg'"},
                                       {"%o", d + r.name + "'"}})
            for (size_t at; (at = command.find(from)) != std::string::npos;) command.replace(at, 2, to);
        ASSERT_TRUE(run(command + " </dev/null >/dev/null 2>&1")) << command;
        const std::string log = problemsForFile(dir.path() + "/" + r.name);
        EXPECT_EQ(r.id3 ? std::regex_replace(log, std::regex(".*redundant trailing nil\\(s\\)\n"), "") : log,
                  "");
    }
}

}  // namespace
}  // namespace sondrel
