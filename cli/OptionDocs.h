#pragma once
// The command line's options as the documentation sees them: the man pages
// and the shell completions are generated from the parser itself (walked
// after every option has been added), so a new option appears in all of them
// without being listed twice.
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace sondrel::cli {

struct DocOption {
    std::vector<std::string> shortNames;  // without the dash: "j"
    std::vector<std::string> longNames;   // without the dashes: "jobs"
    std::string valueName;                // "FILE", "N", "off|quick|full"; empty for a flag
    std::vector<std::string> choices;     // the values it accepts, when they are a fixed set
    std::string description;
    std::string group;
    bool takesValue = false;
    bool repeatable = false;

    // What a shell should offer for the value.
    enum class Value { None, Path, Choice, Code, Other };
    Value valueKind() const;
};

// The visible options (not the hidden ones, not the positional arguments), in
// the order they were added, option groups included.
std::vector<DocOption> documentedOptions(const CLI::App& app);

// The name of the positional argument ("PATH"), or empty.
std::string positionalName(const CLI::App& app);

// Adds the hidden "--generate WHAT" option (WHAT: man, man-gui, bash, zsh,
// fish); it does not show in --help.
void addGenerateOption(CLI::App& app, std::string& what);

// Writes the document named by `what` to standard output; returns the exit
// status.
int generate(const CLI::App& app, const std::string& what);

}  // namespace sondrel::cli
