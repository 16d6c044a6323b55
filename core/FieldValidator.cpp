#include "core/FieldValidator.h"

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <uriparser/Uri.h>

#include <array>
#include <climits>
#include <set>
#include <tuple>
#include <vector>

#include "core/FieldTable.h"
#include "core/LogError.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "core/Text.h"

namespace sondrel {

namespace {

constexpr const char* kFoundTimes = "'{}' ({}) found {} times";
constexpr std::string_view kNewlines = "value contains newline characters";
constexpr std::string_view kControls = "value contains control characters";
constexpr std::string_view kMultipleValues = "contains multiple values";
constexpr std::string_view kBadTimeStamp = "Time stamp is not a valid subset of ISO 8601";
constexpr std::string_view kBadLanguageCode = "invalid language code. Not ISO-639-2";
constexpr std::string_view kInvalidURL = "invalid URL";
constexpr std::string_view kInvalidLanguageField = "Invalid language field";
constexpr std::string_view kSameDescription = "has more than one item with the same description";

// Several values in one text are joined by three U+00B7 MIDDLE DOT characters.
constexpr std::string_view kMultiValueSeparator = "\xC2\xB7\xC2\xB7\xC2\xB7";

// The MPEG-4 player-id atom legitimately appears twice (account and store).
constexpr uint32_t kApID = 0x61704944;  // 'apID'

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = text.find(separator, start);
        if (at == std::string_view::npos) {
            parts.push_back(text.substr(start));
            return parts;
        }
        parts.push_back(text.substr(start, at - start));
        start = at + separator.size();
    }
}

// A number scanner in the manner of the platform's string scanner: white
// space and newlines are skipped before each token, an integer is an
// optional sign followed by decimal digits (saturating on overflow), and
// "scan up to a digit" collects everything before the next decimal digit.
class NumberScanner {
  public:
    explicit NumberScanner(std::string_view utf8) {
        int32_t i = 0;
        const auto length = static_cast<int32_t>(utf8.size());
        const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
        while (i < length) {
            UChar32 c;
            U8_NEXT(bytes, i, length, c);
            chars_.push_back(c < 0 ? 0xFFFD : static_cast<char32_t>(c));
        }
    }

    bool isAtEnd() const { return skipped(pos_) >= chars_.size(); }

    bool scanInteger(int64_t& out) {
        size_t p = skipped(pos_);
        bool negative = false;
        if (p < chars_.size() && (chars_[p] == U'+' || chars_[p] == U'-')) {
            negative = chars_[p] == U'-';
            ++p;
        }
        if (p >= chars_.size() || digitValue(chars_[p]) < 0) return false;
        int64_t value = 0;
        bool overflow = false;
        for (; p < chars_.size(); ++p) {
            const int digit = digitValue(chars_[p]);
            if (digit < 0) break;
            if (value > (INT64_MAX - digit) / 10)
                overflow = true;
            else
                value = value * 10 + digit;
        }
        out = overflow ? (negative ? INT64_MIN : INT64_MAX) : (negative ? -value : value);
        pos_ = p;
        return true;
    }

    // The text before the next decimal digit (or the end); nullopt when a
    // digit comes at once.
    std::optional<std::u32string> scanUpToDigit() {
        const size_t start = skipped(pos_);
        size_t p = start;
        while (p < chars_.size() && digitValue(chars_[p]) < 0) ++p;
        if (p == start) return std::nullopt;
        pos_ = p;
        return std::u32string(chars_.begin() + static_cast<std::ptrdiff_t>(start),
                              chars_.begin() + static_cast<std::ptrdiff_t>(p));
    }

  private:
    static bool isSkipped(char32_t c) {
        return c == U'\t' || u_charType(static_cast<UChar32>(c)) == U_SPACE_SEPARATOR ||
               text::isNewlineCodePoint(c);
    }
    static int digitValue(char32_t c) {
        return u_charType(static_cast<UChar32>(c)) == U_DECIMAL_DIGIT_NUMBER
                   ? u_charDigitValue(static_cast<UChar32>(c))
                   : -1;
    }
    size_t skipped(size_t p) const {
        while (p < chars_.size() && isSkipped(chars_[p])) ++p;
        return p;
    }

    std::u32string chars_;
    size_t pos_ = 0;
};

// Days per month; February always allows 29 (leap years are not checked).
constexpr std::array<int64_t, 12> kMonthLength = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// How each list field builds the key under which two entries count as the
// same, and whether its values are checked for dirt.
struct ListRule {
    bool keyDesc;
    bool keyLang;
    bool keyValue;
    bool checkDirt;
    bool flagNewlines;
};

std::optional<ListRule> listRule(int64_t index) {
    switch (index) {
        case field::Comments:
        case field::Lyrics:
            return ListRule{true, true, false, true, false};
        case field::TermsOfUse:
            return ListRule{false, true, true, true, false};
        case field::CommercialInfoURL:
        case field::OfficialArtistURL:
            return ListRule{false, false, true, true, true};
        case field::UserDefinedText:
        case field::UserDefinedURL:
            return ListRule{true, false, false, true, false};
        case field::Rating:
        case field::Private:
        case field::GeneralObject:
        case field::UniqueFileId:
        case field::RelativeVolume:
        case field::Equalization:
        case field::Artwork:
            return ListRule{true, false, false, false, false};
        default:
            return std::nullopt;  // Unhandled Items and anything outside the list rows
    }
}

}  // namespace

void FieldValidator::validateFields(bool fromMPEG4) {
    const Settings& settings = tag_.settings();
    const bool mulAtoms = fromMPEG4 && settings.boolFromKey("MPEG4_MulAtoms");

    for (int64_t index = 0; index <= kLastSingleField; ++index) {
        const TagItem* item = tag_.item(index);
        if (!item) continue;
        if (item->count >= 2 && !mulAtoms && !(item->fourCC == kApID && item->count == 2)) {
            tag_.logError(kTagProblem, item->offset,
                          fmt::format(kFoundTimes, tag_.allocStringFromTag(item->fourCC),
                                      kFieldTable[static_cast<size_t>(index)].displayName, item->count));
        }
        lookForDirt(*item, item->value, true, true);
    }

    if (!settings.boolFromKey("SuppressTimeErrors")) {
        for (const int64_t index :
             {field::OrigReleaseTime, field::ReleaseTime, field::TaggingTime, field::Year})
            validateTimeField(index);
    }

    // The format code is stored only after the checker returns, and checkers
    // validate while they run, so this does not happen during a scan. Kept.
    if (tag_.tagType() == 1) validateLanguage();

    for (const int64_t index :
         {field::CopyrightInfoURL, field::OfficialAudioFileURL, field::OfficialAudioSourceURL,
          field::OfficialRadioURL, field::PaymentURL, field::PublisherURL, field::PodcastURL})
        validateURL(index);
    validateURLs();

    const bool logDups = settings.boolFromKey("LogDups");
    // The loop includes the keyless terminator row, which never has an item.
    for (int64_t index = kFirstListField; index <= kTerminatorRow; ++index) {
        if (!kFieldTable[static_cast<size_t>(index)].key) continue;
        if (const TagItem* item = tag_.item(index)) lookForDups(*item, index, !logDups, fromMPEG4);
    }
}

void FieldValidator::lookForDirt(const TagItem& item, const std::optional<std::string>& value, bool control,
                                 bool nl) {
    if (!value) return;
    if (nl && text::containsNewline(*value)) tag_.logError(item, kNewlines);
    if (control && text::containsDirt(*value)) tag_.logError(item, kControls);
}

void FieldValidator::lookForDups(const TagItem& item, int64_t index, bool dirtOnly, bool fromMPEG4) {
    if (!item.items || item.items->size() < 2) return;
    const auto rule = listRule(index);
    if (!rule) return;

    // Parts that a field's key does not use stay empty; a missing
    // description or language counts as empty.
    std::set<std::tuple<std::string, std::string, std::string>> keys;
    for (const TagItem& entry : *item.items) {
        if (rule->checkDirt) lookForDirt(entry, entry.value, true, rule->flagNewlines);
        if (rule->keyLang && text::utf16Length(entry.lang.value_or(std::string())) != 3)
            tag_.logError(entry, kInvalidLanguageField);
        keys.emplace(rule->keyDesc ? entry.desc.value_or(std::string()) : std::string(),
                     rule->keyLang ? entry.lang.value_or(std::string()) : std::string(),
                     rule->keyValue ? entry.value.value_or(std::string()) : std::string());
    }
    if (dirtOnly || keys.size() >= item.items->size()) return;
    if (index == field::UserDefinedText && fromMPEG4 && tag_.settings().boolFromKey("MPEG4_MulAtoms")) return;
    tag_.logError(item, kSameDescription);
}

void FieldValidator::validateTimeField(int64_t index) {
    const TagItem* item = tag_.item(index);
    if (!item || !item->value) return;
    std::string value = text::trimWhitespace(*item->value);
    if (value.empty()) return;
    if (const size_t at = value.find(kMultiValueSeparator); at != std::string::npos) {
        tag_.logError(*item, kMultipleValues);
        value = text::trimWhitespace(std::string_view(value).substr(0, at));
        if (value.empty()) return;
    }
    if (!isValidTimeStamp(value)) tag_.logError(*item, kBadTimeStamp);
}

bool FieldValidator::isValidTimeStamp(std::string_view text) {
    NumberScanner scanner(text);
    int64_t year = 0;
    if (!scanner.scanInteger(year) || year < 1000 || year > 9999) return false;
    if (scanner.isAtEnd()) return true;

    // Each later part: the separator text before the next digit must match
    // exactly; a missing number (the text ends) accepts what was read so far.
    auto separatorIs = [&scanner](char32_t expected) {
        const auto separator = scanner.scanUpToDigit();
        return separator && *separator == std::u32string(1, expected);
    };

    if (!separatorIs(U'-')) return false;
    int64_t month = 0;
    if (!scanner.scanInteger(month)) return true;
    if (month < 1 || month > 12) return false;

    // A year and month alone ("2021-03") is a complete value.
    if (scanner.isAtEnd()) return true;

    if (!separatorIs(U'-')) return false;
    int64_t day = 0;
    if (!scanner.scanInteger(day)) return true;
    if (day < 1 || day > kMonthLength[static_cast<size_t>(month - 1)]) return false;

    if (scanner.isAtEnd()) return true;
    if (!separatorIs(U'T')) return false;
    int64_t hour = 0;
    if (!scanner.scanInteger(hour)) return true;
    if (hour < 0 || hour >= 24) return false;

    if (scanner.isAtEnd()) return true;
    if (!separatorIs(U':')) return false;
    int64_t minute = 0;
    if (!scanner.scanInteger(minute)) return true;
    if (minute < 0 || minute >= 60) return false;

    if (scanner.isAtEnd()) return true;
    // A zone designator such as "Z" fails here; nothing after the seconds is
    // examined.
    if (!separatorIs(U':')) return false;
    int64_t second = 0;
    if (!scanner.scanInteger(second)) return true;
    return second >= 0 && second < 60;
}

void FieldValidator::validateLanguage() {
    const TagItem* item = tag_.item(field::Language);
    if (!item || !item->value) return;
    for (const std::string_view code : split(*item->value, kMultiValueSeparator)) {
        // Codes are only measured, not looked up in the ISO 639-2 list.
        if (text::utf16Length(code) != 3) {
            tag_.logError(*item, kBadLanguageCode);
            return;
        }
    }
}

void FieldValidator::validateURL(int64_t index) {
    const TagItem* item = tag_.item(index);
    if (!item || !item->value || item->value->empty()) return;
    if (checkURL(*item->value) != URLCheck::valid) tag_.logError(*item, kInvalidURL);
}

void FieldValidator::validateURLs() {
    const TagItem* item = tag_.item(field::UserDefinedURL);
    if (!item || !item->items) return;
    for (const TagItem& entry : *item->items) {
        if (!entry.value || entry.value->empty()) continue;
        const URLCheck result = checkURL(*entry.value);
        if (result == URLCheck::valid) continue;
        tag_.logError(entry, kInvalidURL);
        // An entry that cannot even be escaped ends the walk.
        if (result == URLCheck::escapeFailed) return;
    }
}

std::optional<std::string> FieldValidator::percentEscape(std::string_view text) {
    if (!text::isValidUTF8(text)) return std::nullopt;
    // Unreserved and reserved characters of a URI, and "%" itself, stay.
    auto allowed = [](unsigned char c) {
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
        return std::string_view("-._~:/?#[]@!$&'()*+,;=%").find(static_cast<char>(c)) !=
               std::string_view::npos;
    };
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (allowed(c)) {
            escaped.push_back(ch);
        } else {
            escaped.push_back('%');
            escaped.push_back(kHex[c >> 4]);
            escaped.push_back(kHex[c & 0xF]);
        }
    }
    return escaped;
}

FieldValidator::URLCheck FieldValidator::checkURL(std::string_view text) {
    const auto escaped = percentEscape(text);
    if (!escaped) return URLCheck::escapeFailed;
    UriUriA uri;
    const char* errorPos = nullptr;
    const bool parsed = uriParseSingleUriExA(&uri, escaped->data(), escaped->data() + escaped->size(),
                                             &errorPos) == URI_SUCCESS;
    if (parsed) uriFreeUriMembersA(&uri);
    return parsed ? URLCheck::valid : URLCheck::parseFailed;
}

}  // namespace sondrel
