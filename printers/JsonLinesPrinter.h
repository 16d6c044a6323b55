#pragma once
// JSON Lines: one object per line, each {"type": ..., "data": {...}}.
//   begin    schema_version, program, version, build, start time, options in force
//   file     path {text, bytes?}, problems [{offset, category, code, severity,
//            message}], modified, size, format, open_error?
//   summary  counts by severity, files with problems, unreadable inputs,
//            exit status
//            (a shard's begin record adds shard {index, count})
// A path is given as display text (UTF-8, invalid bytes replaced by U+FFFD)
// and, only when its bytes are not valid UTF-8, as base64 of the exact bytes,
// so every name can be reopened. docs/sondrel-jsonl.schema.json describes it.
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "printers/Printer.h"

namespace sondrel {

class JsonLinesPrinter : public Printer {
  public:
    static constexpr int kSchemaVersion = 1;

    // `options` are the settings in force, written in the begin record.
    explicit JsonLinesPrinter(std::map<std::string, std::string> options = {});

    void begin(std::string& out, const std::string& startTime) override;
    bool recordsEveryFile() const override { return true; }
    void fileHeading(std::string& out, const std::string& path, const std::string& modDate) override;
    void problem(std::string& out, const LogError& e) override;
    void fileEnd(std::string& out, const std::string& path, const FileResult& result) override;
    // Closes the problem list and the record, marked as cut short.
    std::string_view outOfMemoryTail() const override {
        return R"(],"truncated":true}}
)";
    }
    void summary(std::string& out, const RunSummary& s) override;
    // The begin record names the shard (index, count) a run checked.
    void setShard(unsigned index, unsigned count) { shard_ = {index, count}; }

  private:
    std::optional<std::pair<unsigned, unsigned>> shard_;
    std::map<std::string, std::string> options_;
    bool firstProblem_ = true;
};

// Standard base64 (RFC 4648, with padding).
std::string base64Encode(std::string_view bytes);

}  // namespace sondrel
