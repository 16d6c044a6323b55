// The decoder modules, loaded from ../lib/sondrel beside the program: the
// build tree's program finds and runs all three, and a program without them
// says once which file could not be loaded and why, and every check that
// needed them says what was not checked.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/FlacBuilder.h"

namespace sondrel {
namespace {

using namespace fixtures;

struct ScanResult {
    int status = -1;
    std::string log, err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

// Runs `program` with full verification over two FLAC files, each with a
// picture in the usual formats (a JPEG signature) and one in the newer ones
// (a JPEG XL codestream signature), neither of which decodes.
ScanResult scan(const TempDir& d, const std::string& program) {
    for (const char* name : {"a.flac", "b.flac"}) {
        Bytes jpeg{0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0, 0, 0, 0, 0, 0};
        Bytes jxl{0xFF, 0x0A, 0x11, 0x22, 0, 0, 0, 0, 0, 0, 0, 0};
        d.write(name, flacFile({flacBlock(kFlacPicture, pictureData(3, "image/jpeg", "", jpeg)),
                                flacBlock(kFlacPicture, pictureData(4, "image/jxl", "", jxl))}));
    }
    const std::string cmd = "cd '" + d.path() + "' && HOME='" + d.path() + "' XDG_CONFIG_HOME='" + d.path() +
                            "' '" + program +
                            "' --verify full --log log.txt a.flac b.flac 2>stderr </dev/null";
    const int rc = std::system(cmd.c_str());
    return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(d.path() + "/log.txt"), slurp(d.path() + "/stderr")};
}

TEST(CliModules, TheBuildTreesProgramLoadsEveryModule) {
    TempDir d;
    ScanResult r = scan(d, SONDREL_CLI_PATH);
    EXPECT_EQ(r.err.find("cannot load"), std::string::npos) << r.err;
    // Both pictures reached their decoders, and the audio its verifier.
    EXPECT_EQ(count(r.log, "Artwork data cannot be represented as an image"), 4u) << r.log;
    EXPECT_EQ(count(r.log, "could not be loaded"), 0u) << r.log;
    EXPECT_NE(r.log.find("FLAC"), std::string::npos) << r.log;
}

TEST(CliModules, AMissingModuleIsNamedOnceAndEachFileSaysWhatWasNotChecked) {
    TempDir d;
    // A copy of the program in a folder with no lib/sondrel beside it.
    const std::string bin = d.path() + "/bin";
    ASSERT_EQ(std::system(("mkdir -p '" + bin + "' && cp '" + SONDREL_CLI_PATH + "' '" + bin + "/'").c_str()),
              0);
    ScanResult r = scan(d, bin + "/sondrel");
    EXPECT_EQ(r.status, 1) << r.err;
    for (const char* module : {"sondrel_images.so", "sondrel_images_modern.so", "sondrel_decoders.so"}) {
        const std::string line = "sondrel: cannot load " + d.path() + "/lib/sondrel/" + module +
                                 ": cannot open shared object file: No such file or directory\n";
        EXPECT_EQ(count(r.err, line), 1u) << r.err;
    }
    EXPECT_EQ(count(r.log, "Artwork not checked: the image decoders could not be loaded"), 2u) << r.log;
    EXPECT_EQ(count(r.log, "Audio not verified: the audio decoders could not be loaded"), 2u) << r.log;
}

}  // namespace
}  // namespace sondrel
