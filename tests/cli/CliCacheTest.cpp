// The result cache from the command line, across processes: a damaged,
// read-only or locked cache, and two scans sharing one. Each run must write
// the log (and exit status) of a run without the cache.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/fixtures/CheckHelpers.h"

namespace sondrel {
namespace {

using fixtures::TempDir;

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string withoutFirstLine(const std::string& log) {
    const auto nl = log.find('\n');
    return nl == std::string::npos ? log : log.substr(nl + 1);
}

size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// Three folders of files with problems; written once and left to settle, so
// that a scan keeps their results (files changed in the last seconds before
// a scan are not kept).
class CliCache : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir;
        ::chmod(dir_->path().c_str(), 0755);  // the read-only case runs as another user
        const char* exts[] = {"mp3", "flac", "wav", "ogg", "m4a", "aiff", "ape", "wv", "dsf"};
        for (const char* folder : {"p", "q", "r"})
            for (int i = 0; i < 150; ++i)
                dir_->write(fmt("lib/", folder, "/", i, " x.", exts[i % 9]),
                            std::string(size_t(i % 7) * 40, char('A' + i % 26)) + "RIFF ID3 fLaC OggS");
        std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    }
    static void TearDownTestSuite() {
        delete dir_;
        dir_ = nullptr;
    }
    template <typename... T>
    static std::string fmt(const T&... parts) {
        std::ostringstream s;
        (s << ... << parts);
        return s.str();
    }
    static std::string lib(const char* folder) { return dir_->path() + "/lib/" + folder; }

    struct Result {
        int status = -1;
        std::string log, err;
    };
    // sondrel --log - ARGS with a fresh home; `prefix` goes before the
    // program (another user, for example). Each call has its own outputs.
    static Result run(const std::string& args, const std::string& prefix = "") {
        static std::atomic<int> calls{0};
        const int n = ++calls;
        const std::string out = fmt(dir_->path(), "/out", n), err = fmt(dir_->path(), "/err", n);
        const std::string cmd =
            fmt("HOME='", dir_->path(), "/home' XDG_CONFIG_HOME='", dir_->path(), "/config' XDG_CACHE_HOME='",
                dir_->path(), "/cachehome' ", prefix, " '", SONDREL_CLI_PATH, "' --quiet --log - ", args,
                " >'", out, "' 2>'", err, "' </dev/null");
        const int rc = std::system(("bash -c \"" + cmd + "\"").c_str());
        return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, withoutFirstLine(slurp(out)), slurp(err)};
    }
    static TempDir* dir_;
};

TempDir* CliCache::dir_ = nullptr;

TEST_F(CliCache, ADamagedReadOnlyOrLockedCacheIsNamedOnceAndChangesNothing) {
    const std::string inputs = lib("p") + " " + lib("q");
    const Result plain = run(inputs);
    ASSERT_EQ(plain.status, 1) << plain.err;
    const std::string good = dir_->path() + "/good.sqlite";
    const Result filled = run("--cache-file " + good + " --jobs 2 " + inputs);
    EXPECT_EQ(filled.log, plain.log);
    EXPECT_EQ(filled.err, "");
    const auto size = slurp(good).size();
    ASSERT_GT(size, 8192u);

    // Cut in the middle: pages and rows referred to are missing.
    const std::string cut = dir_->path() + "/cut.sqlite";
    std::ofstream(cut, std::ios::binary) << slurp(good).substr(0, size / 2);
    // Read-only for the user who runs the scan (root writes anything, so
    // the scan runs as nobody then).
    const std::string ro = dir_->path() + "/ro.sqlite";
    std::ofstream(ro, std::ios::binary) << slurp(good);
    ::chmod(ro.c_str(), 0444);
    const std::string asOther = ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups" : "";
    // Locked by another process that holds its write lock through the scan,
    // which has results of the third folder to add.
    const std::string locked = dir_->path() + "/locked.sqlite";
    std::ofstream(locked, std::ios::binary) << slurp(good);
    const std::string lockerReady = dir_->path() + "/locker.ready";
    const std::string locker =
        fmt("python3 -c 'import sqlite3, sys, time; c = sqlite3.connect(sys.argv[1], isolation_level=None); ",
            "c.execute(\"BEGIN EXCLUSIVE\"); open(sys.argv[2], \"w\").close(); time.sleep(60)' ", locked, " ",
            lockerReady, " & locker=$!; while [ ! -e ", lockerReady, " ]; do sleep 0.05; done; ");

    struct Case {
        const char* what;
        std::string file, prefix, inputs;
    };
    const Case cases[] = {
        {"truncated", cut, "", inputs},
        {"read-only", ro, asOther, inputs},
        {"locked", locked, "", inputs + " " + lib("r")},
    };
    for (const auto& c : cases) {
        const Result expected = c.inputs == inputs ? plain : run(c.inputs);
        Result r;
        if (std::string(c.what) == "locked") {
            // The locker runs in the same shell as the scan and ends after it.
            const std::string script = dir_->path() + "/locked.sh";
            std::ofstream(script) << locker << "\"$@\"; rc=$?; kill $locker; exit $rc\n";
            r = run("--cache-file " + c.file + " --jobs 2 " + c.inputs, "bash " + script);
        } else {
            r = run("--cache-file " + c.file + " --jobs 2 " + c.inputs, c.prefix);
        }
        EXPECT_EQ(r.status, expected.status) << c.what << r.err;
        EXPECT_EQ(r.log, expected.log) << c.what;
        EXPECT_EQ(count(r.err, "result cache"), 1u) << c.what << ": " << r.err;
        EXPECT_EQ(r.err.rfind("sondrel: " + c.file + ": result cache ", 0), 0u) << c.what << ": " << r.err;
    }
}

TEST_F(CliCache, TwoScansSharingOneCacheBothWriteTheLogsOfUncachedRuns) {
    const std::string a = lib("p") + " " + lib("q"), b = lib("q") + " " + lib("r");
    const Result plainA = run(a), plainB = run(b);
    const std::string db = dir_->path() + "/shared.sqlite";
    for (int round = 0; round < 2; ++round) {  // filling the cache, then from it
        Result ra, rb;
        std::thread other([&] { rb = run("--cache-file " + db + " --jobs 2 " + b); });
        ra = run("--cache-file " + db + " --jobs 2 " + a);
        other.join();
        EXPECT_EQ(ra.log, plainA.log) << round;
        EXPECT_EQ(rb.log, plainB.log) << round;
        EXPECT_EQ(ra.status, plainA.status);
        EXPECT_EQ(rb.status, plainB.status);
        EXPECT_EQ(ra.err + rb.err, "") << round;
    }
}

}  // namespace
}  // namespace sondrel
