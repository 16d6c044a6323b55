#include "core/WorkThread.h"

#include <dirent.h>
#include <errno.h>
#include <sys/stat.h>

#include <fmt/format.h>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "core/LogWriter.h"
#include "core/PathPredicates.h"
#include "core/Tag.h"
#include "core/Text.h"

namespace sondrel {

namespace {

std::string joinPath(const std::string& folder, const std::string& name) {
    return folder.size() && folder.back() == '/' ? folder + name : folder + "/" + name;
}

// Case-insensitive order with folded keys computed once per name.
std::vector<std::string> sortedCaseInsensitive(std::vector<std::string> names) {
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return text::compareCaseInsensitive(a, b) < 0;
    });
    return names;
}

}  // namespace

WorkThread::WorkThread(Selection selection, Settings settings, LogWriter& log, ScanCallbacks callbacks,
                       unsigned jobs)
    : selection_(std::move(selection)),
      settings_(std::move(settings)),
      log_(log),
      callbacks_(std::move(callbacks)),
      jobs_(std::max(1u, jobs)) {}

void WorkThread::status(const std::string& text, bool wait) {
    if (callbacks_.setStatus) callbacks_.setStatus(text, wait);
}

void WorkThread::cannotRead(const std::string& path, int error) {
    ++unreadable_;
    if (callbacks_.cannotRead) callbacks_.cannotRead(path, error);
}

bool WorkThread::main() {
    spanFolders();
    if (!isCancelled()) spanFiles();
    if (!isCancelled()) go();
    bool cancelled = isCancelled();
    if (callbacks_.done) callbacks_.done(cancelled);
    return cancelled;
}

void WorkThread::spanFolders() {
    for (const auto& folder : selection_.folders) {
        if (isCancelled()) return;
        spanFolder(folder);
    }
}

void WorkThread::spanFolder(const std::string& folder) {
    if (folderStorage_.count(folder)) return;
    status(fmt::format("Examining folder {}", folder), true);
    if (isCancelled()) return;

    // A folder reached again through a symbolic link is not walked twice, so
    // link cycles end.
    struct stat st {};
    if (::stat(folder.c_str(), &st) != 0) {
        const int err = errno;
        cannotRead(folder, err);
        return;
    }
    if (!visitedFolders_.emplace(uint64_t(st.st_dev), uint64_t(st.st_ino)).second) return;

    DIR* dir = ::opendir(folder.c_str());
    if (!dir) {
        const int err = errno;
        cannotRead(folder, err);
        return;
    }
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        dirent* e = ::readdir(dir);
        if (!e) {
            // A listing cut short leaves files unseen; what was read is still walked.
            const int err = errno;
            if (err != 0) cannotRead(folder, err);
            break;
        }
        std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        names.push_back(std::move(name));
    }
    ::closedir(dir);
    // Listing order is the file system's; sorting makes the walk (and which
    // path a linked folder is first reached by) independent of it.
    names = sortedCaseInsensitive(std::move(names));

    std::set<std::string> audio;
    std::vector<std::string> subfolders;
    subfolders.reserve(5);
    for (const auto& name : names) {
        if (isCancelled()) break;
        if (name[0] == '.') continue;
        std::string path = joinPath(folder, name);
        struct stat est {};
        if (::stat(path.c_str(), &est) != 0) {
            // A link loop, a path too long or a denied search is worth a word
            // whatever the name; a vanished entry or a dangling link only
            // when it would have been checked.
            const int err = errno;
            if (err != ENOENT || isAudioFile(name)) cannotRead(path, err);
            continue;
        }
        if (S_ISDIR(est.st_mode)) {
            if (isPathClean(path)) subfolders.push_back(path);
        } else if (isAudioFile(name)) {
            audio.insert(name);
        }
    }
    if (!audio.empty()) folderStorage_[folder] = std::move(audio);
    for (const auto& sub : subfolders) {
        if (isCancelled()) return;
        spanFolder(sub);
    }
}

void WorkThread::spanFiles() {
    for (const auto& file : selection_.files) folderStorage_[parentFolder(file)].insert(lastComponent(file));
}

void WorkThread::go() {
    std::vector<std::string> folders;
    folders.reserve(folderStorage_.size());
    for (const auto& [folder, names] : folderStorage_) folders.push_back(folder);
    folders = sortedCaseInsensitive(std::move(folders));

    std::vector<std::string> paths;
    for (const auto& folder : folders) {
        if (isCancelled()) break;
        const auto& set = folderStorage_[folder];
        std::vector<std::string> names(set.begin(), set.end());
        for (const auto& name : sortedCaseInsensitive(std::move(names)))
            paths.push_back(joinPath(folder, name));
    }
    bool logAllFiles = settings_.boolFromKey("LogAllFiles");
    // With every file logged, each heading must be on disk before its file
    // is analysed, so the analysis stays sequential.
    if (jobs_ <= 1 || logAllFiles || paths.size() <= 1)
        goSequential(paths, logAllFiles);
    else
        goParallel(paths);
}

void WorkThread::goSequential(const std::vector<std::string>& paths, bool logAllFiles) {
    const uint64_t total = paths.size();
    for (const auto& path : paths) {
        if (isCancelled()) return;
        uint64_t n = ++progress_;
        status(fmt::format("Analyzing file {} of {}", n, total), false);
        if (logAllFiles) {
            std::string date = modificationDate(path).value_or("");
            if (!log_.writeToLog(path, date, std::nullopt, true)) {
                writeFailed_ = true;
                return;
            }
        }
        Tag tag(path, settings_);
        if (tag.openError()) cannotRead(path, tag.openError());
        std::optional<std::string> heading;
        if (!logAllFiles) heading = path;
        if (!log_.writeToLog(heading, tag.modDate(), tag.errors(), logAllFiles)) {
            writeFailed_ = true;
            return;
        }
    }
}

// Workers claim files strictly in list order and may run at most `window`
// files ahead of the log. Whichever worker finds the next file in order done
// writes it, and every consecutive finished file after it, while the others
// go on analysing; so the log order is the list order whatever the timing.
// Files already claimed when the scan is cancelled are finished and logged,
// so the log is complete up to there.
void WorkThread::goParallel(const std::vector<std::string>& paths) {
    struct Result {
        std::string modDate;
        std::optional<std::vector<LogError>> errors;
    };
    const size_t total = paths.size();
    const size_t window = size_t(jobs_) * 64;
    std::vector<std::optional<Result>> slots(total);
    std::mutex m;
    std::condition_variable cv;
    size_t next = 0;       // next file to claim
    size_t written = 0;    // files handed to the log
    bool writing = false;  // a worker is writing finished files
    bool stop = false;     // a write failed

    auto worker = [&] {
        for (;;) {
            size_t index;
            {
                std::unique_lock lock(m);
                // Cancellation comes from a flag (a signal handler may set it), so waits poll.
                while (!cv.wait_for(lock, std::chrono::milliseconds(50), [&] {
                    return stop || isCancelled() || next >= total || next < written + window;
                })) {
                }
                if (stop || isCancelled() || next >= total) return;
                index = next++;
            }
            uint64_t n = ++progress_;
            status(fmt::format("Analyzing file {} of {}", n, total), false);
            Tag tag(paths[index], settings_);
            if (tag.openError()) cannotRead(paths[index], tag.openError());
            std::unique_lock lock(m);
            slots[index] = Result{tag.modDate(), tag.errors()};
            if (writing) continue;  // the writing worker will reach this file
            writing = true;
            while (!stop && written < total && slots[written]) {
                Result r = std::move(*slots[written]);
                slots[written].reset();
                const size_t at = written;
                lock.unlock();
                bool ok = log_.writeToLog(paths[at], r.modDate, r.errors, false);
                lock.lock();
                ++written;
                if (!ok) {
                    stop = true;
                    writeFailed_ = true;
                }
            }
            writing = false;
            lock.unlock();
            cv.notify_all();
        }
    };

    std::vector<std::thread> threads;
    for (unsigned i = 0; i < jobs_; ++i) threads.emplace_back(worker);
    for (auto& t : threads) t.join();
}

}  // namespace sondrel
