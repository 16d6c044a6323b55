// sondrel: checks audio files for structural damage and metadata problems and
// writes every problem to a log file.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cli/CliStatus.h"
#include "cli/OptionDocs.h"
#include "codes/ProblemCodes.h"
#include "core/BuildInfo.h"
#include "core/FormatTable.h"
#include "core/LogTarget.h"
#include "core/LogWriter.h"
#include "core/PathPredicates.h"
#include "core/Settings.h"
#include "core/Text.h"
#include "core/WorkThread.h"
#include "formats/Checkers.h"
#include "verify/Verify.h"

using namespace sondrel;

namespace {

// A reader that goes away (`sondrel --log - DIR | head`) ends the run quietly
// with the status a process killed by SIGPIPE has, so that pipelines see the
// usual value.
enum Exit { kClean = 0, kProblems = 1, kCannotRun = 2, kCancelled = 130, kReaderGone = 141 };

std::atomic<bool> gEarlyCancel{false};

void onSignal(int) {
    gEarlyCancel.store(true);
}

void installSignalHandlers() {
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    // A write past a file-size limit or into a closed pipe must fail as a
    // write error, not end the program.
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
}

const char* kBooleanKeys[] = {"LogAllFiles",        "LogPriv",        "LogDups",
                              "SuppressTimeErrors", "MPEG4_MulAtoms", "MPEG4_MulData",
                              "LogID3v1",           "LogPrompt",      "FirstTimeUsage"};

bool isBooleanKey(const std::string& k) {
    for (const char* b : kBooleanKeys)
        if (k == b) return true;
    return false;
}

std::string extensionList() {
    std::string out;
    for (const auto& e : formatTable()) {
        out += fmt::format("  {:<22}", e.name);
        for (const char* ext : e.extensions) out += std::string(" ") + ext;
        out += "\n";
    }
    return out;
}

std::string plural(uint64_t n) {
    return n == 1 ? "" : "s";
}

// The code table: code, severity and message, one line per message, in
// aligned columns.
void listCodes() {
    size_t width = 0;
    for (const auto& row : codes::problemCodes()) width = std::max(width, std::string_view(row.code).size());
    for (const auto& row : codes::problemCodes()) {
        auto patterns = codes::patternsOf(row);
        if (patterns.empty()) patterns.push_back("(any message without a code)");
        for (auto pattern : patterns)
            std::printf("%-*s  %-7s  %.*s\n", int(width), row.code, codes::severityName(row.severity),
                        int(pattern.size()), pattern.data());
    }
}

int explain(const std::string& code) {
    auto row = codes::findCode(code);
    if (!row) {
        std::fprintf(stderr, "sondrel: unknown problem code '%s' (see --list-codes)\n", code.c_str());
        return kCannotRun;
    }
    const auto& r = codes::codeAt(*row);
    std::printf("%s (%s)\n\n%s\n\nFix: %s\n\nMessages:\n", r.code, codes::severityName(r.severity), r.meaning,
                r.fix);
    for (auto pattern : codes::patternsOf(r)) std::printf("  %.*s\n", int(pattern.size()), pattern.data());
    return kClean;
}

// "400 files scanned: 12 with problems (3 damaged, 4 with errors, 5 with
// warnings). 61 problems logged." Each file counts once, under the worst
// severity among its logged problems.
std::string finalStatus(uint64_t scanned, const LogTally& t, uint64_t problems) {
    std::string out = fmt::format("{} file{} scanned: ", scanned, plural(scanned));
    if (t.files == 0) {
        out += "none with problems.";
    } else {
        out += fmt::format("{} with problems (", t.files);
        static constexpr const char* kWords[] = {"with notes", "with warnings", "with errors", "damaged"};
        bool first = true;
        for (int s = 3; s >= 0; --s) {
            const uint64_t n = t.byWorst[size_t(s)];
            if (n == 0) continue;
            out += fmt::format("{}{} {}", first ? "" : ", ", n, kWords[s]);
            first = false;
        }
        out += ").";
    }
    out += fmt::format(" {} problem{} logged.", problems, plural(problems));
    return out;
}

// "sondrel: PATH: REASON" with the path escaped like a log heading.
void complain(const std::string& path, const std::string& reason) {
    std::fprintf(stderr, "sondrel: %s: %s\n", text::escapePath(path).c_str(), reason.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Checks audio files for structural damage and metadata problems and writes every problem, "
        "with its byte offset, category and message, to a log file.",
        "sondrel"};
    app.footer("Each PATH is a folder (walked deeply) or an audio file. Audio files by extension:\n" +
               extensionList() +
               "\nExit status: 0 no problem logged, 1 problems logged, 2 could not start, a log write "
               "failed or an input could not be read, 130 cancelled, 141 the log's reader went away.");

    std::string logPath;
    std::vector<std::string> options;
    std::vector<std::string> paths;
    bool allFiles = false, privacy = false, dups = false, suppressTime = false, id3v1 = false;
    bool mulAtoms = false, mulData = false, quiet = false, listCodesFlag = false, force = false;
    std::string minSeverity, selectCodes, ignoreCodes, explainCode, verifyTier;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());

    app.set_version_flag("-V,--version", fmt::format("sondrel ({}) {} (Build {})", build::kName,
                                                     build::kVersion, build::kBuild));
    app.add_option("--log", logPath,
                   "Log file for this run (overrides LogPath); '-' writes to standard output")
        ->type_name("FILE");
    app.add_flag("--force", force,
                 "Replace an existing log file even when it does not look like a log of this program");
    app.add_option("--option", options, "Override an option for this run only, as KEY=VALUE")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_flag("--all-files", allFiles,
                 "Write a heading for every file, even one without problems (LogAllFiles)");
    app.add_flag("--privacy", privacy, "Report embedded owner and identification data (LogPriv)");
    app.add_flag("--dups", dups, "Report duplicated list items (LogDups)");
    app.add_flag("--suppress-time-errors", suppressTime,
                 "Do not report malformed time stamps (SuppressTimeErrors)");
    app.add_flag("--id3v1", id3v1, "Report ID3v1 and APE tags in MP3 files (LogID3v1)");
    app.add_flag("--mpeg4-multiple-atoms", mulAtoms, "Do not report repeated MPEG-4 atoms (MPEG4_MulAtoms)");
    app.add_flag("--mpeg4-multiple-data", mulData,
                 "Accept several data items in one MPEG-4 atom (MPEG4_MulData)");
    app.add_option("--verify", verifyTier,
                   "Verify the audio itself: quick (checksums and counts the formats carry) or full "
                   "(also decode every frame) (Verify)")
        ->check(CLI::IsMember({"off", "quick", "full"}).description(""))
        ->type_name("off|quick|full");
    app.add_option("--jobs,-j", jobs, "Files analysed at once (default: the number of processors)")
        ->check(CLI::Range(1u, 1024u).description(""))
        ->type_name("N");
    app.add_option("--min-severity", minSeverity,
                   "Log only problems of this severity or graver: note, warning, error, damage (MinSeverity)")
        ->type_name("LEVEL");
    app.add_option("--select", selectCodes,
                   "Log only these problem codes; a family (id3) or a trailing * names a group (SelectCodes)")
        ->type_name("CODE[,CODE...]");
    app.add_option(
           "--ignore", ignoreCodes,
           "Do not log these problem codes; a family (id3) or a trailing * names a group (IgnoreCodes)")
        ->type_name("CODE[,CODE...]");
    app.add_option("--explain", explainCode, "Explain a problem code and exit")->type_name("CODE");
    app.add_flag("--list-codes", listCodesFlag,
                 "List every problem code with its severity and messages, and exit");
    app.add_flag("--quiet,-q", quiet, "No progress and no final status on standard error");
    app.add_option("PATH", paths, "Folders and audio files to check")->type_name("");

    std::string generateWhat;
    cli::addGenerateOption(app, generateWhat);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : kCannotRun;
    }

    if (!generateWhat.empty()) return cli::generate(app, generateWhat);
    if (listCodesFlag) {
        listCodes();
        return kClean;
    }
    if (!explainCode.empty()) return explain(explainCode);

    installCheckers();
    Settings settings = Settings::load();
    settings.ensureDefaultLogPath();
    for (const auto& kv : options) {
        auto eq = kv.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "sondrel: --option needs KEY=VALUE, got '%s'\n", kv.c_str());
            return kCannotRun;
        }
        std::string key = kv.substr(0, eq), value = kv.substr(eq + 1);
        if (!settings.existsKey(key)) {
            std::fprintf(stderr, "sondrel: unknown option key '%s'\n", key.c_str());
            return kCannotRun;
        }
        bool b = false;
        if (isBooleanKey(key) && !Settings::parseBool(value, b)) {
            std::fprintf(stderr, "sondrel: option %s takes 1/0, true/false or yes/no, got '%s'\n",
                         key.c_str(), value.c_str());
            return kCannotRun;
        }
        if (key == "Verify" && !verify::parseTier(value)) {
            std::fprintf(stderr, "sondrel: option Verify takes off, quick or full, got '%s'\n",
                         value.c_str());
            return kCannotRun;
        }
        settings.overrideValue(key, isBooleanKey(key) ? (b ? "true" : "false") : value);
    }
    auto flag = [&](bool on, const char* key) {
        if (on) settings.overrideValue(key, "true");
    };
    flag(allFiles, "LogAllFiles");
    flag(privacy, "LogPriv");
    flag(dups, "LogDups");
    flag(suppressTime, "SuppressTimeErrors");
    flag(id3v1, "LogID3v1");
    flag(mulAtoms, "MPEG4_MulAtoms");
    flag(mulData, "MPEG4_MulData");
    if (!verifyTier.empty()) settings.overrideValue("Verify", verifyTier);
    if (!logPath.empty()) settings.overrideValue("LogPath", logPath);
    if (!minSeverity.empty()) settings.overrideValue("MinSeverity", minSeverity);
    if (!selectCodes.empty()) settings.overrideValue("SelectCodes", selectCodes);
    if (!ignoreCodes.empty()) settings.overrideValue("IgnoreCodes", ignoreCodes);
    std::string filterProblem;
    if (!codes::Filter::make(settings.stringFromKey("MinSeverity"), settings.stringFromKey("SelectCodes"),
                             settings.stringFromKey("IgnoreCodes"), &filterProblem)) {
        std::fprintf(stderr, "sondrel: %s\n", filterProblem.c_str());
        return kCannotRun;
    }

    // Each PATH is taken as an item dropped on the target: kept when it exists
    // and is clean; a folder is walked, a file is kept when its extension
    // names an audio format.
    Selection selection;
    uint64_t unreadable = 0;
    for (const auto& p : paths) {
        auto resolved = fullPathIfResolvable(p);
        struct stat st {};
        if (!resolved || ::stat(resolved->c_str(), &st) != 0) {
            const int err = errno;
            complain(p, resolved
                            ? std::strerror(err)
                            : std::string("the working folder cannot be found out: ") + std::strerror(err));
            ++unreadable;
            continue;
        }
        const std::string& full = *resolved;
        const char* why = nullptr;
        if (!isPathClean(full))
            why = "hidden, a package or an application";
        else if (S_ISDIR(st.st_mode))
            selection.folders.insert(full);
        else if (isAudioFile(lastComponent(full)))
            selection.files.insert(full);
        else
            why = "not an audio file by its extension";
        if (why) std::fprintf(stderr, "sondrel: skipped %s: %s\n", text::escapePath(p).c_str(), why);
    }
    if (selection.folders.empty() && selection.files.empty()) {
        std::fprintf(stderr, "sondrel: nothing to check (give folders or audio files; see --help)\n");
        return kCannotRun;
    }

    verify::install();
    installSignalHandlers();
    const bool toStdout = settings.stringFromKey("LogPath") == "-";
    std::string logFull;
    if (!toStdout) {
        std::string path = settings.expandedLogPath();
        if (path.empty()) {
            std::fprintf(stderr, "sondrel: no log file (set --log or LogPath)\n");
            return kCannotRun;
        }
        auto resolved = fullPathIfResolvable(path);
        if (!resolved) {
            const int err = errno;
            complain(path, std::string("the working folder cannot be found out: ") + std::strerror(err));
            return kCannotRun;
        }
        logFull = *resolved;
        if (auto refusal = refuseLogTarget(logFull, selection, force)) {
            using Rule = LogTargetRefusal::Rule;
            complain(logFull,
                     refusal->text + (refusal->rule == Rule::NotALog ? " (--force replaces it)" : ""));
            return kCannotRun;
        }
    }
    const bool showProgress = !quiet && ::isatty(STDERR_FILENO);
    CliStatus status(showProgress);

    LogWriter log([&](const Alert& a) {
        status.clear();
        std::fprintf(stderr, "sondrel: %s: %s\n", a.title.c_str(), a.text.c_str());
    });
    std::optional<Alert> alert;
    if (toStdout) {
        alert = log.openStream(STDOUT_FILENO);
    } else {
        alert = log.openLog(logFull);
    }
    if (log.readerGone()) return kReaderGone;
    if (alert) {
        std::fprintf(stderr, "sondrel: %s: %s\n", alert->title.c_str(), alert->text.c_str());
        return kCannotRun;
    }

    ScanCallbacks callbacks;
    callbacks.setStatus = [&](const std::string& text, bool wait) {
        status.show(text::escapePath(text), wait);
    };
    callbacks.cannotRead = [&](const std::string& path, int error) {
        status.clear();
        complain(path, std::strerror(error));
    };
    WorkThread scan(std::move(selection), settings, log, callbacks, jobs);

    // Forward a signal to the scan: it finishes the files it has begun, logs
    // them, and stops.
    std::atomic<bool> finished{false};
    std::thread watcher([&] {
        while (!finished.load()) {
            if (gEarlyCancel.load()) scan.cancel();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    bool cancelled = scan.main();
    finished = true;
    watcher.join();
    log.closeLog();
    status.clear();
    if (log.readerGone()) return kReaderGone;

    unreadable += scan.unreadable();
    if (!quiet) {
        if (cancelled)
            std::fprintf(stderr, "Cancelled\n");
        else
            std::fprintf(stderr, "%s%s\n",
                         finalStatus(scan.progress(), log.tally(), log.errorTotal()).c_str(),
                         unreadable ? fmt::format(" {} could not be read.", unreadable).c_str() : "");
    }
    if (cancelled) return kCancelled;
    if (scan.writeFailed() || unreadable > 0) return kCannotRun;
    return log.errorTotal() > 0 ? kProblems : kClean;
}
