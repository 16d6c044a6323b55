#pragma once
// Results remembered from earlier scans. A front end may hand the scan an
// implementation (the command line keeps one in a database); the core only
// asks it before checking a file and tells it what the check found. Both calls
// come from worker threads at once, so an implementation must be thread-safe.
// A cache that fails answers nothing and stores nothing: the scan never waits
// on it for correctness, only for speed.
#include <sys/stat.h>

#include <optional>
#include <string>

#include "core/FileResult.h"

namespace sondrel {

class ResultCache {
  public:
    virtual ~ResultCache() = default;
    // The stored result of the file at `path`, when it was stored for exactly
    // this file (`st`, taken just before) and is still valid. The returned
    // result's modDate is left for the caller to fill in.
    virtual std::optional<FileResult> lookup(const std::string& path, const struct stat& st) = 0;
    // The result of a check of `path`, whose status before the check was `st`.
    // The cache decides whether it is worth keeping.
    virtual void store(const std::string& path, const struct stat& st, const FileResult& result) = 0;
};

}  // namespace sondrel
