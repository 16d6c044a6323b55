#pragma once
// Problem codes: every message a checker can log has a stable, readable code
// (grouped by format family: "id3.trailing-nil", "flac.block-overflow") and a
// severity that says what the message means for the file. One table holds
// them; the scan classifies each problem once by matching its message against
// the table's patterns, the log writer filters on the result and the command
// line prints the table and its explanations. This folder depends on nothing
// else in the project.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sondrel::codes {

// Ordered from the mildest to the gravest.
enum class Severity : uint8_t { Note, Warning, Error, Damage };

struct ProblemCode {
    const char* code;
    Severity severity;
    // One or more message patterns separated by '\n'; '*' stands for a value
    // the message is formatted with (a frame name, a size, an offset...).
    const char* patterns;
    // What it means and why it matters, which writers commonly cause it, and
    // how to fix it.
    const char* meaning;
    const char* fix;
};

// Row 0 is "unclassified" (a message no pattern matches), severity error.
std::span<const ProblemCode> problemCodes();
inline constexpr uint16_t kUnclassified = 0;

// The row whose pattern matches the message; kUnclassified when none does.
// Linear in the message length (literal pieces are matched left to right).
uint16_t classify(std::string_view message);

const ProblemCode& codeAt(uint16_t row);
// The row with exactly this code, or nullopt.
std::optional<uint16_t> findCode(std::string_view code);
const char* severityName(Severity severity);
std::optional<Severity> severityFromName(std::string_view name);
// The patterns of a row, one per element.
std::vector<std::string_view> patternsOf(const ProblemCode& row);

// What a user asked to see: a minimum severity, codes selected and codes
// ignored. A code is written as itself, as a family ("id3"), or with a
// trailing '*' ("id3.*", "id3.text-*") for every code that starts so.
class Filter {
  public:
    // Everything passes.
    Filter();
    // Empty strings leave that part open. `select` and `ignore` are
    // comma-separated. Returns an English reason on a bad level or a code
    // that names nothing.
    static std::optional<Filter> make(std::string_view minSeverity, std::string_view select,
                                      std::string_view ignore, std::string* reason = nullptr);

    bool keeps(uint16_t row) const { return row < keep_.size() && keep_[row]; }
    // True when the filter lets every code through (the default).
    bool passesAll() const { return passesAll_; }

  private:
    std::vector<bool> keep_;
    bool passesAll_ = true;
};

}  // namespace sondrel::codes
