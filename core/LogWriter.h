#pragma once
// The log: opened at the start of a scan (a new file every scan, or a
// stream), then fed one file at a time in scan order. The writer decides
// what is written -- the problems the filter keeps, and a file only when it
// has some (or every file is logged) -- counts it, and writes it in pieces;
// its printer decides the layout (printers/).
#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "codes/ProblemCodes.h"
#include "core/FileHandle.h"
#include "core/FileResult.h"
#include "core/LogError.h"
#include "printers/Printer.h"

namespace sondrel {

// An alert for the user: a title and a text (the desktop shows a sheet, the
// command line prints both to standard error).
struct Alert {
    std::string title;
    std::string text;
};

// One problem line, without the trailing line feed added by the caller.
std::string formatProblemLine(const LogError& e);
// "yyyy-MM-dd'T'HH:mm:ss" in local time, no zone.
std::string getDateTimeFormat(std::time_t t);
std::string getNowTimeFormat();
// The file's modification date in the log format; nullopt when it cannot be read.
std::optional<std::string> modificationDate(const std::string& path);

// What the log holds after filtering: files with at least one logged
// problem, counted once each under the worst severity among them.
struct LogTally {
    uint64_t files = 0;
    std::array<uint64_t, 4> byWorst{};   // indexed by codes::Severity
    std::array<uint64_t, 4> problems{};  // problems logged, by severity
};

class LogWriter {
  public:
    // Called (on the scan thread) when a write fails; waits until the alert is dismissed.
    using AlertSink = std::function<void(const Alert&)>;

    explicit LogWriter(std::unique_ptr<Printer> printer, AlertSink threadedAlert = {});
    ~LogWriter();

    // Opening at Start: refuses a folder, creates a missing file, opens it,
    // truncates it to 0 and writes the first line. On failure returns the
    // alert to show (its text names the file and the system's reason) and
    // leaves nothing open.
    std::optional<Alert> openLog(const std::string& logPath);
    // Writes to an already open descriptor (standard output) instead of a file.
    std::optional<Alert> openStream(int fd);
    bool prepLog();
    // With every file logged: the file's heading, forced to disk before the
    // file is analysed. False only when writing failed.
    bool writeHeading(const std::string& path, const std::string& modDate);
    // An analysed file: its heading (unless writeHeading gave it), the kept
    // problems and the end of its record; with `logAllFiles` every write is
    // forced to disk. False only when writing failed.
    bool writeToLog(const std::string& path, const FileResult& result, bool logAllFiles);
    // The closing record, for a layout that has one. False when writing failed.
    bool finish(const RunSummary& summary);
    void closeLog();

    uint64_t errorTotal() const { return errorTotal_.load(); }
    void resetErrorTotal();
    // Files handed to writeToLog so far, written or with nothing to write:
    // the files a progress display can call done.
    uint64_t filesHandled() const { return filesHandled_.load(); }
    // Which problems are written (and counted); set before a scan. What it
    // removes is neither logged nor counted, and a file left without
    // problems gets no heading.
    void setFilter(codes::Filter filter) { filter_ = std::move(filter); }
    LogTally tally() const;
    // The reader of a pipe went away. Such a write failure raises no alert:
    // nobody is left to read the log, so the run just ends.
    bool readerGone() const { return readerGone_.load(); }

    // The program's name, version and build for the first line.
    static std::string firstLine(const std::string& startTime);

  private:
    bool fail(int error);
    bool write(const std::string& bytes, bool sync);
    std::unique_ptr<Printer> printer_;
    Alert writeAlert(int error) const;
    AlertSink threadedAlert_;
    std::string shownPath_;  // the log's path as messages show it
    std::unique_ptr<FileHandle> handle_;
    std::atomic<uint64_t> errorTotal_{0};
    std::atomic<uint64_t> filesHandled_{0};
    codes::Filter filter_;
    mutable std::mutex tallyMutex_;
    LogTally tally_;
    std::atomic<bool> readerGone_{false};
};

}  // namespace sondrel
