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
#include <new>
#include <optional>
#include <thread>
#include <vector>

#include "codes/ProblemCodes.h"
#include "core/FileResult.h"
#include "core/LogWriter.h"
#include "core/PathPredicates.h"
#include "core/ResultCache.h"
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

// A finished file's problems as the scan holds them until they are written.
// A failed allocation while checking costs that file only: it is logged with
// one line saying so.
using Checked = FileResult;

constexpr const char* kOutOfMemory = "The check of this file ran out of memory and stopped";

Checked checkFile(const std::string& path, const Settings& settings) {
    try {
        Tag tag(path, settings);
        return Checked{tag.modDate(), tag.fileSize(), tag.takeErrors(), tag.openError()};
    } catch (const std::bad_alloc&) {
        return Checked{
            modificationDate(path).value_or(""), 0,
            std::vector<LogError>{LogError{kFile, 0, kOutOfMemory, codes::classify(kOutOfMemory)}}};
    }
}

// With a result cache, a file that is unchanged since a stored check is
// answered from it; any other file is checked and offered to the cache. The
// file's status is taken before the check, so a file that changes while it
// is checked is never stored under its new status.
Checked checkFile(const std::string& path, const Settings& settings, ResultCache* cache) {
    struct stat st {};
    if (!cache || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return checkFile(path, settings);
    if (auto hit = cache->lookup(path, st)) {
        hit->modDate = getDateTimeFormat(st.st_mtime);
        return std::move(*hit);
    }
    Checked checked = checkFile(path, settings);
    cache->store(path, st, checked);
    return checked;
}

// Roughly the memory a finished file's problem list holds.
size_t heldBytes(const Checked& c) {
    size_t bytes = sizeof c + c.modDate.capacity();
    if (c.errors)
        for (const auto& e : *c.errors) bytes += sizeof e + e.reason.capacity();
    return bytes;
}

}  // namespace

WorkThread::WorkThread(Selection selection, Settings settings, LogWriter& log, ScanCallbacks callbacks,
                       unsigned jobs)
    : selection_(std::move(selection)),
      settings_(std::move(settings)),
      log_(log),
      callbacks_(std::move(callbacks)),
      jobs_(std::max(1u, jobs)) {
    // The problem filter is an option like the others, so both front ends
    // honour it. A stored value that names nothing leaves the log unfiltered;
    // the command line refuses such a value before it starts.
    auto filter =
        codes::Filter::make(settings_.stringFromKey("MinSeverity"), settings_.stringFromKey("SelectCodes"),
                            settings_.stringFromKey("IgnoreCodes"));
    log_.setFilter(filter ? std::move(*filter) : codes::Filter());
}

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
    if (shard_.count > 1) {
        std::vector<uint64_t> sizes;
        sizes.reserve(folders.size());
        for (const auto& folder : folders) sizes.push_back(folderStorage_[folder].size());
        const auto [first, last] = shardRun(sizes, shard_);
        folders = std::vector<std::string>(folders.begin() + std::ptrdiff_t(first),
                                           folders.begin() + std::ptrdiff_t(last));
    }

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
            if (!log_.writeHeading(path, modificationDate(path).value_or(""))) {
                writeFailed_ = true;
                return;
            }
        }
        Checked checked = checkFile(path, settings_, cache_);
        if (checked.openError) cannotRead(path, checked.openError);
        if (!log_.writeToLog(path, checked, logAllFiles)) {
            writeFailed_ = true;
            return;
        }
    }
}

// Workers claim files strictly in list order and may run at most `window`
// files ahead of the log, and the finished files waiting for it may hold at
// most `maxHeld` bytes (the next file in order is always claimed, so the
// log never stalls). Whichever worker finds the next file in order done
// writes it, and every consecutive finished file after it, while the others
// go on analysing; so the log order is the list order whatever the timing.
// Files already claimed when the scan is cancelled are finished and logged,
// so the log is complete up to there.
void WorkThread::goParallel(const std::vector<std::string>& paths) {
    const size_t total = paths.size();
    const size_t window = size_t(jobs_) * 64;
    const size_t maxHeld = 64u << 20;
    std::vector<std::optional<Checked>> slots(total);
    std::vector<size_t> slotBytes(total);
    size_t held = 0;  // bytes of finished files not yet written
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
                    return stop || isCancelled() || next >= total ||
                           (next < written + window && (held < maxHeld || next == written));
                })) {
                }
                if (stop || isCancelled() || next >= total) return;
                index = next++;
            }
            uint64_t n = ++progress_;
            status(fmt::format("Analyzing file {} of {}", n, total), false);
            Checked checked = checkFile(paths[index], settings_, cache_);
            const size_t bytes = heldBytes(checked);
            if (checked.openError) cannotRead(paths[index], checked.openError);
            std::unique_lock lock(m);
            slots[index] = std::move(checked);
            slotBytes[index] = bytes;
            held += bytes;
            if (writing) continue;  // the writing worker will reach this file
            writing = true;
            while (!stop && written < total && slots[written]) {
                Checked r = std::move(*slots[written]);
                slots[written].reset();
                held -= slotBytes[written];
                const size_t at = written;
                lock.unlock();
                bool ok = log_.writeToLog(paths[at], r, false);
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

    // The calling thread is one of the workers rather than waiting for them.
    std::vector<std::thread> threads;
    for (unsigned i = 1; i < jobs_; ++i) threads.emplace_back(worker);
    worker();
    for (auto& t : threads) t.join();
}

}  // namespace sondrel
