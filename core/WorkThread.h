#pragma once
// The scan: walks the selection (dropped folders and files) into a work list
// of audio files grouped by folder, sorts it, analyses each file through a
// Tag record and hands its problems to the log writer. Folders are sorted
// case-insensitively by full path, files within a folder by name. With more
// than one job, files are analysed concurrently but logged strictly in that
// order, so the log is byte-identical whatever the number of jobs.
// Cancellation is cooperative: a file whose analysis has begun is always
// finished and logged.
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "core/Settings.h"
#include "core/Shard.h"

namespace sondrel {

class LogWriter;
class ResultCache;

struct Selection {
    std::set<std::string> folders;  // full paths
    std::set<std::string> files;    // full paths
};

struct ScanCallbacks {
    // Status text. `wait` is true for texts the scan waits on ("Examining
    // folder %@"), false for "Analyzing file %lu of %lu". May be called from
    // worker threads; must be thread-safe.
    std::function<void(const std::string& status, bool wait)> setStatus;
    // An input that could not be checked (a folder that cannot be listed, an
    // entry that cannot be examined: permission denied, a symbolic-link loop,
    // a path too long, a file that vanished or cannot be opened), with the
    // system's errno. The scan goes on. Called from the walk and from worker
    // threads; must be thread-safe. The core never prints.
    std::function<void(const std::string& path, int error)> cannotRead;
    // The scan has ended: `cancelled` tells whether it was cancelled.
    std::function<void(bool cancelled)> done;
};

class WorkThread {
  public:
    WorkThread(Selection selection, Settings settings, LogWriter& log, ScanCallbacks callbacks,
               unsigned jobs = 1);

    // The three phases (walk folders, add dropped files, analyse), then done().
    // Returns true when cancelled.
    bool main();
    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_.load(); }
    // Files analysed so far (the progress counter).
    uint64_t progress() const { return progress_.load(); }
    // Inputs reported through cannotRead so far.
    uint64_t unreadable() const { return unreadable_.load(); }
    // True when the scan stopped because a log write failed.
    bool writeFailed() const { return writeFailed_; }
    // Results from earlier scans: a file found there unchanged is not
    // checked again (not owned; null, the default, checks every file).
    void setResultCache(ResultCache* cache) { cache_ = cache; }
    // Check only this shard's run of the sorted work list (core/Shard.h).
    void setShard(ShardPart shard) { shard_ = shard; }

    // The work list after the walk: folder -> names (exposed for tests).
    const std::map<std::string, std::set<std::string>>& folderStorage() const { return folderStorage_; }

    void spanFolders();
    void spanFolder(const std::string& folder);
    void spanFiles();
    void go();

  private:
    void goSequential(const std::vector<std::string>& paths, bool logAllFiles);
    void goParallel(const std::vector<std::string>& paths);
    void status(const std::string& text, bool wait);
    void cannotRead(const std::string& path, int error);

    Selection selection_;
    Settings settings_;
    LogWriter& log_;
    ScanCallbacks callbacks_;
    unsigned jobs_;
    std::map<std::string, std::set<std::string>> folderStorage_;
    std::set<std::pair<uint64_t, uint64_t>> visitedFolders_;  // device, inode
    std::atomic<bool> cancelled_{false};
    std::atomic<uint64_t> progress_{0};
    std::atomic<uint64_t> unreadable_{0};
    bool writeFailed_ = false;
    ResultCache* cache_ = nullptr;
    ShardPart shard_;
};

}  // namespace sondrel
