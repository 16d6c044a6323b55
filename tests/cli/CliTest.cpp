// The command line end to end: exit statuses, alerts on standard error, the
// log on disk or on standard output, and cooperative cancellation.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "core/Text.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::TempDir;

struct Result {
    int status = -1;
    std::string out, err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Runs the program with a fresh home and configuration folder; `prefix` is
// shell text put before the command (for example a ulimit).
Result runCli(const TempDir& d, const std::string& args, const std::string& prefix = "") {
    std::string cmd = "cd '" + d.path() + "' && " + prefix + " HOME='" + d.path() +
                      "/home' XDG_CONFIG_HOME='" + d.path() + "/config' '" + SONDREL_CLI_PATH + "' " + args +
                      " >'" + d.path() + "/stdout' 2>'" + d.path() + "/stderr' </dev/null";
    Result r;
    int rc = std::system(("bash -c \"" + cmd + "\"").c_str());
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.out = slurp(d.path() + "/stdout");
    r.err = slurp(d.path() + "/stderr");
    return r;
}

// Runs a bash script in the folder with a fresh home and configuration
// folder; $S is the program, $D the folder. Returns the script's status.
int runShell(const TempDir& d, const std::string& script) {
    std::string path = d.path() + "/script.sh";
    std::ofstream(path) << "cd \"$D\" || exit 99\n" << script << "\n";
    std::string cmd = "D='" + d.path() + "' S='" + SONDREL_CLI_PATH + "' HOME='" + d.path() +
                      "/home' XDG_CONFIG_HOME='" + d.path() + "/config' bash '" + path + "' </dev/null";
    int rc = std::system(cmd.c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

TEST(CliExit, NothingToCheckIsAnErrorAndEverySkippedPathIsNamed) {
    TempDir d;
    d.write("notes.txt", std::string("x"));
    auto r = runCli(d, "--log log.txt notes.txt missing.mp3 .");
    EXPECT_EQ(r.status, 2) << "the folder '.' is kept, but missing.mp3 could not be checked: " << r.err;
    EXPECT_NE(r.err.find("0 files scanned: none with problems. 0 problems logged. 1 could not be read.\n"),
              std::string::npos)
        << r.err;
    auto r2 = runCli(d, "--log log.txt notes.txt missing.mp3");
    EXPECT_EQ(r2.status, 2);
    EXPECT_NE(r2.err.find("skipped notes.txt: not an audio file by its extension"), std::string::npos)
        << r2.err;
    EXPECT_NE(r2.err.find("sondrel: missing.mp3: No such file or directory\n"), std::string::npos);
    EXPECT_NE(r2.err.find("nothing to check"), std::string::npos);
}

TEST(CliExit, CleanScanProblemsAndStatusLines) {
    TempDir d;
    d.write("empty/readme.txt", std::string("x"));
    auto clean = runCli(d, "--log log.txt empty");
    EXPECT_EQ(clean.status, 0);
    EXPECT_EQ(clean.err, "0 files scanned: none with problems. 0 problems logged.\n");

    ::mkdir((d.path() + "/p").c_str(), 0755);
    ASSERT_EQ(::mkfifo((d.path() + "/p/song.mp3").c_str(), 0644), 0);
    auto bad = runCli(d, "--log log.txt p");
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, "1 file scanned: 1 with problems (1 with errors). 1 problem logged.\n");
    std::string log = slurp(d.path() + "/log.txt");
    EXPECT_EQ(log.substr(log.find('\n') + 1).substr(0, 1), "\n");
    EXPECT_NE(log.find("  " + d.path() + "/p/song.mp3\n    000000000000  File: "), std::string::npos) << log;

    auto quiet = runCli(d, "--quiet --log - p");
    EXPECT_EQ(quiet.status, 1);
    EXPECT_EQ(quiet.err, "");
    EXPECT_EQ(quiet.out.rfind("Sondrel Version ", 0), 0u) << "--log - writes the log to standard output";
    // Without --log the log goes to standard output too; the stored LogPath
    // is the desktop program's and is neither used nor set.
    auto plain = runCli(d, "p");
    EXPECT_EQ(plain.status, 1);
    EXPECT_EQ(plain.out.substr(plain.out.find('\n')), log.substr(log.find('\n')));
    EXPECT_NE(::access((d.path() + "/home/Documents").c_str(), F_OK), 0);
    EXPECT_EQ(runCli(d, "--option LogPath=x.txt p").err,
              "sondrel: LogPath is the desktop program's log file; use --log FILE\n");
}

TEST(CliExit, LogAlertsStopTheScanBeforeItStarts) {
    TempDir d;
    d.write("a/x.mp3", std::string("x"));
    ::mkdir((d.path() + "/logdir").c_str(), 0755);
    auto folder = runCli(d, "--log logdir a");
    EXPECT_EQ(folder.status, 2);
    EXPECT_EQ(folder.err, "sondrel: Invalid Log File: The specified log file is a folder\n");
    auto nowhere = runCli(d, "--log no/such/dir/log.txt a");
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.err, "sondrel: Create Error: Error creating log file " + d.path() +
                               "/no/such/dir/log.txt: No such file or directory\n");
    auto full = runCli(d, "--log /dev/full a");
    EXPECT_EQ(full.status, 2);
    EXPECT_EQ(
        full.err,
        "sondrel: Error: An error occurred while writing the log file /dev/full: No space left on device\n");
}

TEST(CliExit, AWriteFailureMidScanStopsTheScanWithStatusTwo) {
    TempDir d;
    ::mkdir((d.path() + "/many").c_str(), 0755);
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(::mkfifo((d.path() + "/many/f" + std::to_string(100 + i) + ".mp3").c_str(), 0644), 0);
    // The file-size limit (1 KiB) lets the first line through and makes a
    // later write fail, as a full disk would.
    auto r = runCli(d, "--jobs 1 --log log.txt many", "ulimit -f 1;");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("sondrel: Error: An error occurred while writing the log file " + d.path() +
                         "/log.txt: File too large\n"),
              std::string::npos)
        << r.err;
    EXPECT_LT(slurp(d.path() + "/log.txt").size(), 1025u);
    EXPECT_EQ(slurp(d.path() + "/log.txt").rfind("Sondrel Version", 0), 0u);
}

TEST(CliOptions, OverridesAreCheckedAndVersionAndHelpWork) {
    TempDir d;
    d.write("a/x.flac", std::string("x"));
    EXPECT_EQ(runCli(d, "--option NoSuchKey=1 --log l.txt a").status, 2);
    EXPECT_EQ(runCli(d, "--option LogDups=maybe --log l.txt a").status, 2);
    // Whatever the one-byte file draws, the options were taken.
    EXPECT_NE(runCli(d, "--option LogDups=yes --option LogAllFiles=true --log l.txt a").status, 2);
    std::string log = slurp(d.path() + "/l.txt");
    EXPECT_NE(log.find("  " + d.path() + "/a/x.flac\n"), std::string::npos)
        << "LogAllFiles heads a clean file";
    for (const char* flag : {"--version", "-V"}) {
        auto v = runCli(d, flag);
        EXPECT_EQ(v.status, 0) << flag;
        EXPECT_NE(v.out.find("Sondrel"), std::string::npos) << flag;
    }
    auto h = runCli(d, "--help");
    EXPECT_EQ(h.status, 0);
    EXPECT_NE(h.out.find(".opus"), std::string::npos) << "help lists the extensions from the format table";
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
    for (int i = 0; i < 500 && slurp(d.path() + "/log.txt").size() < 2000; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ::kill(pid, SIGINT);
    int st = 0;
    ::waitpid(pid, &st, 0);
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), 130);
    EXPECT_EQ(slurp(d.path() + "/stderr"), "Cancelled\n");
    std::string log = slurp(d.path() + "/log.txt");
    EXPECT_EQ(log.back(), '\n') << "the log ends with a whole line";
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), 2 * 3000 + 1);
}

TEST(CliLogTarget, TheLogNeverReplacesAnAudioFileASelectedFileOrAForeignFile) {
    TempDir d;
    d.write("a/song.flac", std::string("FLAC"));
    d.write("typo/a.mp3", std::string("MP3A"));
    d.write("typo/b.mp3", std::string("MP3B"));
    d.write("notes.txt", std::string("my notes"));
    ASSERT_EQ(::link((d.path() + "/a/song.flac").c_str(), (d.path() + "/link.txt").c_str()), 0);
    ASSERT_EQ(::symlink("a/song.flac", (d.path() + "/alias.txt").c_str()), 0);
    const std::string audio = ": The log file has an audio file's extension";
    struct Row {
        std::string args, message;
    };
    const Row rows[] = {
        {"--log typo/a.mp3 typo/b.mp3", "/typo/a.mp3" + audio},
        {"--log a/song.flac a", "/a/song.flac" + audio},
        {"--force --log a/SONG.FLAC a", "/a/SONG.FLAC" + audio},
        {"--log alias.txt typo", "/alias.txt" + audio},
        {"--log link.txt a/song.flac", "/link.txt: The log file is one of the files selected for the scan\n"},
        {"--force --log link.txt a/song.flac", "/link.txt: The log file is one of the files selected"},
        {"--log notes.txt a",
         "/notes.txt: The log file exists and is not a log written by this program "
         "(--force replaces it)\n"},
    };
    for (const auto& row : rows) {
        auto r = runCli(d, row.args);
        EXPECT_EQ(r.status, 2) << row.args;
        EXPECT_NE(r.err.find("sondrel: " + d.path() + row.message), std::string::npos) << row.args << "\n"
                                                                                       << r.err;
    }
    EXPECT_EQ(slurp(d.path() + "/a/song.flac"), "FLAC");
    EXPECT_EQ(slurp(d.path() + "/typo/a.mp3"), "MP3A");
    EXPECT_EQ(slurp(d.path() + "/notes.txt"), "my notes");

    // A log of this program is replaced; --force replaces a foreign file.
    EXPECT_NE(runCli(d, "--log old.log a").status, 2);
    EXPECT_NE(runCli(d, "--log old.log a").status, 2) << "a log is replaced";
    EXPECT_NE(runCli(d, "--force --log notes.txt a").status, 2);
    EXPECT_EQ(slurp(d.path() + "/notes.txt").rfind("Sondrel Version ", 0), 0u);
}

TEST(CliLogHeadings, EveryNameIsOneHeadingLineAndItsBytesAreRecoverable) {
    TempDir d;
    const std::vector<std::string> names = {
        "evil.mp3\n    000000000000  Fatal: forged\n\n2020-01-01T00:00:00  forged.mp3",
        "tab\there.mp3",
        "cr\rhere.flac",
        "dup\xff.mp3",
        "dup\xfe.mp3",
        "back\\x41slash.wav",
        "plain é.ogg"};
    std::set<std::string> expected;
    for (const auto& n : names) expected.insert(d.write("n/" + n, std::string("x")));
    auto r = runCli(d, "--all-files --log log.txt n");
    ASSERT_EQ(r.status, 1) << r.err;
    std::istringstream log(slurp(d.path() + "/log.txt"));
    std::string line, previous;
    std::set<std::string> found;
    std::getline(log, previous);  // the first line
    while (std::getline(log, line)) {
        if (previous.empty()) {
            ASSERT_GT(line.size(), 21u) << line;
            auto path = text::unescapePath(line.substr(21));
            ASSERT_TRUE(path) << line;
            found.insert(*path);
        } else if (!line.empty()) {
            EXPECT_EQ(line.rfind("    0000", 0), 0u) << "neither heading nor problem line: " << line;
        }
        previous = line;
    }
    EXPECT_EQ(found, expected);
    EXPECT_NE(slurp(d.path() + "/log.txt").find("/n/plain é.ogg\n"), std::string::npos)
        << "ordinary names as they are";
}

TEST(CliLogDestinations, PipesWorkAClosedPipeEndsQuietlyAndAGuessedPathIsRefused) {
    TempDir d;
    d.write("a/x.flac", std::string("x"));
    for (int i = 0; i < 2000; ++i) d.write("big/" + std::to_string(10000 + i) + ".flac", std::string("x"));

    EXPECT_EQ(runShell(d, "\"$S\" --log /dev/stdout a 2>err | cat >out; exit ${PIPESTATUS[0]}"), 1);
    EXPECT_EQ(slurp(d.path() + "/out").rfind("Sondrel Version ", 0), 0u) << slurp(d.path() + "/err");
    EXPECT_NE(slurp(d.path() + "/out").find("/a/x.flac\n"), std::string::npos);

    // head leaves after the first bytes; the rest of the log (far more than
    // a pipe holds) meets a closed pipe.
    EXPECT_EQ(
        runShell(d, "\"$S\" --all-files --log - big 2>err | head -c 10 >/dev/null; exit ${PIPESTATUS[0]}"),
        141);
    EXPECT_EQ(slurp(d.path() + "/err"), "") << "no message and no status line";

    ::unlink("/rel.log");
    EXPECT_EQ(
        runShell(d, "mkdir gone && cd gone && rmdir ../gone && \"$S\" --log rel.log \"$D/a\" 2>\"$D/err\""),
        2);
    EXPECT_NE(slurp(d.path() + "/err").find("sondrel: rel.log: the working folder cannot be found out: "),
              std::string::npos)
        << slurp(d.path() + "/err");
    EXPECT_NE(::access("/rel.log", F_OK), 0) << "never a guess";
}

TEST(CliUnreadable, EveryInputThatCannotBeCheckedIsNamedAndTheStatusIsTwo) {
    TempDir d;
    // The files must be denied to the program, which root never is: run it
    // as the unprivileged user "nobody" when the tests run as root.
    std::string as;
    if (::getuid() == 0) {
        as = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
        if (runShell(d, as + "true") != 0)
            GTEST_SKIP() << "cannot run as an unprivileged user (setpriv failed)";
    }
    ::chmod(d.path().c_str(), 0755);
    d.write("t/ok.flac", std::string("x"));
    d.write("t/sub/deep.flac", std::string("x"));
    d.write("locked/x.mp3", std::string("x"));
    ::chmod(d.write("t2/no.flac", std::string("x")).c_str(), 0);
    ::mkdir((d.path() + "/out").c_str(), 0755);
    ::chmod((d.path() + "/out").c_str(), 0777);
    ::chmod((d.path() + "/t/sub").c_str(), 0);
    ::chmod((d.path() + "/locked").c_str(), 0);
    const std::string D = d.path(), one = " 1 could not be read.\n";
    const std::pair<std::string, std::string> rows[] = {
        {"t",
         "sondrel: " + D +
             "/t/sub: Permission denied\n1 file scanned: 1 with problems (1 damaged). 1 problem logged." +
             one},
        {"locked", "sondrel: " + D +
                       "/locked: Permission denied\n0 files scanned: none with problems. 0 problems logged." +
                       one},
        {"t2", "sondrel: " + D +
                   "/t2/no.flac: Permission denied\n1 file scanned: 1 with problems (1 with errors). 1 "
                   "problem logged." +
                   one},
        {"locked/x.mp3 t/ok.flac",
         "sondrel: locked/x.mp3: Permission denied\n1 file scanned: 1 with problems (1 damaged). 1 problem "
         "logged." +
             one},
    };
    for (const auto& [paths, err] : rows) {
        EXPECT_EQ(runShell(d, as + "\"$S\" --log out/log.txt " + paths + " 2>err"), 2) << paths;
        EXPECT_EQ(slurp(D + "/err"), err) << paths;
    }
}

}  // namespace
}  // namespace sondrel
