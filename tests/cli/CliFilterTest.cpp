// Problem filters through the command line: by severity, by code, family or
// prefix, from the options file; what they remove is neither logged nor
// counted, a file left without problems gets no heading, and the exit
// status follows what remains.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/MpegBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

struct Result {
    int status = -1;
    std::string out, err, log;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

Result runCli(const TempDir& d, const std::string& args) {
    std::string cmd = "cd '" + d.path() + "' && HOME='" + d.path() + "/home' XDG_CONFIG_HOME='" + d.path() +
                      "/config' '" + SONDREL_CLI_PATH + "' " + args + " >'" + d.path() + "/stdout' 2>'" +
                      d.path() + "/stderr' </dev/null";
    Result r;
    std::remove((d.path() + "/log.txt").c_str());
    int rc = std::system(("bash -c \"" + cmd + "\"").c_str());
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.out = slurp(d.path() + "/stdout");
    r.err = slurp(d.path() + "/stderr");
    r.log = slurp(d.path() + "/log.txt");
    return r;
}

// A folder with an MP3 whose title ends with a nil (a warning) and a FLAC
// file whose marker is broken (damage).
class CliFilter : public ::testing::Test {
  protected:
    void SetUp() override {
        const Bytes title = id3Frame("TIT2", id3Text(std::string_view("Title\0", 6)));
        d_.write("music/warn.mp3", concat({id3v2Tag(3, title), mpegFrames(MpegSpec{}, 12)}));
        d_.write("music/bad.flac", concat({Bytes{'f', 'L', 'a', 'X'}, Bytes(60, 0)}));
    }
    Result scan(const std::string& options) { return runCli(d_, "--log log.txt " + options + " music"); }
    TempDir d_;
};

constexpr const char* kNil = "ID3 'TIT2' frame: text string contains redundant trailing nil(s)";

TEST_F(CliFilter, SeverityCodesFamiliesAndPrefixes) {
    const std::string both =
        "2 files scanned: 2 with problems (1 damaged, 1 with warnings). 2 problems logged.\n";
    const std::string flacOnly = "2 files scanned: 1 with problems (1 damaged). 1 problem logged.\n";
    const std::string mp3Only = "2 files scanned: 1 with problems (1 with warnings). 1 problem logged.\n";
    const std::string none = "2 files scanned: none with problems. 0 problems logged.\n";
    const struct {
        std::string options, status;
        int exit;
    } cases[] = {
        {"", both, 1},
        {"--min-severity warning", both, 1},
        {"--min-severity error", flacOnly, 1},
        {"--ignore flac", mp3Only, 1},
        {"--ignore 'flac.*'", mp3Only, 1},
        {"--select id3.trailing-nil", mp3Only, 1},
        {"--select 'id3.tr*,flac.header'", both, 1},
        {"--select id3 --min-severity error", none, 0},
        {"--ignore id3.trailing-nil,flac.header", none, 0},
        {"--option MinSeverity=damage", flacOnly, 1},
    };
    for (const auto& c : cases) {
        Result r = scan(c.options);
        EXPECT_EQ(r.status, c.exit) << c.options << "\n" << r.err;
        EXPECT_EQ(r.err, c.status) << c.options;
        const bool mp3 = c.status != none && c.status != flacOnly,
                   flac = c.status != none && c.status != mp3Only;
        EXPECT_EQ(r.log.find("/music/warn.mp3\n    ") != std::string::npos, mp3) << c.options << r.log;
        EXPECT_EQ(r.log.find(kNil) != std::string::npos, mp3) << c.options;
        EXPECT_EQ(r.log.find("/music/bad.flac\n    ") != std::string::npos, flac) << c.options << r.log;
        // A heading only above problem lines.
        EXPECT_EQ(r.log.find("\n\n\n"), std::string::npos);
        EXPECT_FALSE(r.log.ends_with(".mp3\n") || r.log.ends_with(".flac\n")) << c.options;
    }
}

TEST_F(CliFilter, AllFilesKeepsHeadingsAndStoredOptionsApply) {
    Result all = scan("--all-files --min-severity damage");
    EXPECT_EQ(all.status, 1);
    EXPECT_NE(all.log.find("/music/warn.mp3\n"), std::string::npos);
    EXPECT_EQ(all.log.find(kNil), std::string::npos);

    d_.write("config/sondrel/settings.conf", std::string("IgnoreCodes=flac\nMinSeverity=warning\n"));
    Result stored = scan("");
    EXPECT_EQ(stored.status, 1);
    EXPECT_EQ(stored.log.find("bad.flac"), std::string::npos) << stored.log;
    EXPECT_NE(stored.log.find(kNil), std::string::npos);
}

TEST_F(CliFilter, BadFilterValuesStopBeforeTheScan) {
    for (const char* options :
         {"--ignore nope", "--select id", "--min-severity severe", "--option IgnoreCodes=x.*"}) {
        Result r = scan(options);
        EXPECT_EQ(r.status, 2) << options;
        EXPECT_TRUE(r.err.starts_with("sondrel: unknown ")) << options << ": " << r.err;
        EXPECT_EQ(r.log, "") << options;
    }
}

TEST_F(CliFilter, ExplainAndListCodes) {
    Result e = runCli(d_, "--explain id3.trailing-nil");
    EXPECT_EQ(e.status, 0);
    EXPECT_TRUE(e.out.starts_with("id3.trailing-nil (warning)\n\n")) << e.out;
    EXPECT_NE(e.out.find("Fix: "), std::string::npos);
    EXPECT_NE(e.out.find("  ID3 '*' frame: text string contains redundant trailing nil(s)\n"),
              std::string::npos);
    EXPECT_EQ(runCli(d_, "--explain id3.nothing").status, 2);

    Result l = runCli(d_, "--list-codes");
    EXPECT_EQ(l.status, 0);
    std::istringstream lines(l.out);
    std::string line, nilLine;
    size_t column = std::string::npos;
    while (std::getline(lines, line)) {
        // Aligned: the severity column starts at the same place on every line.
        size_t at = line.find("  ", line.find(' '));
        at = line.find_first_not_of(' ', at);
        if (column == std::string::npos) column = at;
        EXPECT_EQ(at, column) << line;
        if (line.starts_with("id3.trailing-nil ")) nilLine = line;
    }
    EXPECT_NE(nilLine.find(" warning  ID3 '*' frame: text string contains redundant trailing nil(s)"),
              std::string::npos)
        << nilLine;
}

}  // namespace
}  // namespace sondrel
