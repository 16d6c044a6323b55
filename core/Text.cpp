#include "core/Text.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <fmt/format.h>
#include <algorithm>
#include <cstdio>

namespace sondrel::text {

namespace {

// Decodes one strict UTF-8 sequence at s[i]; returns the code point and
// advances i, or returns -1 (and advances by one byte) on any fault.
int32_t nextCodePoint(std::string_view s, size_t& i) {
    auto b = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
    uint8_t c = b(i);
    if (c < 0x80) {
        ++i;
        return c;
    }
    size_t need;
    int32_t cp;
    int32_t min;
    if (c >= 0xC2 && c <= 0xDF) {
        need = 1, cp = c & 0x1F, min = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
        need = 2, cp = c & 0x0F, min = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
        need = 3, cp = c & 0x07, min = 0x10000;
    } else {
        ++i;
        return -1;
    }
    if (s.size() - i <= need) {
        ++i;
        return -1;
    }
    for (size_t k = 1; k <= need; ++k) {
        uint8_t cc = b(i + k);
        if ((cc & 0xC0) != 0x80) {
            ++i;
            return -1;
        }
        cp = (cp << 6) | (cc & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++i;
        return -1;
    }
    i += need + 1;
    return cp;
}

template <typename Fn>
void forEachCodePoint(std::string_view s, Fn fn) {
    size_t i = 0;
    while (i < s.size()) {
        int32_t cp = nextCodePoint(s, i);
        if (!fn(cp < 0 ? char32_t(0xFFFD) : char32_t(cp))) return;
    }
}

std::optional<std::string> decodeUTF16(ByteSpan bytes, bool bigEndian) {
    if (bytes.size() % 2) return std::nullopt;
    std::string out;
    out.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size(); i += 2) {
        auto unit = [&](size_t k) -> uint32_t {
            return bigEndian ? (uint32_t(bytes[k]) << 8) | bytes[k + 1]
                             : (uint32_t(bytes[k + 1]) << 8) | bytes[k];
        };
        uint32_t u = unit(i);
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 4 > bytes.size()) return std::nullopt;
            uint32_t lo = unit(i + 2);
            if (lo < 0xDC00 || lo > 0xDFFF) return std::nullopt;
            appendUTF8(out, char32_t(0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00)));
            i += 2;
        } else if (u >= 0xDC00 && u <= 0xDFFF) {
            return std::nullopt;
        } else {
            appendUTF8(out, char32_t(u));
        }
    }
    return out;
}

bool isAscii(std::string_view s) {
    return std::all_of(s.begin(), s.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
}

// Folding ASCII text is lowering its capitals.
char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

}  // namespace

std::string foldCase(std::string_view s) {
    if (isAscii(s)) {
        std::string out(s);
        for (char& c : out) c = lowerAscii(c);
        return out;
    }
    std::string out;
    icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), int32_t(s.size()))).foldCase().toUTF8String(out);
    return out;
}

void appendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

bool isValidUTF8(std::string_view s) {
    size_t i = 0;
    while (i < s.size())
        if (nextCodePoint(s, i) < 0) return false;
    return true;
}

std::optional<std::string> decodeUTF8(ByteSpan bytes) {
    std::string_view s(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!isValidUTF8(s)) return std::nullopt;
    return std::string(s);
}

std::string decodeLatin1(ByteSpan bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (uint8_t b : bytes) appendUTF8(out, b);
    return out;
}

std::optional<std::string> decodeASCII(ByteSpan bytes) {
    for (uint8_t b : bytes)
        if (b >= 0x80) return std::nullopt;
    return std::string(bytes.begin(), bytes.end());
}

std::optional<std::string> decodeUTF16WithBOM(ByteSpan bytes) {
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE)
        return decodeUTF16(bytes.subspan(2), false);
    if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) return decodeUTF16(bytes.subspan(2), true);
    return decodeUTF16(bytes, true);
}

std::optional<std::string> decodeUTF16BE(ByteSpan bytes) {
    return decodeUTF16(bytes, true);
}

std::string decodeUTF8OrLatin1(ByteSpan bytes) {
    if (auto s = decodeUTF8(bytes)) return *s;
    return decodeLatin1(bytes);
}

std::string sanitizeUTF8(std::string_view s) {
    if (isValidUTF8(s)) return std::string(s);
    std::string out;
    out.reserve(s.size() + 8);
    forEachCodePoint(s, [&](char32_t c) {
        appendUTF8(out, c);
        return true;
    });
    return out;
}

bool isDirtCodePoint(char32_t c) {
    if (c == '\n' || c == '\r' || c == '\t') return false;
    int8_t type = u_charType(UChar32(c));
    return type == U_CONTROL_CHAR || type == U_FORMAT_CHAR;
}

bool isNewlineCodePoint(char32_t c) {
    return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool containsDirt(std::string_view utf8) {
    bool found = false;
    forEachCodePoint(utf8, [&](char32_t c) { return !(found = isDirtCodePoint(c)); });
    return found;
}

bool containsNewline(std::string_view utf8) {
    bool found = false;
    forEachCodePoint(utf8, [&](char32_t c) { return !(found = isNewlineCodePoint(c)); });
    return found;
}

size_t utf16Length(std::string_view utf8) {
    size_t n = 0;
    forEachCodePoint(utf8, [&](char32_t c) {
        n += c >= 0x10000 ? 2 : 1;
        return true;
    });
    return n;
}

std::string trimWhitespace(std::string_view utf8) {
    // Collect code point boundaries, then drop white space and newlines at both ends.
    std::vector<std::pair<size_t, char32_t>> cps;
    size_t i = 0;
    while (i < utf8.size()) {
        size_t start = i;
        int32_t cp = nextCodePoint(utf8, i);
        cps.emplace_back(start, cp < 0 ? 0xFFFD : char32_t(cp));
    }
    auto isSpace = [](char32_t c) { return u_isUWhiteSpace(UChar32(c)) || isNewlineCodePoint(c); };
    size_t b = 0, e = cps.size();
    while (b < e && isSpace(cps[b].second)) ++b;
    while (e > b && isSpace(cps[e - 1].second)) --e;
    if (b == e) return {};
    size_t from = cps[b].first;
    size_t to = e < cps.size() ? cps[e].first : utf8.size();
    return std::string(utf8.substr(from, to - from));
}

int compareCaseInsensitive(std::string_view a, std::string_view b) {
    int c = 0;
    if (isAscii(a) && isAscii(b)) {
        // Sorting a folder compares names many times over: ASCII names are
        // compared as folded without building folded copies.
        const size_t n = std::min(a.size(), b.size());
        for (size_t i = 0; i < n && c == 0; ++i) c = lowerAscii(a[i]) - lowerAscii(b[i]);
        if (c == 0) c = a.size() < b.size() ? -1 : (a.size() > b.size() ? 1 : 0);
    } else {
        c = foldCase(a).compare(foldCase(b));
    }
    if (c == 0) c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

bool equalsCaseInsensitive(std::string_view a, std::string_view b) {
    return foldCase(a) == foldCase(b);
}

bool endsWithCaseInsensitive(std::string_view s, std::string_view suffix) {
    if (isAscii(suffix) && isAscii(s.substr(s.size() >= suffix.size() ? s.size() - suffix.size() : 0))) {
        if (s.size() < suffix.size()) return false;
        for (size_t k = 0; k < suffix.size(); ++k)
            if (lowerAscii(s[s.size() - suffix.size() + k]) != lowerAscii(suffix[k])) return false;
        return true;
    }
    std::string fs = foldCase(s), fx = foldCase(suffix);
    return fs.size() >= fx.size() && fs.compare(fs.size() - fx.size(), fx.size(), fx) == 0;
}

std::string fourCCString(uint32_t code) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        uint8_t b = uint8_t(code >> shift);
        if (b < 32 || (b >= 127 && b <= 159)) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "{0x%02x}", b);
            out += buf;
        } else {
            appendUTF8(out, b);
        }
    }
    return out;
}

std::string escapePath(std::string_view path) {
    std::string out;
    out.reserve(path.size());
    size_t i = 0;
    while (i < path.size()) {
        const size_t start = i;
        const int32_t cp = nextCodePoint(path, i);
        if (cp < 0 || cp < 0x20 || cp == 0x7F) {
            out += fmt::format("\\x{:02X}", static_cast<uint8_t>(path[start]));
        } else if (cp == '\\') {
            out += "\\\\";
        } else if (cp >= 0x80) {
            const int8_t type = u_charType(UChar32(cp));
            if (type == U_CONTROL_CHAR || type == U_FORMAT_CHAR || type == U_LINE_SEPARATOR ||
                type == U_PARAGRAPH_SEPARATOR)
                out += fmt::format("\\u{{{:04X}}}", cp);
            else
                out.append(path.substr(start, i - start));
        } else {
            out += char(cp);
        }
    }
    return out;
}

std::optional<std::string> unescapePath(std::string_view escaped) {
    auto hexValue = [](std::string_view digits) -> std::optional<uint32_t> {
        if (digits.empty() || digits.size() > 6) return std::nullopt;
        uint32_t v = 0;
        for (char c : digits) {
            int d = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
            if (d < 0) return std::nullopt;
            v = v * 16 + uint32_t(d);
        }
        return v;
    };
    std::string out;
    out.reserve(escaped.size());
    size_t i = 0;
    while (i < escaped.size()) {
        char c = escaped[i];
        if (c != '\\') {
            out += c;
            ++i;
            continue;
        }
        std::string_view rest = escaped.substr(i + 1);
        if (!rest.empty() && rest[0] == '\\') {
            out += '\\';
            i += 2;
        } else if (rest.size() >= 3 && rest[0] == 'x') {
            auto v = hexValue(rest.substr(1, 2));
            if (!v || rest.substr(1, 2).size() != 2) return std::nullopt;
            out += char(*v);
            i += 4;
        } else if (rest.size() >= 3 && rest[0] == 'u' && rest[1] == '{') {
            size_t close = rest.find('}');
            if (close == std::string_view::npos) return std::nullopt;
            auto v = hexValue(rest.substr(2, close - 2));
            if (!v || *v > 0x10FFFF || (*v >= 0xD800 && *v <= 0xDFFF)) return std::nullopt;
            appendUTF8(out, char32_t(*v));
            i += 1 + close + 1;
        } else {
            return std::nullopt;
        }
    }
    return out;
}

}  // namespace sondrel::text
