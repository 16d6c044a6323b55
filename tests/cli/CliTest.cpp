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
#include <sstream>
#include <thread>

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

TEST(CliExit, NothingToCheckIsAnErrorAndEverySkippedPathIsNamed) {
    TempDir d;
    d.write("notes.txt", std::string("x"));
    auto r = runCli(d, "--log log.txt notes.txt missing.mp3 .");
    EXPECT_EQ(r.status, 0) << "the folder '.' is kept: " << r.err;
    auto r2 = runCli(d, "--log log.txt notes.txt missing.mp3");
    EXPECT_EQ(r2.status, 2);
    EXPECT_NE(r2.err.find("skipped notes.txt: not an audio file by its extension"), std::string::npos)
        << r2.err;
    EXPECT_NE(r2.err.find("skipped missing.mp3: no such file or folder"), std::string::npos);
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
    EXPECT_EQ(nowhere.err, "sondrel: Create Error: Error creating log file\n");
    auto full = runCli(d, "--log /dev/full a");
    EXPECT_EQ(full.status, 2);
    EXPECT_EQ(full.err, "sondrel: Error: An error occurred while writing the log file\n");
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
    EXPECT_NE(r.err.find("sondrel: Error: An error occurred while writing the log file\n"),
              std::string::npos);
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
    auto v = runCli(d, "--version");
    EXPECT_EQ(v.status, 0);
    EXPECT_NE(v.out.find("Sondrel"), std::string::npos);
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

}  // namespace
}  // namespace sondrel
