#pragma once
// The plain-text log, in its exact layout:
//   first line   "%@ Version %@ (Build %@)  %@\n"
//   heading      "\n%@  %@\n"                 (modification date, escaped full path)
//   problem      "    %012lu  %@: %@\n"       (offset, category word, message)
// and nothing at the end.
#include "printers/Printer.h"

namespace sondrel {

class TextPrinter : public Printer {
  public:
    // With `colour`, each problem line is tinted by its severity (for a log
    // shown on a terminal only; the bytes of a log file never change).
    explicit TextPrinter(bool colour = false) : colour_(colour) {}

    void begin(std::string& out, const std::string& startTime) override;
    bool recordsEveryFile() const override { return false; }
    void fileHeading(std::string& out, const std::string& path, const std::string& modDate) override;
    void problem(std::string& out, const LogError& e) override;
    void fileEnd(std::string&, const std::string&, const FileResult&) override {}
    std::string_view outOfMemoryTail() const override {
        return "    000000000000  File: Out of memory: the rest of this file's lines are lost\n";
    }
    void summary(std::string&, const RunSummary&) override {}

  private:
    bool colour_;
};

}  // namespace sondrel
