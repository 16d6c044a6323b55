// The problem-code table: every message the checkers can log has a row, the
// matcher is linear in hostile message lengths, and selectors name groups.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>

#include "codes/ProblemCodes.h"

namespace sondrel::codes {
namespace {

// Undoes the escapes the message constants use.
std::string unescape(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        const char c = s[i] == '\\' && i + 1 < s.size() ? s[++i] : 0;
        const bool hex = c == 'x', octal = c >= '0' && c <= '7';
        if (hex || octal) {  // two hexadecimal or three octal digits
            out += char(std::stoi(s.substr(i + hex, hex ? 2 : 3), nullptr, hex ? 16 : 8));
            i += 2;
        } else {
            out += c == 0 ? s[i] : c == 'n' ? '\n' : c;
        }
    }
    return out;
}

// The message constants of a source file: every "constexpr ... kName = ..."
// string (adjacent literals and PRIu64 joined) and every string a function
// returns as a reason, with each printf or fmt placeholder replaced by a
// sample value.
std::vector<std::string> messageConstants(const std::string& source) {
    static const std::regex constant(
        R"(constexpr\s+(?:const\s+char\s*\*|char|std::string_view)\s+k\w+(?:\[\])?\s*=\s*((?:"(?:[^"\\]|\\.)*"|\s|PRIu64)+);)");
    static const std::regex returned(
        R"(return\s+("(?:[^"\\]|\\.)*")\s*(?:\+\s*\w+\s*\+\s*("(?:[^"\\]|\\.)*"))?\s*;)");
    static const std::regex literal(R"("((?:[^"\\]|\\.)*)\"|PRIu64)");
    static const std::regex placeholder(R"(%%@|%@|%0?\d*(?:llu|lu|u|d|s|x)|\{[^}]*\})");
    std::vector<std::string> out;
    auto add = [&](const std::string& joined) {
        std::string m = std::regex_replace(unescape(joined), placeholder, "7");
        if (m.find(' ') != std::string::npos) out.push_back(m);
    };
    for (std::sregex_iterator it(source.begin(), source.end(), constant), end; it != end; ++it) {
        std::string body = (*it)[1], joined;
        for (std::sregex_iterator l(body.begin(), body.end(), literal); l != end; ++l)
            joined += (*l)[0] == "PRIu64" ? std::string("llu") : std::string((*l)[1]);
        add(joined);
    }
    for (std::sregex_iterator it(source.begin(), source.end(), returned), end; it != end; ++it) {
        std::string a = (*it)[1], b = (*it)[2];
        add(a.substr(1, a.size() - 2) + (b.empty() ? "" : "NAME" + b.substr(1, b.size() - 2)));
    }
    return out;
}

TEST(ProblemCodes, EveryMessageTheCheckersCanLogHasACode) {
    namespace fs = std::filesystem;
    const fs::path root = SONDREL_SOURCE_DIR;
    std::vector<fs::path> sources;
    for (const std::string folder : {"formats", "verify"})  // the checkers' sources, and verify's headers
        for (const auto& e : fs::recursive_directory_iterator(root / folder))
            if (e.path().extension() == ".cpp" || (folder == "verify" && e.path().extension() == ".h"))
                sources.push_back(e.path());
    for (const char* f : {"Tag.cpp", "FieldValidator.cpp", "ImageValidator.cpp", "FileHandle.cpp"})
        sources.push_back(root / "core" / f);
    // Checkers wrap some messages: an ID3 frame's with its name, an item's
    // with its code and field name. These wrappers are no messages themselves,
    // nor is the APE item key the tag checker compares names with.
    const std::set<std::string> wrappers = {"ID3 '7' frame: 7", "Cover Art (front)"};
    const std::vector<std::string> wraps = {"", "ID3 'TIT2' frame: ", "'TIT2' (Title) ",
                                            "'TXXX' (User) [desc] "};
    size_t checked = 0;
    for (const auto& path : sources) {
        std::ostringstream ss;
        ss << std::ifstream(path).rdbuf();
        for (const auto& message : messageConstants(ss.str())) {
            if (wrappers.count(message)) continue;
            ++checked;
            bool found = false;
            for (const auto& w : wraps) found = found || classify(w + message) != kUnclassified;
            EXPECT_TRUE(found) << path.filename() << ": \"" << message << "\" has no problem code";
        }
    }
    EXPECT_GT(checked, 200u);
}

TEST(ProblemCodes, ClassifiesByMeaningWithValuesFilledInAndInLinearTime) {
    const auto codeOf = [](std::string_view message) { return std::string(codeAt(classify(message)).code); };
    const auto severityOf = [](std::string_view m) {
        return std::string(severityName(codeAt(classify(m)).severity));
    };
    EXPECT_EQ(codeOf("ID3 'TPE1' frame: text string contains redundant trailing nil(s)"), "id3.trailing-nil");
    EXPECT_EQ(severityOf("'TDRC' (Year) Time stamp is not a valid subset of ISO 8601"), "warning");
    EXPECT_EQ(codeOf("'COMM' (Comments) [a [b] c] value contains newline characters"), "item.newline");
    EXPECT_EQ(severityOf("512 bytes of garbage data before the actual start of the audio stream"), "error");
    EXPECT_EQ(severityOf("Audio chunk overflows (recoverable): size=9, next offset=9, file size=3"),
              "damage");
    EXPECT_EQ(codeOf("Read error!"), "unclassified");
    EXPECT_EQ(codeOf(""), "unclassified");
    // The first piece may not overlap the last one.
    EXPECT_EQ(codeOf("'"), "unclassified");
    // A million-character description in an item message, and a message
    // that nearly matches many patterns.
    const std::string huge(1 << 20, '\'');
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(codeOf("'TXXX' (User) [" + huge + "] invalid URL"), "item.invalid-url");
        EXPECT_EQ(codeOf(huge), "unclassified");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(ProblemCodes, FiltersNameCodesFamiliesAndPrefixes) {
    const uint16_t nil = *findCode("id3.trailing-nil"), walk = *findCode("id3.frame-walk"),
                   flac = *findCode("flac.block-overflow"), owner = *findCode("privacy.owner");
    // Which of nil, walk, flac and owner each filter keeps.
    const std::tuple<const char*, const char*, const char*, std::string> cases[] = {
        {"", "", "", "1111"},
        {"error", "", "", "0110"},
        {"", "id3", "", "1100"},
        {"", "id3.*", "id3.frame-walk", "1000"},
        {"", "id3.trail*, privacy", "", "1001"},
        {"", "*", "flac.", "1101"},
        {"warning", "", "id3.trailing-nil,flac", "0100"},
    };
    for (const auto& [min, select, ignore, keeps] : cases) {
        auto f = Filter::make(min, select, ignore);
        ASSERT_TRUE(f) << min << "|" << select << "|" << ignore;
        std::string kept;
        for (uint16_t code : {nil, walk, flac, owner}) kept += f->keeps(code) ? '1' : '0';
        EXPECT_EQ(kept, keeps) << min << "|" << select << "|" << ignore;
    }
    EXPECT_TRUE(Filter().passesAll());
    std::set<std::string> seen;  // a selector names one row or one family
    for (const auto& row : problemCodes()) EXPECT_TRUE(seen.insert(row.code).second) << row.code;
    std::string why;
    EXPECT_FALSE(Filter::make("severe", "", "", &why));
    EXPECT_NE(why.find("unknown severity 'severe'"), std::string::npos);
    EXPECT_FALSE(Filter::make("", "", "id3.no-such", &why));
    EXPECT_NE(why.find("unknown problem code 'id3.no-such'"), std::string::npos);
    EXPECT_FALSE(Filter::make("", "id", "", &why)) << "a family is a whole word";
}

}  // namespace
}  // namespace sondrel::codes
