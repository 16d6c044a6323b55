#include "core/LogWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "core/BuildInfo.h"
#include "core/Text.h"

namespace sondrel {

namespace {
constexpr const char* kWriteError = "An error occurred while writing the log file";

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

LogWriter::LogWriter(AlertSink threadedAlert) : threadedAlert_(std::move(threadedAlert)) {}

LogWriter::~LogWriter() {
    closeLog();
}

std::optional<Alert> LogWriter::openLog(const std::string& logPath) {
    closeLog();
    struct stat st {};
    bool exists = ::stat(logPath.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) return Alert{"Invalid Log File", "The specified log file is a folder"};
    if (!exists) {
        int fd = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0) return Alert{"Create Error", "Error creating log file"};
        ::close(fd);
    }
    std::string error;
    handle_ = FileHandle::openForWriting(logPath, error);
    if (!handle_) return Alert{"Create Error", "Error getting a handle to the log file"};
    // Only a regular file can be emptied; a device such as /dev/null or a
    // terminal is written as it is.
    if (::stat(logPath.c_str(), &st) == 0 && S_ISREG(st.st_mode) && !handle_->truncateFileAtOfs(0)) {
        handle_->closeTheFile();
        handle_.reset();
        return Alert{"Truncate Error", "Error truncating the log file"};
    }
    handle_->seekToOffset(0);
    if (!prepLog()) {
        closeLog();
        return Alert{"Error", kWriteError};
    }
    return std::nullopt;
}

std::optional<Alert> LogWriter::openStream(int fd) {
    closeLog();
    handle_ = FileHandle::borrowDescriptor(fd);
    if (!prepLog()) {
        closeLog();
        return Alert{"Error", kWriteError};
    }
    return std::nullopt;
}

bool LogWriter::prepLog() {
    if (!handle_) return false;
    std::string line = firstLine(getNowTimeFormat());
    return handle_->writeDataObj(asBytes(line));
}

bool LogWriter::fail() {
    if (threadedAlert_) threadedAlert_(Alert{"Error", kWriteError});
    return false;
}

// A file's lines are gathered and written in pieces of about this size, so
// writing a long list needs no more memory than one piece.
constexpr size_t kWritePiece = 64 * 1024;

bool LogWriter::writeToLog(const std::optional<std::string>& path, const std::string& modDate,
                           const std::optional<std::vector<LogError>>& errors, bool logAllFiles) {
    // The problems the filter keeps, and the worst severity among them.
    std::vector<const LogError*> kept;
    if (errors) {
        kept.reserve(errors->size());
        for (const auto& e : *errors)
            if (filter_.keeps(e.code)) kept.push_back(&e);
    }
    if (!logAllFiles && kept.empty()) return true;
    if (!kept.empty()) {
        auto worst = codes::Severity::Note;
        for (const LogError* e : kept) worst = std::max(worst, codes::codeAt(e->code).severity);
        std::lock_guard lock(tallyMutex_);
        ++tally_.files;
        ++tally_.byWorst[static_cast<size_t>(worst)];
    }
    if (!handle_) return fail();
    bool ok = true;
    std::string buffer;
    auto flush = [&] {
        if (ok && !buffer.empty()) ok = handle_->writeDataObj(asBytes(buffer));
        buffer.clear();
    };
    try {
        buffer.reserve(kWritePiece + 1024);
        if (path) {
            buffer += '\n';
            buffer += modDate;
            buffer += "  ";
            buffer += text::sanitizeUTF8(*path);
            buffer += '\n';
        }
        errorTotal_ += kept.size();
        for (const LogError* e : kept) {
            buffer += formatProblemLine(*e);
            buffer += '\n';
            if (buffer.size() >= kWritePiece) flush();
            if (!ok) break;
        }
        flush();
    } catch (const std::bad_alloc&) {
        // What was written stays; one line made without allocating says the
        // rest of this file's lines are missing, and the scan goes on.
        static constexpr char kLost[] =
            "    000000000000  File: Out of memory: the rest of this file's lines are lost\n";
        buffer = std::string();
        ok = ok && handle_->writeDataObj(ByteSpan(reinterpret_cast<const uint8_t*>(kLost), sizeof kLost - 1));
    }
    if (ok && logAllFiles) ok = handle_->synchronize();
    return ok ? true : fail();
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
