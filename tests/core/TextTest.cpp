#include "core/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/PathPredicates.h"
#include "core/Printf.h"

namespace sondrel {
namespace {

Bytes b(std::initializer_list<uint8_t> l) {
    return Bytes(l);
}

TEST(TextDecoding, Utf8IsStrict) {
    EXPECT_EQ(text::decodeUTF8(b({'a', 0xC3, 0xA9, 0xE0, 0xA0, 0x80})), "a\xC3\xA9\xE0\xA0\x80");
    EXPECT_TRUE(text::decodeUTF8(b({0x00, 0xEF, 0xBB, 0xBF}))) << "NUL and a byte-order mark are characters";
    EXPECT_FALSE(text::decodeUTF8(b({0xC0, 0x80}))) << "overlong";
    EXPECT_FALSE(text::decodeUTF8(b({0xED, 0xA0, 0x80}))) << "surrogate";
    EXPECT_TRUE(text::decodeUTF8(b({0xEE, 0x80, 0x80}))) << "U+E000, just above the surrogates";
    EXPECT_FALSE(text::decodeUTF8(b({0xF4, 0x90, 0x80, 0x80}))) << "above U+10FFFF";
    EXPECT_FALSE(text::decodeUTF8(b({'a', 0xE2, 0x82}))) << "truncated";
    EXPECT_EQ(text::decodeUTF8OrLatin1(b({'c', 0xE9})), "c\xC3\xA9") << "Latin-1 fallback";
    EXPECT_FALSE(text::decodeASCII(b({'a', 0x80})));
    std::string u;
    text::appendUTF8(u, 0x7FF), text::appendUTF8(u, 0x800);
    EXPECT_EQ(u, "\xDF\xBF\xE0\xA0\x80") << "two- and three-byte forms meet at U+0800";
    EXPECT_EQ(std::pair(truncatedUnsigned(1.0), truncatedUnsigned(-0.5)),
              std::pair(uint64_t{1}, uint64_t{0}));
}

TEST(TextDecoding, Utf16ByteOrderMarksAndFaults) {
    EXPECT_EQ(text::decodeUTF16WithBOM(b({0xFF, 0xFE, 'h', 0, 'i', 0})), "hi");
    EXPECT_EQ(text::decodeUTF16WithBOM(b({0xFE, 0xFF, 0, 'h'})), "h");
    EXPECT_EQ(text::decodeUTF16WithBOM(b({0, 'h'})), "h") << "no mark means big-endian";
    EXPECT_EQ(text::decodeUTF16WithBOM(b({0xFE, 0xFF})), "") << "a mark alone is an empty text";
    EXPECT_EQ(text::decodeUTF16BE(b({0xD8, 0x3D, 0xDE, 0x00})), "\xF0\x9F\x98\x80");
    EXPECT_EQ(text::decodeUTF16BE(b({0xDB, 0xFF, 0xDF, 0xFF})), "\xF4\x8F\xBF\xBF") << "U+10FFFF";
    EXPECT_FALSE(text::decodeUTF16BE(b({0, 'h', 0})));
    for (const Bytes& lone : {b({0xD8, 0x3D, 0, 'a'}), b({0xDC, 0x00}), b({0xDF, 0xFF})})
        EXPECT_FALSE(text::decodeUTF16BE(lone)) << "unpaired surrogate";
}

TEST(TextCharacters, DirtIsControlAndFormatButNotLineBreaksOrTab) {
    EXPECT_FALSE(text::containsDirt("a\tb\nc\r"));
    EXPECT_TRUE(text::containsDirt(std::string("a\x01", 2)));
    EXPECT_TRUE(
        text::containsDirt("soft\xC2\xAD"
                           "hyphen"))
        << "U+00AD is a format character";
    EXPECT_TRUE(text::containsDirt("\xEF\xBB\xBF")) << "U+FEFF";
    EXPECT_TRUE(text::containsNewline("a\xE2\x80\xA8")) << "U+2028";
    EXPECT_TRUE(text::containsNewline("a\x0B"));
    EXPECT_FALSE(text::containsNewline("a\tb"));
    EXPECT_TRUE(text::containsNewline("a\xE2\x80\xA9")) << "U+2029";
    EXPECT_FALSE(text::containsNewline("a\x0E\xE2\x80\xAA"));
    EXPECT_EQ(text::utf16Length("\xF0\x9F\x98\x80"
                                "ab"),
              4u);
    EXPECT_EQ(text::trimWhitespace("  2021\n "), "2021");
}

TEST(TextOrdering, CaseInsensitiveOrderIsTotalAndIndependentOfInput) {
    std::vector<std::string> names = {"b.MP3", "A.flac", "a.flac", "Straße", "STRASSE", "z"};
    auto sorted = names;
    std::sort(sorted.begin(), sorted.end(),
              [](auto& x, auto& y) { return text::compareCaseInsensitive(x, y) < 0; });
    EXPECT_EQ(sorted, (std::vector<std::string>{"A.flac", "a.flac", "b.MP3", "STRASSE", "Straße", "z"}));
    EXPECT_LT(text::compareCaseInsensitive("/x/a", "/x/B"), 0);
    EXPECT_LT(text::compareCaseInsensitive("/x/a/z", "/x/B"), 0);
    EXPECT_LT(text::compareCaseInsensitive("a\xC3\xA9", "a\x80"), 0) << "a stray byte folds to U+FFFD";
    for (const char* same : {"a.flac", "Straße"}) EXPECT_EQ(text::compareCaseInsensitive(same, same), 0);
}

TEST(TextPathEscape, HeadingsStayOneLineAndKeepEveryByte) {
    struct Case {
        std::string path, escaped;
    };
    const Case cases[] = {
        {"/m/Björk – Jóga.flac", "/m/Björk – Jóga.flac"},  // printable UTF-8 as it is
        {"/m/a\tb\rc\nd.mp3", "/m/a\\x09b\\x0Dc\\x0Ad.mp3"},
        {"/m/back\\slash\\x41.mp3", "/m/back\\\\slash\\\\x41.mp3"},
        {"/m/dup\xff.mp3", "/m/dup\\xFF.mp3"},
        {"/m/dup\xfe.mp3", "/m/dup\\xFE.mp3"},
        {"/m/\xc3(\xe2\x82.mp3", "/m/\\xC3(\\xE2\\x82.mp3"},  // truncated sequences
        {"/m/end\xe2\x82", "/m/end\\xE2\\x82"},
        {"/m/\x7f\xc2\x85\xe2\x80\x8b\xe2\x80\xa8.mp3",
         "/m/\\x7F\\u{0085}\\u{200B}\\u{2028}.mp3"},             // DEL, NEL, ZWSP, LS
        {"/m/\xf0\x9f\x8e\xb5.mp3", "/m/\xf0\x9f\x8e\xb5.mp3"},  // a musical note (outside the BMP)
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text::escapePath(c.path), c.escaped);
        EXPECT_EQ(text::unescapePath(c.escaped), c.path) << c.escaped;
    }
    EXPECT_NE(text::escapePath("dup\xff"), text::escapePath("dup\xfe"));
    EXPECT_NE(text::escapePath("a\\x41"), text::escapePath("aA"));
    for (const char* bad : {"\\", "a\\q", "\\x4", "\\xG0", "\\u{110000}", "\\u{D800}", "\\u{DFFF}", "\\u{41",
                            "\\u{}", "\\u{0000041}"})
        EXPECT_EQ(text::unescapePath(bad), std::nullopt) << bad;
    EXPECT_EQ(text::unescapePath("a\\x41"), "aA") << "an escape at the very end";
    EXPECT_EQ(text::unescapePath("\\u{E000}"), "\xEE\x80\x80");
    EXPECT_EQ(text::unescapePath("\\u{10000}"), "\xF0\x90\x80\x80");
    EXPECT_EQ(text::unescapePath("\\u{10FFFF}"), "\xF4\x8F\xBF\xBF");
}

// (Extensions matching as case-insensitive suffixes is the example cases' matter.)
TEST(PathPredicatesTest, CaseFoldingBeyondASCIIAndLexicalFullPaths) {
    EXPECT_TRUE(text::endsWithCaseInsensitive("Caf\xC3\x89.X", "\xC3\xA9.x"));
    EXPECT_EQ(fullPath("/a/./b/../c/"), "/a/c");
    EXPECT_EQ(fullPath("/../x"), "/x");
    EXPECT_EQ(fullPath("/"), "/");
    EXPECT_EQ(parentFolder("/a/b.mp3"), "/a");
    EXPECT_EQ(parentFolder("/b.mp3"), "/");
    EXPECT_EQ(lastComponent("/a/b.mp3"), "b.mp3");
}

}  // namespace
}  // namespace sondrel
