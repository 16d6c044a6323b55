#pragma once
// Text conversion and character tests shared by every checker. Strings inside
// the program are UTF-8. Decoders that can fail return std::nullopt.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/Bytes.h"

namespace sondrel::text {

// Strict UTF-8: overlong forms, surrogates, values above U+10FFFF and
// truncated sequences fail. U+0000 and a byte-order mark are valid characters.
std::optional<std::string> decodeUTF8(ByteSpan bytes);
bool isValidUTF8(std::string_view s);
// ISO Latin-1 never fails: each byte is the code point of the same value.
std::string decodeLatin1(ByteSpan bytes);
// 7-bit ASCII fails on any byte of 0x80 or above.
std::optional<std::string> decodeASCII(ByteSpan bytes);
// FF FE little-endian, FE FF big-endian (mark not part of the text); no mark
// means big-endian. Odd length or an unpaired surrogate fails.
std::optional<std::string> decodeUTF16WithBOM(ByteSpan bytes);
std::optional<std::string> decodeUTF16BE(ByteSpan bytes);
// UTF-8 first, ISO Latin-1 as the fallback.
std::string decodeUTF8OrLatin1(ByteSpan bytes);

// Replaces bytes that are not valid UTF-8 with U+FFFD (for the log).
std::string sanitizeUTF8(std::string_view s);

// A file path made fit for one line of text (log headings, messages on
// standard error) without losing a byte: a backslash is written "\\", an
// ASCII control byte and every byte that is not part of valid UTF-8 "\xHH",
// and a non-ASCII control, format, line or paragraph separator character
// "\u{XXXX}" (upper-case hex, at least four digits). Everything else -- every
// printable UTF-8 name -- is written as it is. Since the backslash itself is
// escaped, distinct paths always give distinct texts.
std::string escapePath(std::string_view path);
// The exact bytes of an escaped path; nullopt for text escapePath cannot produce.
std::optional<std::string> unescapePath(std::string_view escaped);

// Unicode general categories Cc and Cf, minus line feed, carriage return and tab.
bool containsDirt(std::string_view utf8);
// U+000A..U+000D, U+0085, U+2028, U+2029.
bool containsNewline(std::string_view utf8);
bool isDirtCodePoint(char32_t c);
bool isNewlineCodePoint(char32_t c);

// Length in UTF-16 code units (the platform's notion of a string's length).
size_t utf16Length(std::string_view utf8);
// Leading and trailing white space and newlines removed.
std::string trimWhitespace(std::string_view utf8);

// Full Unicode case folding (ASCII letters lowered, other text folded by
// ICU; UTF-8 in and out, a stray byte folds to U+FFFD). Comparing folded
// texts byte by byte is comparing them without regard to case.
std::string foldCase(std::string_view utf8);

// Full Unicode case folding, then code-point order; names equal under folding
// are ordered by their bytes so the order never depends on listing order.
int compareCaseInsensitive(std::string_view a, std::string_view b);
bool equalsCaseInsensitive(std::string_view a, std::string_view b);
bool endsWithCaseInsensitive(std::string_view s, std::string_view suffix);

// Renders a four-character code for messages: bytes below 32 or from 127 to
// 159 as "{0x%02x}", every other byte as the ISO Latin-1 character of that
// value, written in UTF-8 (0xA9 shows as ©).
std::string fourCCString(uint32_t code);

// Appends one code point as UTF-8.
void appendUTF8(std::string& out, char32_t c);

}  // namespace sondrel::text
