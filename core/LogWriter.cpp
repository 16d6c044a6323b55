#include "core/LogWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "core/BuildInfo.h"
#include "core/Text.h"

namespace sondrel {

namespace {
constexpr const char* kWriteError = "An error occurred while writing the log file";

std::string reason(int error) {
    return error ? std::strerror(error) : "Unknown error";
}

ByteSpan asBytes(const std::string& s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}
}  // namespace

std::string formatProblemLine(const LogError& e) {
    return fmt::format("    {:012}  {}: {}", e.offset, categoryWord(e.logtype), text::sanitizeUTF8(e.reason));
}

std::string getDateTimeFormat(std::time_t t) {
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &tm);
    return buf;
}

std::string getNowTimeFormat() {
    return getDateTimeFormat(std::time(nullptr));
}

std::optional<std::string> modificationDate(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return getDateTimeFormat(st.st_mtime);
}

std::string LogWriter::firstLine(const std::string& startTime) {
    return fmt::format("{} Version {} (Build {})  {}\n", build::kName, build::kVersion, build::kBuild,
                       startTime);
}

LogWriter::LogWriter(std::unique_ptr<Printer> printer, AlertSink threadedAlert)
    : printer_(std::move(printer)), threadedAlert_(std::move(threadedAlert)) {}

LogWriter::~LogWriter() {
    closeLog();
}

std::optional<Alert> LogWriter::openLog(const std::string& logPath) {
    closeLog();
    readerGone_ = false;
    shownPath_ = text::escapePath(logPath);
    struct stat st {};
    bool exists = ::stat(logPath.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) return Alert{"Invalid Log File", "The specified log file is a folder"};
    if (!exists) {
        int fd = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644);
        if (fd < 0)
            return Alert{"Create Error",
                         fmt::format("Error creating log file {}: {}", shownPath_, reason(errno))};
        ::close(fd);
    }
    std::string error;
    handle_ = FileHandle::openForWriting(logPath, error);
    if (!handle_)
        return Alert{"Create Error",
                     fmt::format("Error getting a handle to the log file {}: {}", shownPath_, reason(errno))};
    // Only a regular file can be emptied; a device such as /dev/null or a
    // terminal is written as it is.
    if (::stat(logPath.c_str(), &st) == 0 && S_ISREG(st.st_mode) && !handle_->truncateFileAtOfs(0)) {
        int err = errno;
        handle_->closeTheFile();
        handle_.reset();
        return Alert{"Truncate Error",
                     fmt::format("Error truncating the log file {}: {}", shownPath_, reason(err))};
    }
    handle_->seekToOffset(0);
    if (!prepLog()) {
        int err = errno;
        closeLog();
        if (err == EPIPE) readerGone_ = true;
        return writeAlert(err);
    }
    return std::nullopt;
}

std::optional<Alert> LogWriter::openStream(int fd) {
    closeLog();
    readerGone_ = false;
    shownPath_ = "(standard output)";
    handle_ = FileHandle::borrowDescriptor(fd);
    if (!prepLog()) {
        int err = errno;
        closeLog();
        if (err == EPIPE) readerGone_ = true;
        return writeAlert(err);
    }
    return std::nullopt;
}

bool LogWriter::prepLog() {
    if (!handle_) return false;
    std::string line;
    printer_->begin(line, getNowTimeFormat());
    return handle_->writeDataObj(asBytes(line));
}

Alert LogWriter::writeAlert(int error) const {
    return Alert{"Error", fmt::format("{} {}: {}", kWriteError, shownPath_, reason(error))};
}

bool LogWriter::fail(int error) {
    if (error == EPIPE) {
        readerGone_ = true;
        return false;
    }
    if (threadedAlert_) threadedAlert_(writeAlert(error));
    return false;
}

// A file's lines are gathered and written in pieces of about this size, so
// writing a long list needs no more memory than one piece.
constexpr size_t kWritePiece = 64 * 1024;

bool LogWriter::write(const std::string& bytes, bool sync) {
    if (!handle_) return fail(EBADF);
    bool ok = bytes.empty() || handle_->writeDataObj(asBytes(bytes));
    if (ok && sync) ok = handle_->synchronize();
    return ok ? true : fail(errno);
}

bool LogWriter::writeHeading(const std::string& path, const std::string& modDate) {
    std::string heading;
    printer_->fileHeading(heading, path, modDate);
    return write(heading, true);
}

bool LogWriter::writeToLog(const std::string& path, const FileResult& result, bool logAllFiles) {
    ++filesHandled_;
    // The problems the filter keeps, and the worst severity among them.
    std::vector<const LogError*> kept;
    if (result.errors) {
        kept.reserve(result.errors->size());
        for (const auto& e : *result.errors)
            if (filter_.keeps(e.code)) kept.push_back(&e);
    }
    if (!logAllFiles && kept.empty() && !printer_->recordsEveryFile()) return true;
    if (!kept.empty()) {
        auto worst = codes::Severity::Note;
        std::lock_guard lock(tallyMutex_);
        for (const LogError* e : kept) {
            const auto severity = codes::codeAt(e->code).severity;
            worst = std::max(worst, severity);
            ++tally_.problems[static_cast<size_t>(severity)];
        }
        ++tally_.files;
        ++tally_.byWorst[static_cast<size_t>(worst)];
    }
    if (!handle_) return fail(EBADF);
    bool ok = true;
    int writeErrno = 0;
    std::string buffer;
    auto flush = [&] {
        if (ok && !buffer.empty()) {
            ok = handle_->writeDataObj(asBytes(buffer));
            if (!ok) writeErrno = errno;
        }
        buffer.clear();
    };
    try {
        if (kept.size() > 64) buffer.reserve(kWritePiece + 1024);
        if (!logAllFiles) printer_->fileHeading(buffer, path, result.modDate);
        errorTotal_ += kept.size();
        for (const LogError* e : kept) {
            printer_->problem(buffer, *e);
            if (buffer.size() >= kWritePiece) flush();
            if (!ok) break;
        }
        if (ok) printer_->fileEnd(buffer, path, result);
        flush();
    } catch (const std::bad_alloc&) {
        // What was written stays; a piece made without allocating says the
        // rest of this file's record is missing, and the scan goes on.
        buffer = std::string();
        const std::string_view lost = printer_->outOfMemoryTail();
        ok =
            ok && handle_->writeDataObj(ByteSpan(reinterpret_cast<const uint8_t*>(lost.data()), lost.size()));
        if (!ok && !writeErrno) writeErrno = errno;
    }
    if (ok && logAllFiles) {
        ok = handle_->synchronize();
        if (!ok) writeErrno = errno;
    }
    return ok ? true : fail(writeErrno);
}

bool LogWriter::finish(const RunSummary& summary) {
    std::string out;
    printer_->summary(out, summary);
    return write(out, false);
}

void LogWriter::resetErrorTotal() {
    errorTotal_ = 0;
    std::lock_guard lock(tallyMutex_);
    tally_ = LogTally{};
}

LogTally LogWriter::tally() const {
    std::lock_guard lock(tallyMutex_);
    return tally_;
}

void LogWriter::closeLog() {
    if (handle_) {
        handle_->closeTheFile();
        handle_.reset();
    }
}

}  // namespace sondrel
