#pragma once
// The result store: checks of earlier scans kept in an SQLite database, so a
// scan re-checks only what changed. A stored result is replayed for a path
// when the file's device, inode, size, modification time and change time (to
// the nanosecond) are those it was checked with, and when the fingerprint of
// everything else that shapes a result (program, options, verification tier,
// libraries) is the one it was stored under. The problems are kept
// unfiltered, so filters and output formats apply on replay as on a check.
//
// The store never stops a scan and never changes a log: a database that is
// locked, read-only, damaged or not one of ours is named once through the
// warning callback, and from then on the store answers nothing and keeps
// nothing. Several processes may share one database (write-ahead log, a
// busy timeout, writes batched in short transactions).
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/ResultCache.h"

struct sqlite3;
struct sqlite3_stmt;

namespace sondrel {

class Settings;

struct StoreOptions {
    std::string path;         // the database file; its folder is made when missing
    std::string fingerprint;  // see ResultStore::fingerprint
    // A stored result older than this many seconds is checked again even
    // when the file is unchanged; negative: never.
    int64_t recheckAfter = -1;
    // Files changed this many seconds before the store was opened, or later,
    // are not stored: a change within the file system's time-stamp
    // granularity would leave the same times behind.
    int64_t settleSeconds = 3;
    // Busy timeout for a database another process is writing, in ms.
    int busyMs = 5000;
    // The database file and the reason it cannot be used (once per store).
    std::function<void(const std::string& path, const std::string& reason)> warn;
};

class ResultStore final : public ResultCache {
  public:
    explicit ResultStore(StoreOptions options);
    ~ResultStore() override;  // writes what is pending
    ResultStore(const ResultStore&) = delete;
    ResultStore& operator=(const ResultStore&) = delete;

    // $XDG_CACHE_HOME/sondrel/results.sqlite (default ~/.cache/sondrel/).
    static std::string defaultPath();
    // Everything that shapes a check's result: `program` (name, version,
    // build), the identity of the running program and of every library it has
    // loaded (path, size and time: an upgrade changes them), `libraries` (the
    // decoders' own version strings) and every option that the checkers read,
    // which is every option but the log's place and layout, the problem
    // filters (applied on replay) and the desktop program's own.
    static std::string fingerprint(const Settings& settings, std::string_view program,
                                   std::string_view libraries);
    // The running program as the fingerprint names it: name, version, build.
    static std::string thisProgram();
    // The store a scan asks for: nullptr unless the "Cache" option is on.
    // An empty `path` means defaultPath(); `recheckDays` negative means never.
    static std::unique_ptr<ResultStore> forScan(
        const Settings& settings, std::string path, double recheckDays, std::string_view program,
        std::string_view libraries, std::function<void(const std::string&, const std::string&)> warn);

    std::optional<FileResult> lookup(const std::string& path, const struct stat& st) override;
    void store(const std::string& path, const struct stat& st, const FileResult& result) override;

    // Writes the pending results in one transaction.
    void flush();
    // False once the database failed (or never opened).
    bool usable() const;

    struct Counts {
        uint64_t hits = 0, misses = 0, stored = 0;
    };
    Counts counts() const;

  private:
    struct Pending {
        std::string path;
        struct stat st;
        std::optional<std::string> problems;
        uint64_t size;
    };
    bool open();
    void giveUp(const std::string& reason);
    void flushLocked();
    bool worthStoring(const struct stat& st, const FileResult& result) const;

    StoreOptions options_;
    int64_t openedAtNs_;  // wall clock, when the store was opened
    std::chrono::steady_clock::time_point lastFlush_;
    uint64_t fingerprintHash_;
    std::vector<uint16_t> transientRows_;
    mutable std::mutex mutex_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* select_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    bool failed_ = false;
    std::vector<Pending> pending_;
    size_t pendingBytes_ = 0;
    Counts counts_;
};

}  // namespace sondrel
