// Tags written by real taggers (v2.3 in ISO-8859-1 and UTF-16, v2.4 in
// UTF-8) read without a single problem line, and their items are found.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "tests/fixtures/ID3Builder.h"
#include "tests/formats/id3/ID3ReaderHarness.h"

namespace sondrel {
namespace {

using fixtures::haveTool;
using fixtures::run;
using fixtures::TempDir;

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST(ID3Tools, TagsFromRealTaggersAreClean) {
    struct Tool {
        const char* program;
        const char* command;  // %s stands for the file
        uint8_t version;
    };
    const Tool tools[] = {
        {"id3v2", "id3v2 -a Artist -t Title -A Album -y 2021 -c comment -g 17 -T 3 '%s'", 3},
        {"eyeD3", "eyeD3 -Q --to-v2.3 -a Artist -t Title -A Album -c comment -G Rock '%s'", 3},
        {"eyeD3", "eyeD3 -Q -a Artist -t Title -A Album -c comment -G Rock -Y 2021 '%s'", 4},
    };
    int ran = 0;
    for (const Tool& t : tools) {
        if (!haveTool(t.program)) continue;
        TempDir dir;
        const std::string path = dir.write("a.mp3", fixtures::mpegAudio(2048));
        std::string command = t.command;
        command.replace(command.find("%s"), 2, path);
        ASSERT_TRUE(run(command + " >/dev/null 2>&1")) << command;
        const Bytes file = readFile(path);
        ASSERT_GE(file.size(), 10u);
        ASSERT_EQ(file[3], t.version) << command;
        auto r = testing::readTag(file);
        EXPECT_EQ(r.log, "") << command;
        ASSERT_NE(r.item(field::Title), nullptr) << command;
        EXPECT_EQ(r.item(field::Title)->value, "Title") << command;
        ASSERT_NE(r.item(field::Comments), nullptr) << command;
        ASSERT_TRUE(r.item(field::Comments)->items.has_value());
        EXPECT_EQ(r.item(field::Comments)->items->front().value, "comment") << command;
        EXPECT_NE(r.item(field::Genre), nullptr) << command;
        ++ran;
    }
    if (ran == 0) GTEST_SKIP() << "no tagger installed";
}

}  // namespace
}  // namespace sondrel
