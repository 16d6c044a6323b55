#include "cli/ManPage.h"

#include <fmt/format.h>

#include "cli/OptionDocs.h"
#include "codes/ProblemCodes.h"
#include "core/BuildInfo.h"
#include "core/FormatTable.h"

namespace sondrel::cli {

namespace {

std::string header(const char* name, const char* summary) {
    std::string upper = name;
    for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
    return fmt::format(".TH {} 1 \"\" \"{} {}\" \"User Commands\"\n.SH NAME\n{} \\- {}\n", upper, roff(name),
                       build::kVersion, roff(name, true), summary);
}

// "-j, --jobs N" in bold names and italic value.
std::string optionLabel(const DocOption& option) {
    std::string out;
    auto add = [&](const std::string& dashes, const std::string& name) {
        if (!out.empty()) out += ", ";
        out += "\\fB" + roff(dashes + name, true) + "\\fR";
    };
    for (const auto& name : option.shortNames) add("-", name);
    for (const auto& name : option.longNames) add("--", name);
    if (option.takesValue) out += " \\fI" + roff(option.valueName, true) + "\\fR";
    return out;
}

std::string synopsis(const CLI::App& app, const std::vector<DocOption>& options) {
    std::string out = ".SH SYNOPSIS\n.B sondrel\n";
    for (const auto& option : options) {
        if (option.longNames.empty() || option.longNames.front() == "help" ||
            option.longNames.front() == "version")
            continue;
        out += "[\\fB" + roff("--" + option.longNames.front(), true) + "\\fR";
        if (option.takesValue) out += " \\fI" + roff(option.valueName, true) + "\\fR";
        out += option.repeatable ? "]...\n" : "]\n";
    }
    const std::string positional = positionalName(app);
    if (!positional.empty()) out += "\\fI" + roff(positional) + "\\fR...\n";
    return out;
}

std::string optionSections(const std::vector<DocOption>& options) {
    std::vector<std::string> groups;
    for (const auto& option : options)
        if (std::find(groups.begin(), groups.end(), option.group) == groups.end())
            groups.push_back(option.group);
    std::string out = ".SH OPTIONS\n";
    for (const auto& group : groups) {
        if (groups.size() > 1) out += ".SS " + roff(group) + "\n";
        for (const auto& option : options) {
            if (option.group != group) continue;
            out += ".TP\n" + optionLabel(option) + "\n" + roff(option.description);
            // Values the value name does not already spell out.
            if (!option.choices.empty() && option.valueName.find('|') == std::string::npos) {
                std::string values;
                for (const auto& choice : option.choices)
                    values += (values.empty() ? "" : ", ") + ("\\fB" + roff(choice, true) + "\\fR");
                const bool stop = option.description.empty() || option.description.back() == '.';
                out += std::string(stop ? " " : ". ") + "One of " + values + ".";
            }
            out += "\n";
        }
    }
    return out;
}

std::string extensions() {
    std::string out = ".PP\nAudio files are recognised by their extension (in any case):\n.RS\n";
    for (const auto& entry : formatTable()) {
        std::string list;
        for (const char* ext : entry.extensions) list += (list.empty() ? "" : " ") + roff(ext, true);
        out += ".TP 16\n" + roff(entry.name) + "\n" + list + "\n";
    }
    return out + ".RE\n";
}

std::string codeTable() {
    std::string out =
        ".SH PROBLEM CODES\n"
        "Every problem has a stable code and a severity: \\fBdamage\\fR (the file or its container is "
        "broken), \\fBerror\\fR (metadata that breaks its format's rules), \\fBwarning\\fR (legal but "
        "questionable) or \\fBnote\\fR (information asked for). A filter names codes exactly, by family "
        "(\\fBid3\\fR) or with a trailing \\fB*\\fR. \\fBsondrel \\-\\-explain\\fR \\fICODE\\fR tells "
        "how to fix one.\n";
    for (const auto& row : codes::problemCodes())
        out += fmt::format(".TP\n\\fB{}\\fR ({})\n{}\n", roff(row.code, true),
                           codes::severityName(row.severity), roff(row.meaning));
    return out;
}

}  // namespace

std::string roff(const std::string& text, bool literal) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-' && literal)
            out += "\\-";
        else if (c == '\n')
            out += "\n.br\n";
        else
            out += c;
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out.insert(0, "\\&");
    return out;
}

std::string manPage(const CLI::App& app) {
    const auto options = documentedOptions(app);
    std::string out = header("sondrel", "check audio files for structural damage and metadata problems");
    out += synopsis(app, options);
    out += ".SH DESCRIPTION\n" + roff(app.get_description()) +
           "\n.PP\n"
           "Each \\fIPATH\\fR is a folder or an audio file. A folder is walked deeply; hidden items, "
           "applications and packages are skipped, and a file is kept when its extension names an audio "
           "format. Every other path is named on standard error with the reason. The program never "
           "modifies an audio file.\n";
    out += extensions();
    out += optionSections(options);
    out +=
        ".SH EXIT STATUS\n"
        ".TP\n.B 0\nThe scan finished and logged no problem (after the filters).\n"
        ".TP\n.B 1\nIt logged problems.\n"
        ".TP\n.B 2\nIt could not start (nothing to check, a bad option, a refused, uncreatable or "
        "unwritable log), a log write failed, or an input could not be read; this takes precedence "
        "over 1.\n"
        ".TP\n.B 130\nCancelled (SIGINT or SIGTERM): the files being analysed are finished and logged.\n"
        ".TP\n.B 141\nThe log's reader went away (a closed pipe).\n";
    out +=
        ".SH FILES\n"
        ".TP\n.I $XDG_CONFIG_HOME/sondrel/settings.conf\n"
        "The stored options (default folder \\fI~/.config/sondrel\\fR), read at start and shared with "
        "\\fBsondrel\\-gui\\fR(1); \\fB\\-\\-option\\fR overrides a key for one run without storing it.\n"
        ".TP\n.I the log\n"
        "Written anew by every run. A log path with an audio file's extension, one of the files being "
        "checked, or an existing file that does not begin with this program's first log line is "
        "refused.\n"
        ".TP\n.I the audio files\n"
        "Read only, front to back.\n";
    out += codeTable();
    out += ".SH SEE ALSO\n\\fBsondrel\\-gui\\fR(1)\n";
    return out;
}

std::string guiManPage() {
    return header("sondrel-gui", "desktop program that checks audio files") +
           ".SH SYNOPSIS\n.B sondrel\\-gui\n"
           "[\\fB\\-\\-log\\fR \\fIFILE\\fR] [\\fB\\-\\-start\\fR] [\\fB\\-\\-grab\\-main\\fR \\fIPNG\\fR] "
           "[\\fB\\-\\-grab\\-log\\fR \\fIPNG\\fR] [\\fIPATH\\fR...]\n"
           ".SH DESCRIPTION\n"
           "The desktop program of \\fBsondrel\\fR(1): drop folders and audio files on its target, press "
           "Start, and read the log in its viewer. Folders and audio files given on the command line "
           "count as a drop on the target. Its options are edited in Options... and shared with the "
           "command line.\n"
           ".SH OPTIONS\n"
           ".TP\n\\fB\\-\\-log\\fR \\fIFILE\\fR\nUse \\fIFILE\\fR as the log file, as if chosen with "
           "Choose.\n"
           ".TP\n\\fB\\-\\-start\\fR\nPress Start; when the scan ends, open the log viewer.\n"
           ".TP\n\\fB\\-\\-grab\\-main\\fR \\fIPNG\\fR\nSave a picture of the main window, then quit.\n"
           ".TP\n\\fB\\-\\-grab\\-log\\fR \\fIPNG\\fR\nSave a picture of the log viewer, then quit.\n"
           ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR, \\fB\\-v\\fR, \\fB\\-\\-version\\fR\nAs usual.\n"
           ".PP\nAny of \\fB\\-\\-log\\fR, \\fB\\-\\-start\\fR and the grab options also skips the first-use "
           "note; with \\fBxvfb\\-run \\-a\\fR they run without a display.\n"
           ".SH FILES\n.TP\n.I $XDG_CONFIG_HOME/sondrel/settings.conf\n"
           "The stored options (default folder \\fI~/.config/sondrel\\fR), shared with \\fBsondrel\\fR(1).\n"
           ".TP\n.I /usr/share/sondrel/help\nThe help pages opened from the Help menu.\n"
           ".SH SEE ALSO\n\\fBsondrel\\fR(1)\n";
}

}  // namespace sondrel::cli
