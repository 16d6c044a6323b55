#pragma once
// Validation of the metadata items stored in a record: repeated fields,
// control characters and line breaks, ISO 8601 time stamps, languages, URLs
// and repeated list entries. Every finding is a "Tag" problem in the record.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sondrel {

class Tag;
class TagItem;

class FieldValidator {
  public:
    explicit FieldValidator(Tag& tag) : tag_(tag) {}

    // Runs every check below over the stored items, in the fixed order:
    // repeats and dirt of the single-valued fields, time stamps, language,
    // URLs, then the list fields.
    void validateFields(bool fromMPEG4);

    // Newline characters first, then control characters (minus LF, CR, tab);
    // an absent value is not checked.
    void lookForDirt(const TagItem& item, const std::optional<std::string>& value, bool control, bool nl);
    // Per-entry dirt and language checks of a list field with two or more
    // entries and, unless dirtOnly, one line when two entries share a key.
    void lookForDups(const TagItem& item, int64_t index, bool dirtOnly, bool fromMPEG4);
    void validateTimeField(int64_t index);
    // Only while the record's format code is 1 (never during a scan, since
    // the code is stored after the checker returns).
    void validateLanguage();
    void validateURL(int64_t index);
    void validateURLs();

    // The time-stamp grammar on its own (after trimming and splitting).
    static bool isValidTimeStamp(std::string_view text);

    enum class URLCheck { valid, escapeFailed, parseFailed };
    // Percent-escapes the text as UTF-8 and parses the result as a URI
    // reference.
    static URLCheck checkURL(std::string_view text);
    // Escapes every byte outside the characters a URI may hold; nullopt when
    // the text is not valid UTF-8.
    static std::optional<std::string> percentEscape(std::string_view text);

  private:
    Tag& tag_;
};

}  // namespace sondrel
