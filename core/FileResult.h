#pragma once
// What the scan learns about one file and hands to the log: the analysis's
// problems (unfiltered, in the order the checkers logged them) with the
// facts every output and the result store need about the file itself.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/LogError.h"

namespace sondrel {

struct FileResult {
    std::string modDate;  // in the log's format; empty when it could not be read
    uint64_t size = 0;    // bytes, as the analysis found them
    std::optional<std::vector<LogError>> errors;
    int openError = 0;  // errno when the file could not be opened
};

}  // namespace sondrel
