#include "core/LogTarget.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>

#include "core/BuildInfo.h"
#include "core/PathPredicates.h"

namespace sondrel {

namespace {

constexpr const char* kAudioExtension =
    "The log file has an audio file's extension; a log never replaces an audio file";
constexpr const char* kSelectedFile = "The log file is one of the files selected for the scan";
constexpr const char* kNotALog = "The log file exists and is not a log written by this program";

bool sameFile(const std::string& a, const struct stat* aStat, const std::string& b) {
    struct stat bStat {};
    if (aStat && ::stat(b.c_str(), &bStat) == 0)
        return aStat->st_dev == bStat.st_dev && aStat->st_ino == bStat.st_ino;
    return fullPath(a) == fullPath(b);
}

// The symbolic links a path leads through, resolved; empty when it cannot be.
std::string resolved(const std::string& path) {
    std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : std::string();
}

// True when the file begins as a log of this program does: the text log's
// first line, or the begin record of its JSON Lines.
bool beginsLikeALog(const std::string& path) {
    const std::string text = std::string(build::kName) + " Version ";
    const std::string jsonLines = R"({"type":"begin","data":{"schema_version":)";
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return false;
    std::string head(std::max(text.size(), jsonLines.size()), '\0');
    ssize_t n = ::pread(fd, head.data(), head.size(), 0);
    ::close(fd);
    const auto startsWith = [&](const std::string& prefix) {
        return n >= ssize_t(prefix.size()) && head.compare(0, prefix.size(), prefix) == 0;
    };
    return startsWith(text) || startsWith(jsonLines);
}

}  // namespace

std::optional<LogTargetRefusal> refuseLogTarget(const std::string& logPath, const Selection& selection,
                                                bool replaceForeign) {
    using Rule = LogTargetRefusal::Rule;
    struct stat st {};
    const bool exists = ::stat(logPath.c_str(), &st) == 0;
    const std::string target = exists ? resolved(logPath) : std::string();
    if (isAudioFile(lastComponent(logPath)) || (!target.empty() && isAudioFile(lastComponent(target))))
        return LogTargetRefusal{Rule::AudioExtension, kAudioExtension};
    for (const auto& file : selection.files)
        if (sameFile(logPath, exists ? &st : nullptr, file))
            return LogTargetRefusal{Rule::SelectedFile, kSelectedFile};
    if (!replaceForeign && exists && S_ISREG(st.st_mode) && st.st_size > 0 && !beginsLikeALog(logPath))
        return LogTargetRefusal{Rule::NotALog, kNotALog};
    return std::nullopt;
}

}  // namespace sondrel
