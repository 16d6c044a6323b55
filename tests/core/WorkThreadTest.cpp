#include "core/WorkThread.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <random>
#include <sstream>

#include "core/LogWriter.h"
#include "printers/TextPrinter.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::TempDir;

struct ScanRun {
    std::string log;  // without its first line
    std::vector<std::string> statuses;
    bool cancelled = false;
    uint64_t progress = 0;
    std::vector<std::pair<std::string, int>> unreadable;  // path, errno
};

ScanRun scan(Selection sel, const std::string& logPath, unsigned jobs = 1,
             const std::map<std::string, std::string>& options = {},
             std::function<void(WorkThread&, const std::string&)> onStatus = {}) {
    ScanRun r;
    LogWriter log(std::make_unique<TextPrinter>());
    EXPECT_FALSE(log.openLog(logPath));
    std::mutex m;
    WorkThread* self = nullptr;
    ScanCallbacks cb;
    cb.setStatus = [&](const std::string& s, bool) {
        std::lock_guard lock(m);
        r.statuses.push_back(s);
        if (onStatus) onStatus(*self, s);
    };
    cb.cannotRead = [&](const std::string& path, int error) { r.unreadable.emplace_back(path, error); };
    WorkThread w(std::move(sel), fixtures::settingsWith(options), log, cb, jobs);
    self = &w;
    r.cancelled = w.main();
    r.progress = w.progress();
    log.closeLog();
    std::string all = fixtures::readFile(logPath);
    r.log = all.substr(all.find('\n') + 1);
    return r;
}

// Headings only (paths), in log order.
std::vector<std::string> headings(const std::string& log) {
    std::vector<std::string> out;
    std::istringstream in(log);
    std::string line;
    while (std::getline(in, line))
        if (auto at = line.find("  /"); at != std::string::npos && line.rfind("    ", 0) != 0)
            out.push_back(line.substr(at + 2));
    return out;
}

// Folders go by full path, case-insensitively; a dropped file inside a
// dropped folder is analysed once; packages and hidden folders are skipped,
// and a folder without audio files leaves no trace, even with LogAllFiles.
TEST(ScanWalk, FolderOrderDroppedFilesPackagesAndEmptyFolders) {
    TempDir d;
    for (auto n : {"x/B/1.mp3", "x/a/2.mp3", "x/a/z/3.mp3", "x/a/z/4.mp3", "y/5.mp3", "y/6.mp3",
                   "x/a/Sub.app/7.mp3", "x/a/.git/8.mp3", "x/a/empty/readme.txt"})
        d.write(n, std::string("garbage"));
    std::string x = d.path() + "/x";
    Selection sel{{x + "/B", x + "/a"}, {d.path() + "/y/6.mp3", x + "/a/2.mp3"}};
    auto r = scan(sel, d.path() + "/log.txt", 1, {{"LogAllFiles", "1"}});
    EXPECT_EQ(headings(r.log), (std::vector<std::string>{x + "/a/2.mp3", x + "/a/z/3.mp3", x + "/a/z/4.mp3",
                                                         x + "/B/1.mp3", d.path() + "/y/6.mp3"}));
    EXPECT_EQ(r.statuses.back(), "Analyzing file 5 of 5");
    EXPECT_EQ(r.log.find("/empty"), std::string::npos) << r.log;
}

// A symbolic-link cycle ends, a FIFO neither blocks nor crashes, and every
// input that cannot be checked is reported with its errno; the walk goes on.
TEST(ScanWalk, LinksFifosAndInputsThatCannotBeChecked) {
    TempDir d;
    d.write("m/a.flac", std::string("x"));
    const std::string m = d.path() + "/m";
    ASSERT_EQ(::symlink("loop.mp3", (m + "/loop.mp3").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (m + "/gone.mp3").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (m + "/notes.txt").c_str()), 0);  // never checked: not worth a word
    ASSERT_EQ(::symlink("..", (m + "/up").c_str()), 0);
    ASSERT_EQ(::symlink(".", (m + "/self").c_str()), 0);
    ASSERT_EQ(::mkfifo((m + "/song.mp3").c_str(), 0644), 0);
    auto r = scan({{m, d.path() + "/missing"}, {}}, d.path() + "/log.txt");
    using Entry = std::pair<std::string, int>;
    EXPECT_EQ(r.unreadable,
              (std::vector<Entry>{
                  {m + "/gone.mp3", ENOENT}, {m + "/loop.mp3", ELOOP}, {d.path() + "/missing", ENOENT}}));
    EXPECT_NE(
        r.log.find(
            m + "/song.mp3\n    000000000000  File: The item is a FIFO (named pipe), not a regular file\n"),
        std::string::npos)
        << r.log;
    EXPECT_EQ(r.progress, 2u);
}

// Cancelled during the walk, nothing is analysed; during the analysis, the
// file being analysed is finished and logged, then the scan stops.
TEST(ScanCancel, DuringTheWalkOrTheAnalysis) {
    TempDir d;
    for (int i = 0; i < 50; ++i) d.write("c/" + std::to_string(100 + i) + ".flac", std::string("x"));
    for (const std::string at : {"Examining folder", "Analyzing file 10 of 50"}) {
        for (unsigned jobs : {1u, 3u}) {
            auto r = scan({{d.path() + "/c"}, {}}, d.path() + "/log.txt", jobs, {},
                          [at](WorkThread& w, const std::string& s) {
                              if (s.rfind(at, 0) == 0) w.cancel();
                          });
            EXPECT_TRUE(r.cancelled);
            if (at[0] == 'E') {
                EXPECT_EQ(r.progress, 0u);
                EXPECT_EQ(r.log, "");
            } else {
                EXPECT_GE(r.progress, 10u);
                EXPECT_LT(r.progress, 50u);
            }
        }
    }
}

// A tree of a few hundred files of mixed formats and random bytes; the log
// with one worker must equal the log with several, byte for byte.
TEST(ScanParallel, LogIsByteIdenticalWhateverTheNumberOfJobs) {
    TempDir d;
    std::mt19937 rng(42);
    const char* exts[] = {".mp3", ".flac", ".ogg", ".wav", ".aiff", ".m4a",
                          ".ape", ".wv",   ".dsf", ".dff", ".opus"};
    for (int i = 0; i < 300; ++i) {
        Bytes bytes(rng() % 3000);
        for (auto& byte : bytes) byte = uint8_t(rng());
        std::string name =
            "t/f" + std::to_string(i % 7) + "/" + std::to_string(rng() % 100000) + exts[i % 11];
        d.write(name, bytes);
    }
    auto one = scan({{d.path() + "/t"}, {}}, d.path() + "/one.txt", 1);
    for (unsigned jobs : {2u, 8u}) {
        auto many = scan({{d.path() + "/t"}, {}}, d.path() + "/many.txt", jobs);
        EXPECT_EQ(many.log, one.log);
        EXPECT_EQ(many.progress, one.progress);
    }
}

}  // namespace
}  // namespace sondrel
