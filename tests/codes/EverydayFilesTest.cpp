// Severities against real files: what everyday encoders and taggers write
// draws no line at the threshold suggested for library managers (error),
// and damaging those files always draws one there.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "codes/ProblemCodes.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using namespace fixtures;
namespace fs = std::filesystem;

constexpr const char* kMeta =
    " -metadata title='A Title' -metadata artist='An Artist' -metadata album='An Album'"
    " -metadata track=3/12 -metadata date=2021 -metadata genre=Rock"
    " -metadata comment='A comment'";

// Each file: the tools it needs and the shell commands that make it in the
// working folder from tone.wav and cover.jpg.
struct Made {
    const char* name;
    std::vector<const char*> tools;
    std::string commands;
};

const std::vector<Made> kEveryday = {
    {"lame.mp3",
     {"lame"},
     "lame --quiet -V 4 --tt 'A Title' --ta 'An Artist' --tl 'An Album' --tn 3/12 --ty 2021 --tg Rock "
     "--tc 'A comment' --ti cover.jpg tone.wav lame.mp3"},
    {"ffmpeg23.mp3",
     {"ffmpeg"},
     std::string("ffmpeg -loglevel error -i tone.wav -i cover.jpg -map 0 -map 1 -c:a libmp3lame -c:v copy "
                 "-id3v2_version 3 -metadata:s:v comment='Cover (front)'") +
         kMeta + " ffmpeg23.mp3"},
    {"mutagen23.mp3",
     {"lame", "/usr/bin/python3"},
     "lame --quiet -b 128 tone.wav mutagen23.mp3 && /usr/bin/python3 -c \"\n"
     "from mutagen.id3 import ID3, TIT2, TPE1, TALB, TRCK, TDRC, TCON, COMM, APIC\n"
     "t = ID3()\n"
     "for f in (TIT2(encoding=3, text='A Title'), TPE1(encoding=3, text='An Artist'),\n"
     "          TALB(encoding=3, text='An Album'), TRCK(encoding=3, text='3/12'),\n"
     "          TDRC(encoding=3, text='2021-03-14'), TCON(encoding=3, text='Rock'),\n"
     "          COMM(encoding=3, lang='eng', desc='', text='A comment'),\n"
     "          APIC(encoding=3, mime='image/jpeg', type=3, desc='Cover', "
     "data=open('cover.jpg','rb').read())):\n"
     "    t.add(f)\n"
     "t.save('mutagen23.mp3', v2_version=3)\n\""},
    {"eyed3.mp3",
     {"lame", "eyeD3"},
     "lame --quiet -b 128 tone.wav eyed3.mp3 && eyeD3 -Q -t 'A Title' -a 'An Artist' -A 'An Album' -n 3 -N "
     "12 "
     "-Y 2021 -G Rock -c 'A comment' --add-image cover.jpg:FRONT_COVER eyed3.mp3 >/dev/null"},
    {"id3v2.mp3",
     {"lame", "id3v2"},
     "lame --quiet -b 128 tone.wav id3v2.mp3 && id3v2 -t 'A Title' -a 'An Artist' -A 'An Album' -T 3/12 "
     "-y 2021 -g 17 -c 'A comment' id3v2.mp3"},
    {"metaflac.flac",
     {"flac", "metaflac"},
     "flac -s tone.wav -o metaflac.flac && metaflac --set-tag='TITLE=A Title' --set-tag='ARTIST=An Artist' "
     "--set-tag='ALBUM=An Album' --set-tag=TRACKNUMBER=3 --set-tag=DATE=2021 --set-tag=GENRE=Rock "
     "--set-tag='COMMENT=A comment' --import-picture-from=cover.jpg metaflac.flac"},
    {"vorbiscomment.ogg",
     {"oggenc", "vorbiscomment"},
     "oggenc -Q tone.wav -o vorbiscomment.ogg && vorbiscomment -w -t 'TITLE=A Title' -t 'ARTIST=An Artist' "
     "-t 'ALBUM=An Album' -t TRACKNUMBER=3 -t DATE=2021 -t GENRE=Rock -t 'COMMENT=A comment' "
     "vorbiscomment.ogg"},
    {"opusenc.opus",
     {"opusenc"},
     "opusenc --quiet --title 'A Title' --artist 'An Artist' --album 'An Album' --date 2021 --genre Rock "
     "--comment TRACKNUMBER=3 --comment 'COMMENT=A comment' --picture cover.jpg tone.wav opusenc.opus"},
    {"atomicparsley.m4a",
     {"ffmpeg", "AtomicParsley"},
     "ffmpeg -loglevel error -i tone.wav -c:a aac ap.m4a && AtomicParsley ap.m4a --title 'A Title' "
     "--artist 'An Artist' --album 'An Album' --tracknum 3/12 --year 2021 --genre Rock --comment 'A comment' "
     "--artwork cover.jpg -o atomicparsley.m4a >/dev/null"},
    {"ffmpeg.m4a",
     {"ffmpeg"},
     std::string("ffmpeg -loglevel error -i tone.wav -i cover.jpg -map 0 -map 1 -c:a aac -c:v copy "
                 "-disposition:v attached_pic") +
         kMeta + " ffmpeg.m4a"},
    {"sox.flac", {"sox"}, "sox tone.wav --comment 'TITLE=A Title' -C 5 sox.flac"},
    {"wavpack.wv",
     {"wavpack"},
     "wavpack -q -w 'Title=A Title' -w 'Artist=An Artist' -w 'Album=An Album' -w Track=3/12 -w Year=2021 "
     "-w Genre=Rock -w 'Comment=A comment' --write-binary-tag 'Cover Art (Front)=@cover.jpg' tone.wav "
     "-o wavpack.wv"},
};

struct Lines {
    std::vector<std::string> all;      // every line at the defaults
    std::vector<std::string> serious;  // those of severity error or damage
};

Lines check(const std::string& path) {
    Settings settings;
    Tag tag(path, settings);
    Lines out;
    if (tag.errors())
        for (const auto& e : *tag.errors()) {
            out.all.push_back(e.reason);
            if (codes::codeAt(e.code).severity >= codes::Severity::Error) out.serious.push_back(e.reason);
        }
    return out;
}

std::string join(const std::vector<std::string>& v) {
    std::string s;
    for (const auto& x : v) s += "\n  " + x;
    return s;
}

// Truncations, an overrunning size in the first header, a broken marker and
// a zeroed range: whatever a damaged copy adds at the defaults, some of it
// is an error or damage.
const std::pair<const char*, void (*)(std::string&)> kDamages[] = {
    {"cut to two thirds", [](std::string& b) { b.resize(b.size() * 2 / 3); }},
    {"cut to a tenth", [](std::string& b) { b.resize(b.size() / 10); }},
    {"cut by 3 bytes", [](std::string& b) { b.resize(b.size() - 3); }},
    {"size overruns", [](std::string& b) { b.replace(4, 4, "\x7f\x7f\x7f\x7f"); }},
    {"marker broken", [](std::string& b) { b[0] = 'X'; }},
    {"header zeroed", [](std::string& b) { b.replace(8, 64, std::string(64, '\0')); }},
    {"middle zeroed", [](std::string& b) { b.replace(b.size() / 2, 4096, std::string(4096, '\0')); }},
};

TEST(EverydayFiles, DrawNoLineAtTheErrorThresholdUntilDamaged) {
    for (const char* tool : {"sox", "ffmpeg"})
        if (!haveTool(tool)) GTEST_SKIP() << tool << " is not installed";
    TempDir dir;
    ASSERT_TRUE(run("cd '" + dir.path() +
                    "' && sox -n -r 44100 -c 2 -b 16 tone.wav synth 2 sine 440 sine 660 && "
                    "ffmpeg -loglevel error -f lavfi -i color=c=red:s=64x64 -frames:v 1 cover.jpg"));
    size_t made = 0;
    for (const auto& m : kEveryday) {
        bool have = true;
        for (const char* t : m.tools) have = have && (t[0] == '/' ? fs::exists(t) : haveTool(t));
        if (!have) continue;
        if (!run("cd '" + dir.path() + "' && " + m.commands + " </dev/null")) {
            ADD_FAILURE() << m.name << " was not made";
            continue;
        }
        ++made;
        const std::string path = dir.path() + "/" + m.name, original = readFile(path);
        const Lines before = check(path);
        EXPECT_TRUE(before.serious.empty()) << m.name << join(before.serious);
        for (const auto& [name, apply] : kDamages) {
            std::string bytes = original;
            apply(bytes);
            const std::string damaged = path + ".damaged" + fs::path(path).extension().string();
            std::ofstream(damaged, std::ios::binary) << bytes;
            const Lines after = check(damaged);
            bool added = false;
            for (const auto& line : after.all)
                added = added || std::find(before.all.begin(), before.all.end(), line) == before.all.end();
            if (added) {
                EXPECT_FALSE(after.serious.empty()) << m.name << " " << name << ":" << join(after.all);
            }
        }
    }
    EXPECT_GE(made, 9u);
}

}  // namespace
}  // namespace sondrel
