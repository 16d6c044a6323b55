#pragma once
// Every option of the command line, defined in one place: the help text, the
// manual page and the shell completions are all made by walking the CLI::App
// this builds, so each option carries a description, a value name and a group.
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace sondrel {

struct CliOptions {
    // Input
    std::vector<std::string> paths;
    std::string filesFrom;  // a file of paths, or "-" for standard input
    bool nullSeparated = false;
    // Output
    std::string logPath;  // empty: standard output
    bool force = false;
    std::string format = "text";
    std::string color = "auto";
    bool quiet = false;
    // What is reported
    std::vector<std::string> options;  // KEY=VALUE
    bool allFiles = false, privacy = false, dups = false, suppressTime = false, id3v1 = false;
    bool mulAtoms = false, mulData = false;
    std::string verifyTier, minSeverity, selectCodes, ignoreCodes;
    // Running
    unsigned jobs = 1;
    bool cache = false, noCache = false;
    std::string cacheFile;
    std::string shard;
    int recheckDays = -1;
    // Problem codes
    std::string explainCode;
    bool listCodes = false;
};

// Adds every option to `app` (with the help's description and footer).
// `settingsFile` is where stored options live, for the help text.
void defineOptions(CLI::App& app, CliOptions& o, const std::string& settingsFile);

}  // namespace sondrel
