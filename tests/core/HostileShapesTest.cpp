// Every hostile shape, made at a size the test run affords, is checked by the
// command line in a child process. Its peak memory is that child's own
// (wait4), compared with the same program checking a small clean file: the
// allowance above that baseline is fixed, whatever the file holds. A child
// measures the program as a user runs it (checker, record and log writer
// together), and works under the sanitizers, whose allocator a counting
// allocator inside this process could not see past. The log must begin with
// the expected lines.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/fixtures/FlacBuilder.h"
#include "tests/fixtures/HostileShapes.h"

namespace sondrel {
namespace {

using namespace fixtures;

constexpr uint64_t kShapeBytes = 8'000'000;
// Allowed growth over the baseline, in kilobytes. Under the sanitizers every
// allocation carries red zones, so this is looser than the 64 MB a release
// build keeps to.
constexpr long kAllowanceKB = 128 * 1024;

struct CliRun {
    long peakKB = 0;
    std::vector<std::string> lines;  // the log's problem lines
};

CliRun runCli(const std::string& dir, const std::string& file) {
    const std::string log = dir + "/log.txt";
    const char* asan = std::getenv("ASAN_OPTIONS");
    // The shell execs the program in its own process. Freed memory held
    // back for use-after-free checks would count as growth.
    const std::string cmd = "exec env HOME='" + dir + "' XDG_CONFIG_HOME='" + dir + "' ASAN_OPTIONS='" +
                            (asan ? std::string(asan) + ":" : "") +
                            "quarantine_size_mb=0' '" SONDREL_CLI_PATH "' --quiet --jobs 1 --log '" + log +
                            "' '" + file + "'";
    CliRun run;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid) return run;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << file << " status " << status;
    run.peakKB = usage.ru_maxrss;
    std::ifstream in(log);
    std::string line;
    for (int i = 0; std::getline(in, line); ++i)
        if (i >= 3) run.lines.push_back(line);
    return run;
}

std::string makeTempDir() {
    std::string pattern = testing::TempDir() + "hostileXXXXXX";
    return ::mkdtemp(pattern.data()) ? pattern : std::string();
}

// What the log of each shape made at kShapeBytes holds: its first problem
// line and its last one (where a budget stopped the check, the line saying
// so); empty for a log without problem lines.
struct Expected {
    const char* shape;
    std::string first, last;
};
const std::string kStopped = "  File: Problem list stopped after 100000 lines: ";
const std::string kMissingEquals = "  Tag: Missing = in FLAC Comment";
const std::string kNoTrack = "    000000000000  Fatal: The file does not have an audio or video track";
const std::string kTooManyFrames = "  Fatal: Too many frames: the check stopped after 100000 frames";
const std::string kTxxx =
    "  Container: 'TXXX' (User Defined Text Info) has more than 10000 entries; later ones were not checked";
const std::string kOggId =
    "    000000000000  Container: Ogg identification packet is larger than 65536 bytes; it was not checked";
const std::vector<Expected> kExpected = {
    {"flac-application", "    000000000042  Container: Invalid length for APPLICATION block",
     "    000000400042" + kStopped + "1900000 more problems in this file were not logged"},
    {"flac-comments", "    000000000058" + kMissingEquals,
     "    000000500058" + kStopped + "1500000 more problems in this file were not logged"},
    {"ogg-comment-pages", "    000000000012" + kMissingEquals,
     "    000000500012" + kStopped + "1486609 more problems in this file were not logged"},
    {"ogg-endless-id", kOggId, kOggId},
    {"mp4-ilst-items",
     "    000000800016  Container: Atom walk stopped after 100000 atoms: more than any real file holds; "
     "later atoms were not checked",
     kNoTrack},
    {"id3-txxx-mp3", "    000000140010" + kTxxx, "    000001400010" + kTooManyFrames},
    {"id3-txxx-wav", "    000000140054" + kTxxx, "    000001400054" + kTooManyFrames},
    {"id3-txxx-aiff", "    000000140056" + kTxxx, "    000001400056" + kTooManyFrames},
    {"id3-txxx-dsf", "    000000148294" + kTxxx, "    000001408294" + kTooManyFrames},
    {"id3-big-tag", "", ""},
    {"wav-junk", "    000008000028  Fatal: Too many chunks: the check stopped after 1000000 chunks",
     "    000008000028  Fatal: Too many chunks: the check stopped after 1000000 chunks"},
    // The chunks hold a tag of an unknown version: the first is reported and
    // the rest are passed over.
    {"aiff-id3-chunks", "    000000000046  Framing: Invalid ID3 version 2.32.0",
     "    000000000046  Framing: Invalid ID3 version 2.32.0"},
    {"dff-chunks", "", ""},
    {"ape-items", "    000000500144  Fatal: Too many tag items: the check stopped after 50000 items",
     "    000000500144  Fatal: Too many tag items: the check stopped after 50000 items"},
    {"ape-big-value", "", ""},
    {"wavpack-blocks", "", ""},
    {"mp4-free-atoms", "", ""},
    // Below the value budget at this size: read and checked in full.
    {"mp4-big-text", kNoTrack, kNoTrack},
};

TEST(HostileShapes, BoundedMemoryAndFirstLines) {
    const std::string dir = makeTempDir();
    ASSERT_FALSE(dir.empty());
    const std::string clean = dir + "/clean.flac";
    {
        const Bytes file = flacFile({});
        std::ofstream(clean, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), long(file.size()));
    }
    const long baseline = runCli(dir, clean).peakKB;
    ASSERT_GT(baseline, 0);

    for (const auto& shape : hostileShapes()) {
        SCOPED_TRACE(shape.name);
        const std::string file = dir + "/" + shape.name + "." + shape.extension;
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_TRUE(shape.write(fd, kShapeBytes));
        ::close(fd);
        const CliRun run = runCli(dir, file);
        ::unlink(file.c_str());
        EXPECT_LT(run.peakKB - baseline, kAllowanceKB)
            << "peak " << run.peakKB << " KB, baseline " << baseline;
        const auto expected = std::find_if(kExpected.begin(), kExpected.end(), [&](const Expected& e) {
            return e.shape == std::string(shape.name);
        });
        ASSERT_NE(expected, kExpected.end()) << "no expected lines";
        EXPECT_EQ(run.lines.empty() ? "" : run.lines.front(), expected->first);
        EXPECT_EQ(run.lines.empty() ? "" : run.lines.back(), expected->last);
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace sondrel
