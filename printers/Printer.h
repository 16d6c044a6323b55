#pragma once
// How a log is laid out. The log writer decides what is written (which files,
// which problems, in which order) and where; a printer turns the scan's
// per-file records into bytes. A file arrives in up to three calls so that a
// long problem list can be written in pieces: fileHeading (when the file's
// path belongs in the log), one problem call per kept problem, and fileEnd
// once the analysis is known. With every file logged, the heading is written
// before the file is analysed and the rest after.
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/FileResult.h"
#include "core/LogError.h"

namespace sondrel {

// What the run ends with, for a printer that writes a closing record.
struct RunSummary {
    uint64_t scanned = 0;                          // files analysed
    uint64_t withProblems = 0;                     // files with at least one logged problem
    uint64_t unreadable = 0;                       // inputs that could not be read
    uint64_t problems = 0;                         // problems logged
    std::array<uint64_t, 4> problemsBySeverity{};  // indexed by codes::Severity
    std::array<uint64_t, 4> filesByWorst{};        // indexed by codes::Severity
    bool cancelled = false;
    int exitStatus = 0;
};

class Printer {
  public:
    virtual ~Printer() = default;
    // The log's first line (or record), given the scan's start time.
    virtual void begin(std::string& out, const std::string& startTime) = 0;
    // True when a file without logged problems still gets a record.
    virtual bool recordsEveryFile() const = 0;
    virtual void fileHeading(std::string& out, const std::string& path, const std::string& modDate) = 0;
    virtual void problem(std::string& out, const LogError& e) = 0;
    // The end of a file's record, with the facts of its analysis.
    virtual void fileEnd(std::string& out, const std::string& path, const FileResult& result) = 0;
    // Written when the memory for a file's record ran out: ends the record
    // as well as the layout allows without allocating.
    virtual std::string_view outOfMemoryTail() const = 0;
    // The log's closing record, if the layout has one.
    virtual void summary(std::string& out, const RunSummary& s) = 0;
};

}  // namespace sondrel
