// The command line end to end: exit statuses, alerts on standard error, where
// the log may go, cooperative cancellation, the decoder modules beside the
// program, problem filters, the result cache across processes, and the man
// pages and completions generated from the option parser.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <thread>
#include <tuple>

#include "cli/ManPage.h"
#include "codes/ProblemCodes.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/FlacBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

struct Result {
    int status = -1;
    std::string out, err;
};

// Runs a bash script in the folder with a fresh home, configuration and cache
// folder and nothing on standard input; $S is the program, $D the folder.
// Every call has its own files, so calls may run at once.
Result shell(const TempDir& d, const std::string& script) {
    static std::atomic<int> calls{0};
    const std::string n = std::to_string(++calls), file = d.path() + "/script" + n,
                      out = d.path() + "/stdout" + n, err = d.path() + "/stderr" + n;
    std::ofstream(file) << "cd \"$D\" || exit 99\nexport HOME=\"$D/home\" XDG_CONFIG_HOME=\"$D/config\" "
                           "XDG_CACHE_HOME=\"$D/cache\"\n"
                        << script << "\n";
    const int rc = std::system(("D='" + d.path() + "' S='" SONDREL_CLI_PATH "' bash '" + file +
                                "' </dev/null >'" + out + "' 2>'" + err + "'")
                                   .c_str());
    return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, readFile(out), readFile(err)};
}

// The program with `args`; `prefix` is shell text put before it (a ulimit,
// another user).
Result runCli(const TempDir& d, const std::string& args, const std::string& prefix = "",
              const std::string& program = "\"$S\"") {
    return shell(d, prefix + " " + program + " " + args);
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

std::string withoutFirstLine(const std::string& log) {
    return log.substr(log.find('\n') + 1);
}

// The prefix that runs the program as the unprivileged user "nobody".
constexpr const char* kAsNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";

TEST(CliExit, StatusAndStatusLineOfEachOutcome) {
    TempDir d;
    for (const char* name : {"notes.txt", "empty/readme.txt", "a/x.mp3", "logdir/x"})
        d.write(name, std::string("x"));
    ::mkdir((d.path() + "/p").c_str(), 0755);
    ASSERT_EQ(::mkfifo((d.path() + "/p/song.mp3").c_str(), 0644), 0);
    const std::string skipped =
        "sondrel: skipped notes.txt: not an audio file by its extension\n"
        "sondrel: missing.mp3: No such file or directory\n";
    const std::tuple<std::string, int, std::string> rows[] = {
        // A folder is something to check, but an input could not be checked.
        {"--log log.txt notes.txt missing.mp3 empty", 2,
         skipped + "0 files scanned: none with problems. 0 problems logged. 1 could not be read.\n"},
        {"--log log.txt notes.txt missing.mp3", 2,
         skipped + "sondrel: nothing to check (give folders or audio files; see --help)\n"},
        {"--log log.txt empty", 0, "0 files scanned: none with problems. 0 problems logged.\n"},
        {"--log log.txt p", 1, "1 file scanned: 1 with problems (1 with errors). 1 problem logged.\n"},
        {"--option LogPath=x.txt p", 2,
         "sondrel: LogPath is the desktop program's log file; use --log FILE\n"},
        {"--option NoSuchKey=1 p", 2, "sondrel: unknown option key 'NoSuchKey'\n"},
        {"--option LogDups=maybe p", 2,
         "sondrel: option LogDups takes 1/0, true/false or yes/no, got 'maybe'\n"},
        // Alerts about the log stop the scan before it starts.
        {"--log logdir a", 2, "sondrel: Invalid Log File: The specified log file is a folder\n"},
        {"--log no/such/dir/log.txt a", 2,
         "sondrel: Create Error: Error creating log file " + d.path() +
             "/no/such/dir/log.txt: No such file or directory\n"},
        {"--log /dev/full a", 2,
         "sondrel: Error: An error occurred while writing the log file /dev/full: No space left on device\n"},
        {"--quiet --log - p", 1, ""},  // the log on standard output
    };
    Result r;
    for (const auto& [args, status, err] : rows) {
        r = runCli(d, args);
        EXPECT_EQ(r.status, status) << args;
        EXPECT_EQ(r.err, err) << args;
    }
    EXPECT_EQ(r.out.rfind("Sondrel Version ", 0), 0u);
    const std::string log = readFile(d.path() + "/log.txt");
    EXPECT_EQ(withoutFirstLine(log).substr(0, 1), "\n");
    EXPECT_TRUE(has(log, "  " + d.path() + "/p/song.mp3\n    000000000000  File: ")) << log;
    // Without --log the log goes to standard output too; the stored LogPath
    // is the desktop program's and is neither used nor set.
    const Result plain = runCli(d, "p");
    EXPECT_EQ(plain.status, 1);
    EXPECT_EQ(withoutFirstLine(plain.out), withoutFirstLine(log));
    // A scheduler may start it with standard input closed: a file it opens
    // then gets descriptor 0, which is as good as any other.
    EXPECT_EQ(withoutFirstLine(runCli(d, "p <&-").out), withoutFirstLine(log));
    EXPECT_NE(::access((d.path() + "/home/Documents").c_str(), F_OK), 0);

    // A write that fails during the scan stops it too: over forty unreadable
    // files, the file-size limit (1 KiB) lets the first line through and makes
    // a later write fail, as a full disk would.
    r = runCli(d, "--jobs 1 --log log.txt many",
               "mkdir many; for i in $(seq 100 139); do mkfifo many/f$i.mp3; done; ulimit -f 1;");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(has(r.err, "sondrel: Error: An error occurred while writing the log file " + d.path() +
                               "/log.txt: File too large\n"))
        << r.err;
    EXPECT_LT(readFile(d.path() + "/log.txt").size(), 1025u);
    EXPECT_EQ(readFile(d.path() + "/log.txt").rfind("Sondrel Version", 0), 0u);
}

TEST(CliCancel, InterruptFinishesTheCurrentFileAndExits130) {
    TempDir d;
    for (int i = 0; i < 3000; ++i) d.write("big/" + std::to_string(10000 + i) + ".flac", std::string("x"));
    std::string cmd = "HOME='" + d.path() + "' XDG_CONFIG_HOME='" + d.path() + "/config' exec '" +
                      SONDREL_CLI_PATH + "' --all-files --jobs 1 --log '" + d.path() + "/log.txt' '" +
                      d.path() + "/big' 2>'" + d.path() + "/stderr'";
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    // Wait until the scan is under way, then interrupt it.
    for (int i = 0; i < 500 && readFile(d.path() + "/log.txt").size() < 2000; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ::kill(pid, SIGINT);
    int st = 0;
    ::waitpid(pid, &st, 0);
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), 130);
    EXPECT_EQ(readFile(d.path() + "/stderr"), "Cancelled\n");
    std::string log = readFile(d.path() + "/log.txt");
    EXPECT_EQ(log.back(), '\n') << "the log ends with a whole line";
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), 2 * 3000 + 1);
}

TEST(CliLogTarget, NeverAnAudioFileASelectedFileOrAForeignFileAndPipesWork) {
    TempDir d;
    for (const char* name : {"a/song.flac", "typo/a.mp3", "typo/b.mp3", "notes.txt", "1"})
        d.write(name, std::string(name));
    ASSERT_EQ(::link((d.path() + "/a/song.flac").c_str(), (d.path() + "/link.txt").c_str()), 0);
    ASSERT_EQ(::symlink("a/song.flac", (d.path() + "/alias.txt").c_str()), 0);
    const std::string
        audio = ": The log file has an audio file's extension",
        foreign = ": The log file exists and is not a log written by this program (--force replaces it)\n";
    const std::pair<std::string, std::string> rows[] = {
        {"--log typo/a.mp3 typo/b.mp3", "/typo/a.mp3" + audio},
        {"--log a/song.flac a", "/a/song.flac" + audio},
        {"--force --log a/SONG.FLAC a", "/a/SONG.FLAC" + audio},
        {"--log alias.txt typo", "/alias.txt" + audio},
        {"--log link.txt a/song.flac", "/link.txt: The log file is one of the files selected for the scan\n"},
        {"--force --log link.txt a/song.flac", "/link.txt: The log file is one of the files selected"},
        {"--log notes.txt a", "/notes.txt" + foreign},
        {"--log 1 a", "/1" + foreign},  // one byte is content too
    };
    for (const auto& [args, message] : rows) {
        auto r = runCli(d, args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_TRUE(has(r.err, "sondrel: " + d.path() + message)) << args << "\n" << r.err;
    }
    for (const char* name : {"a/song.flac", "typo/a.mp3", "notes.txt"})
        EXPECT_EQ(readFile(d.path() + "/" + name), name);
    // A log of this program is replaced (the second run); --force replaces a foreign file.
    for (const char* args : {"--log old.log a", "--log old.log a", "--force --log notes.txt a"})
        EXPECT_NE(runCli(d, args).status, 2) << args;
    EXPECT_EQ(readFile(d.path() + "/notes.txt").rfind("Sondrel Version ", 0), 0u);

    // Pipes work, a closed pipe ends the scan quietly, a guessed path is refused.
    d.write("a/x.flac", std::string("x"));
    for (int i = 0; i < 2000; ++i) d.write("big/" + std::to_string(10000 + i) + ".flac", std::string("x"));

    Result r = shell(d, "\"$S\" --log /dev/stdout a | cat; exit ${PIPESTATUS[0]}");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.rfind("Sondrel Version ", 0), 0u) << r.err;
    EXPECT_TRUE(has(r.out, "/a/x.flac\n"));

    // head leaves after the first bytes; the rest of the log (far more than
    // a pipe holds) meets a closed pipe.
    r = shell(d, "\"$S\" --all-files --log - big | head -c 10 >/dev/null; exit ${PIPESTATUS[0]}");
    EXPECT_EQ(r.status, 141);
    EXPECT_EQ(r.err, "") << "no message and no status line";

    ::unlink("/rel.log");
    r = shell(d, "mkdir gone && cd gone && rmdir ../gone && \"$S\" --log rel.log \"$D/a\"");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(has(r.err, "sondrel: rel.log: the working folder cannot be found out: ")) << r.err;
    EXPECT_NE(::access("/rel.log", F_OK), 0) << "never a guess";
}

TEST(CliUnreadable, EveryInputThatCannotBeCheckedIsNamedAndTheStatusIsTwo) {
    TempDir d;
    // The files must be denied to the program, which root never is: run it
    // as the unprivileged user "nobody" when the tests run as root.
    const std::string as = ::geteuid() == 0 ? kAsNobody : "";
    if (!as.empty() && shell(d, as + "true").status != 0)
        GTEST_SKIP() << "cannot run as nobody (setpriv failed)";
    for (const char* name : {"t/ok.flac", "t/sub/deep.flac", "locked/x.mp3", "t2/no.flac", "out/.keep"})
        d.write(name, std::string("x"));
    for (const auto& [path, mode] :
         {std::pair{"", 0755}, {"/out", 0777}, {"/t/sub", 0}, {"/locked", 0}, {"/t2/no.flac", 0}})
        ::chmod((d.path() + path).c_str(), mode);
    const std::string denied = ": Permission denied\n", unread = " 1 could not be read.\n",
                      one = "1 file scanned: 1 with problems (1 damaged). 1 problem logged." + unread;
    const std::pair<std::string, std::string> rows[] = {
        {"t", d.path() + "/t/sub" + denied + one},
        {"locked",
         d.path() + "/locked" + denied + "0 files scanned: none with problems. 0 problems logged." + unread},
        {"t2", d.path() + "/t2/no.flac" + denied +
                   "1 file scanned: 1 with problems (1 with errors). 1 problem logged." + unread},
        {"locked/x.mp3 t/ok.flac", "locked/x.mp3" + denied + one},
    };
    for (const auto& [paths, err] : rows) {
        const Result r = runCli(d, "--log out/log.txt " + paths, as);
        EXPECT_EQ(r.status, 2) << paths;
        EXPECT_EQ(r.err, "sondrel: " + err) << paths;
    }
}

// Full verification over two FLAC files, each with a picture in the usual
// formats (a JPEG signature) and one in the newer ones (a JPEG XL codestream
// signature), neither of which decodes: the build tree's program loads every
// module; a copy without lib/sondrel beside it names each missing module
// once, and each file says what was not checked.
TEST(CliModules, LoadedBesideTheProgramOrNamedOnceWhenMissing) {
    TempDir d;
    const Bytes jpeg{0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0, 0, 0, 0, 0, 0},
        jxl{0xFF, 0x0A, 0x11, 0x22, 0, 0, 0, 0, 0, 0, 0, 0};
    for (const char* name : {"a.flac", "b.flac"})
        d.write(name, flacFile({flacBlock(kFlacPicture, pictureData(3, "image/jpeg", "", jpeg)),
                                flacBlock(kFlacPicture, pictureData(4, "image/jxl", "", jxl))}));
    const std::string args = "--verify full --log log.txt a.flac b.flac";
    Result r = runCli(d, args);
    std::string log = readFile(d.path() + "/log.txt");
    EXPECT_FALSE(has(r.err, "cannot load")) << r.err;
    EXPECT_EQ(count(log, "Artwork data cannot be represented as an image"), 4u) << log;
    EXPECT_EQ(count(log, "could not be loaded"), 0u) << log;
    EXPECT_TRUE(has(log, "FLAC")) << log;

    r = runCli(d, args, "mkdir -p bin && cp \"$S\" bin/ &&", "bin/sondrel");
    log = readFile(d.path() + "/log.txt");
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_EQ(count(r.err, "sondrel: cannot load "), 3u) << r.err;
    for (const char* module : {"images", "images_modern", "decoders"})
        EXPECT_TRUE(has(r.err, "load " + d.path() + "/lib/sondrel/sondrel_" + module +
                                   ".so: cannot open shared object file: No such file or directory\n"))
            << r.err;
    EXPECT_EQ(count(log, "Artwork not checked: the image decoders could not be loaded"), 2u) << log;
    EXPECT_EQ(count(log, "Audio not verified: the audio decoders could not be loaded"), 2u) << log;
}

// A folder with an MP3 whose title ends with a nil (a warning) and a FLAC
// file whose marker is broken (damage). What a filter removes is neither
// logged nor counted, a file left without problems gets no heading, and the
// exit status follows what remains.
constexpr const char* kNil = "ID3 'TIT2' frame: text string contains redundant trailing nil(s)";

TEST(CliFilter, SeverityCodesFamiliesPrefixesStoredOptionsAndBadValues) {
    TempDir d;
    const Bytes title = id3Frame("TIT2", id3Text(std::string_view("Title\0", 6)));
    d.write("music/warn.mp3", concat({id3v2Tag(3, title), mpegFrames(MpegSpec{}, 12)}));
    d.write("music/bad.flac", concat({Bytes{'f', 'L', 'a', 'X'}, Bytes(60, 0)}));
    const auto scan = [&](const std::string& options) { return runCli(d, "--log - " + options + " music"); };
    const std::string both =
        "2 files scanned: 2 with problems (1 damaged, 1 with warnings). 2 problems logged.\n";
    const std::string flacOnly = "2 files scanned: 1 with problems (1 damaged). 1 problem logged.\n";
    const std::string mp3Only = "2 files scanned: 1 with problems (1 with warnings). 1 problem logged.\n";
    const std::string none = "2 files scanned: none with problems. 0 problems logged.\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", both},
        {"--min-severity error", flacOnly},
        {"--ignore 'flac.*'", mp3Only},
        {"--select 'id3.tr*,flac.header'", both},
        {"--select id3 --min-severity error", none},
        {"--option MinSeverity=damage", flacOnly},
    };
    for (const auto& [options, status] : cases) {
        Result r = scan(options);
        EXPECT_EQ(r.status, status == none ? 0 : 1) << options << "\n" << r.err;
        EXPECT_EQ(r.err, status) << options;
        const bool mp3 = status == both || status == mp3Only, flac = status == both || status == flacOnly;
        EXPECT_EQ(has(r.out, "/music/warn.mp3\n    "), mp3) << options << r.out;
        EXPECT_EQ(has(r.out, kNil), mp3) << options;
        EXPECT_EQ(has(r.out, "/music/bad.flac\n    "), flac) << options << r.out;
        EXPECT_FALSE(has(r.out, "\n\n\n")) << "a heading only above problem lines";
        EXPECT_FALSE(r.out.ends_with(".mp3\n") || r.out.ends_with(".flac\n")) << options;
    }

    Result all = scan("--all-files --min-severity damage");
    EXPECT_EQ(all.status, 1);
    EXPECT_TRUE(has(all.out, "/music/warn.mp3\n") && !has(all.out, kNil)) << all.out;

    d.write("config/sondrel/settings.conf", std::string("IgnoreCodes=flac\nMinSeverity=warning\n"));
    Result stored = scan("");
    EXPECT_EQ(stored.status, 1);
    EXPECT_TRUE(!has(stored.out, "bad.flac") && has(stored.out, kNil)) << stored.out;

    for (const char* options :
         {"--ignore nope", "--select id", "--min-severity severe", "--option IgnoreCodes=x.*"}) {
        Result r = scan(options);
        EXPECT_EQ(r.status, 2) << options;
        EXPECT_TRUE(r.err.starts_with("sondrel: unknown ")) << options << ": " << r.err;
        EXPECT_EQ(r.out, "") << options;
    }

    EXPECT_EQ(runCli(d, "--explain id3.trailing-nil").status, 0);
    EXPECT_EQ(runCli(d, "--explain id3.nothing").status, 2);
    EXPECT_TRUE(has(runCli(d, "--list-codes").out, "\nid3.trailing-nil "));
}

// The result cache across processes, over four folders of files with
// problems written once and left to settle (files changed in the last
// seconds before a scan are not kept). Each run must write the log and exit
// status of a run without the cache: two scans sharing one cache, filling it
// and then reading it, and a damaged, read-only or locked cache, which is
// named once.
TEST(CliCache, SharedDamagedReadOnlyOrLockedCachesChangeNoLog) {
    TempDir d;
    ::chmod(d.path().c_str(), 0755);  // the read-only case runs as another user
    const char* exts[] = {"mp3", "flac", "wav", "ogg", "m4a", "aiff", "ape", "wv", "dsf"};
    for (const char* folder : {"p", "q", "r", "s"})
        for (int i = 0; i < 150; ++i)
            d.write(std::string("lib/") + folder + "/" + std::to_string(i) + " x." + exts[i % 9],
                    std::string(size_t(i % 7) * 40, char('A' + i % 26)) + "RIFF ID3 fLaC OggS");
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    const auto scan = [&](const std::string& args, const std::string& prefix = "") {
        Result r = runCli(d, "--quiet --log - --jobs 2 " + args, prefix);
        r.out = withoutFirstLine(r.out);
        return r;
    };
    const std::string inputs = "lib/p lib/q", other = "lib/q lib/r";
    const Result plain = scan(inputs), plainOther = scan(other);
    ASSERT_EQ(plain.status, 1) << plain.err;
    for (int round = 0; round < 2; ++round) {  // filling the cache, then from it
        Result r, rOther;
        std::thread thread([&] { rOther = scan("--cache-file shared.sqlite " + other); });
        r = scan("--cache-file shared.sqlite " + inputs);
        thread.join();
        EXPECT_EQ(r.out, plain.out) << round;
        EXPECT_EQ(rOther.out, plainOther.out) << round;
        EXPECT_EQ(std::pair(r.status, rOther.status), std::pair(plain.status, plainOther.status));
        EXPECT_EQ(r.err + rOther.err, "") << round;
    }
    const std::string bytes = readFile(d.path() + "/shared.sqlite");
    ASSERT_GT(bytes.size(), 8192u);

    // Cut in the middle: pages and rows referred to are missing. Read-only
    // for the user who runs the scan (root writes anything, so the scan runs
    // as nobody then). Locked by another process that holds its write lock
    // through the scan, which has results of the fourth folder to add; the
    // locker ends with the scan's shell.
    const std::string cut = d.write("cut.sqlite", bytes.substr(0, bytes.size() / 2)),
                      ro = d.write("ro.sqlite", bytes), locked = d.write("locked.sqlite", bytes);
    ::chmod(ro.c_str(), 0444);
    const std::string locker =
        "python3 -c 'import sqlite3, sys, time; c = sqlite3.connect(sys.argv[1], isolation_level=None); "
        "c.execute(\"BEGIN EXCLUSIVE\"); open(\"ready\", \"w\").close(); time.sleep(60)' " +
        locked + " & trap \"kill $!\" EXIT; while [ ! -e ready ]; do sleep 0.05; done;";
    const struct {
        const char* what;
        std::string file, prefix, inputs;
    } cases[] = {
        {"truncated", cut, "", inputs},
        {"read-only", ro, ::geteuid() == 0 ? kAsNobody : "", inputs},
        {"locked", locked, locker, "lib/p lib/q lib/s"},
    };
    for (const auto& c : cases) {
        const Result expected = c.inputs == inputs ? plain : scan(c.inputs);
        const Result r = scan("--cache-file " + c.file + " " + c.inputs, c.prefix);
        EXPECT_EQ(r.status, expected.status) << c.what << r.err;
        EXPECT_EQ(r.out, expected.out) << c.what;
        EXPECT_EQ(count(r.err, "result cache"), 1u) << c.what << ": " << r.err;
        EXPECT_EQ(r.err.rfind("sondrel: " + c.file + ": result cache ", 0), 0u) << c.what << ": " << r.err;
    }
}

// The man pages and shell completions come from the option parser: every
// option the help shows and every problem code is documented, hidden options
// stay hidden, man reads the pages without a warning and bash completes.
TEST(CliDocs, ProgramDocumentsEveryOptionItShows) {
    TempDir d;
    const std::string help = runCli(d, "--help").out;
    EXPECT_FALSE(has(help, "--generate"));
    std::set<std::string> names;
    const std::regex longOption("--[a-z0-9][a-z0-9-]*");
    for (std::sregex_iterator it(help.begin(), help.end(), longOption), end; it != end; ++it)
        names.insert(it->str());
    EXPECT_GT(names.size(), 10u);
    const std::string man = runCli(d, "--generate man").out, bash = runCli(d, "--generate bash").out,
                      zsh = runCli(d, "--generate zsh").out, fish = runCli(d, "--generate fish").out;
    for (const auto& name : names) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(has(man, "\\fB" + cli::roff(name, true) + "\\fR"));
        EXPECT_TRUE(has(bash, " " + name + " ") || has(bash, " " + name + "'"));
        EXPECT_TRUE(has(zsh, name));
        EXPECT_TRUE(has(fish, " -l " + name.substr(2) + " "));
    }
    for (const auto& row : codes::problemCodes())
        EXPECT_TRUE(
            has(man, "\\fB" + cli::roff(row.code, true) + "\\fR (" + codes::severityName(row.severity)))
            << row.code;
    for (const std::string* script : {&bash, &zsh, &fish}) EXPECT_TRUE(has(*script, " id3.trailing-nil "));

    const Result r = shell(d, R"(for p in man man-gui; do
  "$S" --generate $p >page
  w=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l -Tutf8 -Z page 2>&1 >/dev/null)
  [ -z "$w" ] || { echo "$p: $w"; exit 1; }
done
source /usr/share/bash-completion/bash_completion
source <("$S" --generate bash)
COMP_WORDS=(sondrel --verify q); COMP_CWORD=2; COMP_LINE='sondrel --verify q'; COMP_POINT=${#COMP_LINE}
_sondrel sondrel q --verify
[ "${COMPREPLY[*]}" = quick ] || { echo "completion: ${COMPREPLY[*]}"; exit 1; })");
    EXPECT_EQ(r.status, 0) << r.out << r.err;
}

}  // namespace
}  // namespace sondrel
