#include "store/ResultStore.h"

#include <dirent.h>
#include <pwd.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "codes/ProblemCodes.h"
#include "core/BuildInfo.h"
#include "core/Module.h"
#include "core/PathPredicates.h"
#include "core/Settings.h"

namespace sondrel {

namespace {

// "Sndr": marks a database as this program's result store, so a file of
// another program at the same place is never taken over.
constexpr int kApplicationId = 0x536e6472;
// Raised whenever the table changes; an older store is emptied and rebuilt.
constexpr int kSchemaVersion = 1;
// Pending results are written when this many have gathered, when they hold
// this many bytes, or when the last write is this old.
constexpr size_t kBatchFiles = 512;
constexpr size_t kBatchBytes = 8u << 20;
constexpr auto kBatchAge = std::chrono::seconds(2);
constexpr const char* kDamagedRow = "a stored result is damaged";

// Problems that say more about the moment than about the file: a file that
// could not be opened or examined, or a check that ran out of memory, is
// checked again next time. A read error stays: it is nearly always a file
// shorter than its structures say, which is the file's own damage.
constexpr const char* kTransientCodes[] = {"file.not-regular", "file.cannot-open",   "file.cannot-stat",
                                           "file.close-error", "file.out-of-memory", "file.internal-error"};

// Options that do not shape a check's result: the log's place and layout,
// the filters (applied when a result is written, stored or not), the desktop
// program's own, and the cache itself.
const std::set<std::string> kNotFingerprinted = {"LogPath",        "LogAllFiles",      "MinSeverity",
                                                 "SelectCodes",    "IgnoreCodes",      "LogPrompt",
                                                 "FirstTimeUsage", "LogFixedFontSize", "Cache"};

int64_t nanoseconds(const struct timespec& t) {
    return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec;
}

int64_t nowNanoseconds() {
    struct timespec t {};
    ::clock_gettime(CLOCK_REALTIME, &t);
    return nanoseconds(t);
}

bool sameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           nanoseconds(a.st_mtim) == nanoseconds(b.st_mtim) &&
           nanoseconds(a.st_ctim) == nanoseconds(b.st_ctim);
}

uint64_t fnv1a(std::string_view text) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (unsigned char c : text) {
        h ^= c;
        h *= 0x100000001b3ull;
    }
    return h;
}

// A problem list as bytes: per problem its category (4 bytes), offset (8),
// the code's name (2-byte length, then the name) and the message (4-byte
// length, then the text), integers little-endian. The code is kept by name
// and its row looked up again on replay, so the table may be reordered.
void putLE(std::string& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(char((value >> (8 * i)) & 0xff));
}

std::string encodeProblems(const std::vector<LogError>& errors) {
    std::string out;
    for (const auto& e : errors) {
        const std::string_view code = codes::codeAt(e.code).code;
        putLE(out, e.logtype, 4);
        putLE(out, e.offset, 8);
        putLE(out, code.size(), 2);
        out += code;
        putLE(out, e.reason.size(), 4);
        out += e.reason;
    }
    return out;
}

class BlobReader {
  public:
    BlobReader(const unsigned char* data, size_t size) : data_(data), left_(size) {}
    bool done() const { return left_ == 0; }
    bool le(int bytes, uint64_t& value) {
        if (size_t(bytes) > left_) return false;
        value = 0;
        for (int i = 0; i < bytes; ++i) value |= uint64_t(data_[i]) << (8 * i);
        data_ += bytes;
        left_ -= size_t(bytes);
        return true;
    }
    bool text(uint64_t size, std::string& out) {
        if (size > left_) return false;
        out.assign(reinterpret_cast<const char*>(data_), size_t(size));
        data_ += size;
        left_ -= size_t(size);
        return true;
    }

  private:
    const unsigned char* data_;
    size_t left_;
};

std::optional<std::vector<LogError>> decodeProblems(const unsigned char* data, size_t size) {
    std::vector<LogError> out;
    BlobReader r(data, size);
    while (!r.done()) {
        LogError e;
        uint64_t type = 0, codeSize = 0, reasonSize = 0;
        std::string code;
        if (!r.le(4, type) || !r.le(8, e.offset) || !r.le(2, codeSize) || !r.text(codeSize, code) ||
            !r.le(4, reasonSize) || !r.text(reasonSize, e.reason))
            return std::nullopt;
        e.logtype = uint32_t(type);
        auto row = codes::findCode(code);
        e.code = row ? *row : codes::classify(e.reason);
        out.push_back(std::move(e));
    }
    return out;
}

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return {};
}

// Makes `folder` and its missing parents; errno on failure, else 0.
int makeFolders(const std::string& folder) {
    if (folder.empty()) return 0;
    struct stat st {};
    if (::stat(folder.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
    auto slash = folder.find_last_of('/');
    if (slash != std::string::npos && slash > 0)
        if (int err = makeFolders(folder.substr(0, slash))) return err;
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return errno;
    return 0;
}

// The running program and every library mapped into it, each as path, size
// and modification time: a rebuilt program or an upgraded library (the
// decoders, the picture libraries, ICU) makes a different fingerprint.
std::string loadedFiles() {
    std::ifstream maps("/proc/self/maps");
    std::set<std::string> paths;
    std::string line;
    while (std::getline(maps, line)) {
        auto slash = line.find('/');
        if (slash == std::string::npos) continue;
        std::istringstream fields(line);
        std::string range, perms;
        fields >> range >> perms;
        if (perms.find('x') != std::string::npos) paths.insert(line.substr(slash));
    }
    // The modules loaded on first use (the image and audio decoders) may not
    // be mapped yet: every module file beside them counts as well.
    const std::string probe = module::pathOf("probe");
    const std::string folder = probe.substr(0, probe.rfind('/'));
    if (DIR* d = ::opendir(folder.c_str())) {
        while (const dirent* e = ::readdir(d)) {
            const std::string_view name = e->d_name;
            if (name.size() > 3 && name.substr(name.size() - 3) == ".so")
                paths.insert(folder + "/" + e->d_name);
        }
        ::closedir(d);
    }
    std::string out;
    for (const auto& p : paths) {
        struct stat st {};
        if (::stat(p.c_str(), &st) == 0)
            out += fmt::format("{} {} {}\n", p, int64_t(st.st_size), nanoseconds(st.st_mtim));
    }
    return out;
}

class Statement {
  public:
    Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    sqlite3_stmt* get() const { return stmt_; }

  private:
    sqlite3_stmt* stmt_ = nullptr;
};

// The first column of the first row of `sql` as an integer.
std::optional<int64_t> queryInt(sqlite3* db, const char* sql) {
    Statement s(db, sql);
    if (!s.get() || sqlite3_step(s.get()) != SQLITE_ROW) return std::nullopt;
    return sqlite3_column_int64(s.get(), 0);
}

bool exec(sqlite3* db, const char* sql) {
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace

ResultStore::ResultStore(StoreOptions options)
    : options_(std::move(options)),
      openedAtNs_(nowNanoseconds()),
      lastFlush_(std::chrono::steady_clock::now()),
      fingerprintHash_(fnv1a(options_.fingerprint)) {
    for (const char* name : kTransientCodes)
        if (auto row = codes::findCode(name)) transientRows_.push_back(*row);
    std::lock_guard lock(mutex_);
    if (!open()) {
        sqlite3_finalize(select_);
        sqlite3_finalize(insert_);
        select_ = insert_ = nullptr;
        sqlite3_close(db_);
        db_ = nullptr;
    }
}

ResultStore::~ResultStore() {
    std::lock_guard lock(mutex_);
    flushLocked();
    sqlite3_finalize(select_);
    sqlite3_finalize(insert_);
    sqlite3_close(db_);
}

std::string ResultStore::defaultPath() {
    // A relative XDG_CACHE_HOME is to be ignored.
    const char* xdg = std::getenv("XDG_CACHE_HOME");
    std::string base = xdg && xdg[0] == '/' ? std::string(xdg) : homeFolder() + "/.cache";
    return base + "/sondrel/results.sqlite";
}

std::string ResultStore::fingerprint(const Settings& settings, std::string_view program,
                                     std::string_view libraries) {
    std::string out = fmt::format("program {}\nlibraries {}\n", program, libraries);
    out += loadedFiles();
    // Every option the program knows (its initial values name them all), so
    // an option added later is part of the fingerprint without more ado.
    // Booleans are written one way, whichever spelling the settings hold.
    std::istringstream defaults(build::kUserDefaults);
    std::string line;
    std::set<std::string> keys;
    while (std::getline(defaults, line)) {
        auto eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
        std::string key = line.substr(0, eq);
        if (!kNotFingerprinted.count(key)) keys.insert(key);
    }
    for (const auto& key : keys) {
        std::string value = settings.stringFromKey(key);
        bool b = false;
        if (Settings::parseBool(value, b)) value = b ? "true" : "false";
        out += fmt::format("{}={}\n", key, value);
    }
    return out;
}

std::string ResultStore::thisProgram() {
    return fmt::format("{} {} (Build {})", build::kName, build::kVersion, build::kBuild);
}

std::unique_ptr<ResultStore> ResultStore::forScan(
    const Settings& settings, std::string path, double recheckDays, std::string_view program,
    std::string_view libraries, std::function<void(const std::string&, const std::string&)> warn) {
    if (!settings.boolFromKey("Cache")) return nullptr;
    StoreOptions o;
    o.path = path.empty() ? defaultPath() : std::move(path);
    o.fingerprint = fingerprint(settings, program, libraries);
    o.recheckAfter = recheckDays < 0 ? -1 : int64_t(std::llround(std::min(recheckDays, 1e6) * 86400.0));
    o.warn = std::move(warn);
    return std::make_unique<ResultStore>(std::move(o));
}

bool ResultStore::open() {
    const auto slash = options_.path.find_last_of('/');
    if (slash != std::string::npos && slash > 0) {
        if (int err = makeFolders(options_.path.substr(0, slash))) {
            giveUp(fmt::format("its folder cannot be made: {}", std::strerror(err)));
            return false;
        }
    }
    // The program never writes into an audio file, whatever it is told.
    if (isAudioFile(lastComponent(options_.path))) {
        giveUp("has an audio file's extension");
        return false;
    }
    struct stat st {};
    if (::stat(options_.path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
        giveUp("not a file");
        return false;
    }
    if (sqlite3_open_v2(options_.path.c_str(), &db_,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        giveUp(db_ ? sqlite3_errmsg(db_) : "out of memory");
        return false;
    }
    sqlite3_busy_timeout(db_, options_.busyMs);
    sqlite3_extended_result_codes(db_, 0);
    if (sqlite3_db_readonly(db_, "main") == 1) {
        giveUp("the file is read-only");
        return false;
    }
    // Reading the header finds a file that is no database at all.
    const auto tables = queryInt(db_, "SELECT count(*) FROM sqlite_master");
    const auto appId = queryInt(db_, "PRAGMA application_id");
    if (!tables || !appId) {
        giveUp(sqlite3_errmsg(db_));
        return false;
    }
    if (*tables > 0 && *appId != kApplicationId) {
        giveUp("not a result cache of this program");
        return false;
    }
    // The write-ahead log lets scans read while another writes. Where the
    // file system cannot have it, the rollback journal still works.
    // Switching needs the file to itself for a moment; SQLite answers "busy"
    // at once, without waiting, while another scan opening the same new cache
    // holds it, so the switch is tried again for as long as a lock is waited for.
    {
        Statement wal(db_, "PRAGMA journal_mode=WAL");
        int rc = wal.get() ? sqlite3_step(wal.get()) : SQLITE_ERROR;
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.busyMs);
        while (rc == SQLITE_BUSY && std::chrono::steady_clock::now() < until) {
            ::usleep(10000);
            sqlite3_reset(wal.get());
            rc = sqlite3_step(wal.get());
        }
        if (rc != SQLITE_ROW) {
            giveUp(sqlite3_errmsg(db_));
            return false;
        }
    }
    exec(db_, "PRAGMA synchronous=NORMAL");
    if (queryInt(db_, "PRAGMA user_version").value_or(-1) != kSchemaVersion) {
        // Another process may be making the table at the same moment: the
        // write lock decides, and the loser finds it made.
        bool ok = exec(db_, "BEGIN IMMEDIATE");
        if (ok && queryInt(db_, "PRAGMA user_version").value_or(-1) != kSchemaVersion) {
            ok = exec(db_, "DROP TABLE IF EXISTS results") &&
                 exec(db_,
                      "CREATE TABLE results(path BLOB NOT NULL UNIQUE, device INTEGER NOT NULL, "
                      "inode INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL, "
                      "ctime_ns INTEGER NOT NULL, fingerprint INTEGER NOT NULL, checked_ns INTEGER NOT NULL, "
                      "result_size INTEGER NOT NULL, problems BLOB)") &&
                 exec(db_, fmt::format("PRAGMA application_id={}", kApplicationId).c_str()) &&
                 exec(db_, fmt::format("PRAGMA user_version={}", kSchemaVersion).c_str());
        }
        if (!ok || !exec(db_, "COMMIT")) {
            const std::string reason = sqlite3_errmsg(db_);
            exec(db_, "ROLLBACK");
            giveUp(reason);
            return false;
        }
    }
    if (sqlite3_prepare_v2(db_,
                           "SELECT device, inode, size, mtime_ns, ctime_ns, fingerprint, checked_ns, "
                           "result_size, problems FROM results WHERE path = ?",
                           -1, &select_, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db_,
                           "INSERT OR REPLACE INTO results(path, device, inode, size, mtime_ns, ctime_ns, "
                           "fingerprint, checked_ns, result_size, problems) VALUES(?,?,?,?,?,?,?,?,?,?)",
                           -1, &insert_, nullptr) != SQLITE_OK) {
        giveUp(sqlite3_errmsg(db_));
        return false;
    }
    lastFlush_ = std::chrono::steady_clock::now();
    return true;
}

void ResultStore::giveUp(const std::string& reason) {
    if (failed_) return;
    failed_ = true;
    pending_.clear();
    pendingBytes_ = 0;
    // A damaged store of ours is only a cache: saying so lets the user
    // start a new one. A file that is not ours is never offered for removal.
    const bool damaged = reason == sqlite3_errstr(SQLITE_CORRUPT) || reason == kDamagedRow;
    if (options_.warn)
        options_.warn(options_.path, fmt::format("result cache {}: {}{} (files are checked without it)",
                                                 db_ && select_ ? "given up" : "not used", reason,
                                                 damaged ? "; delete it to start a new cache" : ""));
}

bool ResultStore::usable() const {
    std::lock_guard lock(mutex_);
    return db_ && !failed_;
}

ResultStore::Counts ResultStore::counts() const {
    std::lock_guard lock(mutex_);
    return counts_;
}

std::optional<FileResult> ResultStore::lookup(const std::string& path, const struct stat& st) {
    std::lock_guard lock(mutex_);
    if (!db_ || failed_) return std::nullopt;
    sqlite3_stmt* s = select_;
    sqlite3_bind_blob(s, 1, path.data(), int(path.size()), SQLITE_STATIC);
    std::optional<FileResult> found;
    const int rc = sqlite3_step(s);
    if (rc == SQLITE_ROW) {
        const bool same = sqlite3_column_int64(s, 0) == int64_t(st.st_dev) &&
                          sqlite3_column_int64(s, 1) == int64_t(st.st_ino) &&
                          sqlite3_column_int64(s, 2) == int64_t(st.st_size) &&
                          sqlite3_column_int64(s, 3) == nanoseconds(st.st_mtim) &&
                          sqlite3_column_int64(s, 4) == nanoseconds(st.st_ctim) &&
                          sqlite3_column_int64(s, 5) == int64_t(fingerprintHash_);
        const bool fresh = options_.recheckAfter < 0 ||
                           sqlite3_column_int64(s, 6) >= openedAtNs_ - options_.recheckAfter * 1000000000;
        if (same && fresh) {
            FileResult r;
            r.size = uint64_t(sqlite3_column_int64(s, 7));
            if (sqlite3_column_type(s, 8) != SQLITE_NULL) {
                const auto* data = static_cast<const unsigned char*>(sqlite3_column_blob(s, 8));
                const int size = sqlite3_column_bytes(s, 8);
                r.errors = decodeProblems(data, size_t(std::max(size, 0)));
                if (!r.errors) {
                    sqlite3_reset(s);
                    giveUp(kDamagedRow);
                    return std::nullopt;
                }
                found = std::move(r);
            } else {
                found = std::move(r);
            }
        }
    }
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) giveUp(sqlite3_errstr(rc));
    found ? ++counts_.hits : ++counts_.misses;
    return found;
}

bool ResultStore::worthStoring(const struct stat& st, const FileResult& result) const {
    if (result.openError != 0 || result.modDate.empty()) return false;
    if (result.errors)
        for (const auto& e : *result.errors)
            for (uint16_t row : transientRows_)
                if (e.code == row) return false;
    const int64_t settled = openedAtNs_ - options_.settleSeconds * 1000000000;
    return nanoseconds(st.st_mtim) < settled && nanoseconds(st.st_ctim) < settled;
}

void ResultStore::store(const std::string& path, const struct stat& st, const FileResult& result) {
    {
        std::lock_guard lock(mutex_);
        if (!db_ || failed_) return;
    }
    if (!worthStoring(st, result)) return;
    // A file that changed while it was checked keeps no result.
    struct stat after {};
    if (::stat(path.c_str(), &after) != 0 || !sameFile(st, after)) return;
    Pending p{path, st, std::nullopt, result.size};
    if (result.errors) p.problems = encodeProblems(*result.errors);
    std::lock_guard lock(mutex_);
    if (failed_) return;
    pendingBytes_ += path.size() + (p.problems ? p.problems->size() : 0) + sizeof p;
    pending_.push_back(std::move(p));
    if (pending_.size() >= kBatchFiles || pendingBytes_ >= kBatchBytes ||
        std::chrono::steady_clock::now() - lastFlush_ >= kBatchAge)
        flushLocked();
}

void ResultStore::flush() {
    std::lock_guard lock(mutex_);
    flushLocked();
}

void ResultStore::flushLocked() {
    lastFlush_ = std::chrono::steady_clock::now();
    if (!db_ || failed_ || pending_.empty()) return;
    // IMMEDIATE takes the write lock at once, so two writers queue on the
    // busy timeout instead of one of them failing half-way.
    if (!exec(db_, "BEGIN IMMEDIATE")) {
        giveUp(sqlite3_errmsg(db_));
        return;
    }
    const int64_t now = nowNanoseconds();
    int rc = SQLITE_DONE;
    for (const auto& p : pending_) {
        sqlite3_stmt* s = insert_;
        sqlite3_bind_blob(s, 1, p.path.data(), int(p.path.size()), SQLITE_STATIC);
        sqlite3_bind_int64(s, 2, int64_t(p.st.st_dev));
        sqlite3_bind_int64(s, 3, int64_t(p.st.st_ino));
        sqlite3_bind_int64(s, 4, int64_t(p.st.st_size));
        sqlite3_bind_int64(s, 5, nanoseconds(p.st.st_mtim));
        sqlite3_bind_int64(s, 6, nanoseconds(p.st.st_ctim));
        sqlite3_bind_int64(s, 7, int64_t(fingerprintHash_));
        sqlite3_bind_int64(s, 8, now);
        sqlite3_bind_int64(s, 9, int64_t(p.size));
        if (p.problems)
            sqlite3_bind_blob64(s, 10, p.problems->data(), p.problems->size(), SQLITE_STATIC);
        else
            sqlite3_bind_null(s, 10);
        rc = sqlite3_step(s);
        sqlite3_reset(s);
        sqlite3_clear_bindings(s);
        if (rc != SQLITE_DONE) break;
    }
    if (rc != SQLITE_DONE || !exec(db_, "COMMIT")) {
        const std::string reason = rc != SQLITE_DONE ? sqlite3_errstr(rc) : sqlite3_errmsg(db_);
        exec(db_, "ROLLBACK");
        giveUp(reason);
        return;
    }
    counts_.stored += pending_.size();
    pending_.clear();
    pendingBytes_ = 0;
}

}  // namespace sondrel
