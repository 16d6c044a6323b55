#pragma once
// Where the log may go. A scan replaces its log file, so before opening it the
// path is checked against what it would destroy: the program promises never
// to modify an audio file.
//   1. A name with an audio file's extension (or a symbolic link that leads
//      to one) is never a log.
//   2. A file selected for this scan is never a log (compared by device and
//      inode where both exist, by full path otherwise).
//   3. An existing, non-empty regular file whose first line is not this
//      program's first line (of its text log or of its JSON Lines) is
//      someone else's file; only an explicit override replaces it.
#include <optional>
#include <string>

#include "core/WorkThread.h"

namespace sondrel {

struct LogTargetRefusal {
    enum class Rule { AudioExtension, SelectedFile, NotALog };
    Rule rule;
    std::string text;
};

// `logPath` is a full path. `replaceForeign` lifts rule 3 only.
std::optional<LogTargetRefusal> refuseLogTarget(const std::string& logPath, const Selection& selection,
                                                bool replaceForeign);

}  // namespace sondrel
