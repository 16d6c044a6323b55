// sondrel: checks audio files for structural damage and metadata problems and
// writes every problem to a log: standard output, or the file --log names.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "cli/CliStatus.h"
#include "cli/Merge.h"
#include "cli/OptionDocs.h"
#include "cli/Options.h"
#include "codes/ProblemCodes.h"
#include "core/BuildInfo.h"
#include "core/FormatTable.h"
#include "core/LogTarget.h"
#include "core/LogWriter.h"
#include "core/PathPredicates.h"
#include "core/Settings.h"
#include "core/Shard.h"
#include "core/Text.h"
#include "core/WorkThread.h"
#include "formats/Checkers.h"
#include "printers/JsonLinesPrinter.h"
#include "printers/TextPrinter.h"
#include "store/ResultStore.h"
#include "verify/Verify.h"

using namespace sondrel;

namespace {

// A reader that goes away (`sondrel --log - DIR | head`) ends the run quietly
// with the status a process killed by SIGPIPE has, so that pipelines see the
// usual value.
enum Exit { kClean = 0, kProblems = 1, kCannotRun = 2, kCancelled = 130, kReaderGone = 141 };

// A signal cancels the scan straight from the handler: cancelling only
// stores to a lock-free atomic flag, which a handler may do. A signal that
// comes before the scan exists is kept and handed on when it starts.
std::atomic<bool> gEarlyCancel{false};
std::atomic<WorkThread*> gScan{nullptr};
static_assert(std::atomic<WorkThread*>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void onSignal(int) {
    gEarlyCancel.store(true);
    if (WorkThread* scan = gScan.load()) scan->cancel();
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
    return k == "Cache";  // the command line's own option
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

// The entries of a --files-from list: lines (a carriage return before the
// line feed is kept, as it may be part of a name) or NUL-separated names.
// Empty entries are skipped. False, with the reason in errno, when the list
// cannot be read.
bool readFileList(const std::string& source, bool nul, std::vector<std::string>& out) {
    std::string data;
    if (source == "-") {
        data.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        if (std::cin.bad()) return false;
    } else {
        std::ifstream in(source, std::ios::binary);
        if (!in) return false;
        data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (in.bad()) return false;
    }
    const char separator = nul ? '\0' : '\n';
    size_t start = 0;
    while (start < data.size()) {
        size_t end = data.find(separator, start);
        if (end == std::string::npos) end = data.size();
        if (end > start) out.push_back(data.substr(start, end - start));
        start = end + 1;
    }
    return true;
}

// True when both descriptors are the same terminal device.
bool sameTerminal(int a, int b) {
    struct stat sa {
    }, sb{};
    return ::isatty(a) && ::isatty(b) && ::fstat(a, &sa) == 0 && ::fstat(b, &sb) == 0 &&
           sa.st_rdev == sb.st_rdev;
}

// The stored options that shape the log, as the begin record shows them.
std::map<std::string, std::string> optionsInForce(const Settings& settings) {
    std::map<std::string, std::string> out;
    for (const char* key :
         {"LogAllFiles", "LogPriv", "LogDups", "SuppressTimeErrors", "MPEG4_MulAtoms", "MPEG4_MulData",
          "LogID3v1", "Verify", "MinSeverity", "SelectCodes", "IgnoreCodes"})
        out[key] = settings.stringFromKey(key);
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    // "sondrel merge SHARD.jsonl..." joins shard outputs (cli/Merge.cpp).
    if (argc > 1 && std::string_view(argv[1]) == "merge") return runMerge(argc - 1, argv + 1);
    CLI::App app{"", "sondrel"};
    CliOptions o;
    defineOptions(app, o, Settings::defaultConfigFolder() + "/settings.conf");

    std::string generateWhat;
    cli::addGenerateOption(app, generateWhat);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : kCannotRun;
    }
    auto& paths = o.paths;
    auto& options = o.options;
    const bool listCodesFlag = o.listCodes, quiet = o.quiet, force = o.force;
    const std::string& explainCode = o.explainCode;
    const unsigned jobs = o.jobs;

    if (!generateWhat.empty()) return cli::generate(app, generateWhat);
    if (listCodesFlag) {
        listCodes();
        return kClean;
    }
    if (!explainCode.empty()) return explain(explainCode);

    installCheckers();
    Settings settings = Settings::load();
    // The result cache is the command line's own option: off unless stored or asked for.
    if (!settings.existsKey("Cache")) settings.overrideValue("Cache", "false");
    for (const auto& kv : options) {
        auto eq = kv.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "sondrel: --option needs KEY=VALUE, got '%s'\n", kv.c_str());
            return kCannotRun;
        }
        std::string key = kv.substr(0, eq), value = kv.substr(eq + 1);
        if (key == "LogPath") {
            std::fprintf(stderr, "sondrel: LogPath is the desktop program's log file; use --log FILE\n");
            return kCannotRun;
        }
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
    flag(o.allFiles, "LogAllFiles");
    flag(o.privacy, "LogPriv");
    flag(o.dups, "LogDups");
    flag(o.suppressTime, "SuppressTimeErrors");
    flag(o.id3v1, "LogID3v1");
    flag(o.mulAtoms, "MPEG4_MulAtoms");
    flag(o.mulData, "MPEG4_MulData");
    if (!o.verifyTier.empty()) settings.overrideValue("Verify", o.verifyTier);
    if (!o.minSeverity.empty()) settings.overrideValue("MinSeverity", o.minSeverity);
    if (!o.selectCodes.empty()) settings.overrideValue("SelectCodes", o.selectCodes);
    if (!o.ignoreCodes.empty()) settings.overrideValue("IgnoreCodes", o.ignoreCodes);
    if (o.cache || !o.cacheFile.empty()) settings.overrideValue("Cache", "true");
    if (o.noCache) settings.overrideValue("Cache", "false");
    std::string filterProblem;
    if (!codes::Filter::make(settings.stringFromKey("MinSeverity"), settings.stringFromKey("SelectCodes"),
                             settings.stringFromKey("IgnoreCodes"), &filterProblem)) {
        std::fprintf(stderr, "sondrel: %s\n", filterProblem.c_str());
        return kCannotRun;
    }

    std::optional<ShardPart> shard;
    if (!o.shard.empty() && !(shard = parseShard(o.shard))) {
        std::fprintf(stderr, "sondrel: --shard takes K/N with 0 <= K < N <= %u, got '%s'\n", kMaxShards,
                     o.shard.c_str());
        return kCannotRun;
    }

    if (!o.filesFrom.empty() && !readFileList(o.filesFrom, o.nullSeparated, paths)) {
        const int err = errno;
        complain(o.filesFrom == "-" ? "(standard input)" : o.filesFrom,
                 err ? std::strerror(err) : "the list cannot be read");
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
    // Without --log the log goes to standard output; the stored LogPath is
    // the desktop program's.
    const bool toStdout = o.logPath.empty() || o.logPath == "-";
    std::string logFull;
    if (!toStdout) {
        auto resolved = fullPathIfResolvable(o.logPath);
        if (!resolved) {
            const int err = errno;
            complain(o.logPath, std::string("the working folder cannot be found out: ") + std::strerror(err));
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
    // The progress line needs a terminal of its own: on the terminal the log
    // is shown on, it would land inside the log.
    const bool showProgress =
        !quiet && ::isatty(STDERR_FILENO) && !(toStdout && sameTerminal(STDOUT_FILENO, STDERR_FILENO));
    CliStatus status(showProgress);

    // Colour only tints a text log shown on standard output: "auto" when it
    // is a terminal and NO_COLOR is unset or empty; a log file never.
    const char* noColor = std::getenv("NO_COLOR");
    const bool colour =
        o.format == "text" && toStdout &&
        (o.color == "always" || (o.color == "auto" && ::isatty(STDOUT_FILENO) && !(noColor && *noColor)));
    std::unique_ptr<Printer> printer;
    if (o.format == "jsonl") {
        auto jsonl = std::make_unique<JsonLinesPrinter>(optionsInForce(settings));
        if (shard) jsonl->setShard(shard->index, shard->count);
        printer = std::move(jsonl);
    } else
        printer = std::make_unique<TextPrinter>(colour);

    LogWriter log(std::move(printer), [&](const Alert& a) {
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
    callbacks.setStatus = [&](const std::string& text, bool) {
        static constexpr std::string_view kExamining = "Examining folder ";
        uint64_t done = 0, total = 0;
        if (text.compare(0, kExamining.size(), kExamining) == 0)
            status.showPath("Examining folder",
                            text::escapePath(std::string_view(text).substr(kExamining.size())));
        else if (std::sscanf(text.c_str(), "Analyzing file %" SCNu64 " of %" SCNu64, &done, &total) == 2)
            status.showProgress(done, total);
    };
    callbacks.cannotRead = [&](const std::string& path, int error) {
        status.clear();
        complain(path, std::strerror(error));
    };
    WorkThread scan(std::move(selection), settings, log, callbacks, jobs);
    // A result cache that cannot be used is named once; the scan goes on without it.
    // The decoders' versions shape only verified results; asking for them
    // loads the decoders, so a run that verifies nothing does not ask.
    const bool verifies = settings.stringFromKey("Verify") != "off" && settings.boolFromKey("Cache");
    auto store = ResultStore::forScan(
        settings,
        o.cacheFile.empty() ? std::string() : fullPathIfResolvable(o.cacheFile).value_or(o.cacheFile),
        o.recheckDays, ResultStore::thisProgram(), verifies ? verify::libraryVersions() : std::string(),
        [&](const std::string& path, const std::string& reason) {
            status.clear();
            complain(path, reason);
        });
    scan.setResultCache(store.get());
    if (shard) scan.setShard(*shard);

    // A signal cancels the scan: it finishes the files it has begun, logs
    // them, and stops.
    gScan.store(&scan);
    if (gEarlyCancel.load()) scan.cancel();
    bool cancelled = scan.main();
    gScan.store(nullptr);
    store.reset();
    unreadable += scan.unreadable();
    int rc = kClean;
    if (cancelled)
        rc = kCancelled;
    else if (scan.writeFailed() || unreadable > 0)
        rc = kCannotRun;
    else if (log.errorTotal() > 0)
        rc = kProblems;
    const LogTally tally = log.tally();
    if (!scan.writeFailed() && !log.readerGone()) {
        RunSummary summary;
        summary.scanned = scan.progress();
        summary.withProblems = tally.files;
        summary.unreadable = unreadable;
        summary.problems = log.errorTotal();
        summary.problemsBySeverity = tally.problems;
        summary.filesByWorst = tally.byWorst;
        summary.cancelled = cancelled;
        summary.exitStatus = rc;
        if (!log.finish(summary) && !cancelled) rc = kCannotRun;
    }
    log.closeLog();
    status.clear();
    if (log.readerGone()) return kReaderGone;

    if (!quiet) {
        if (cancelled)
            std::fprintf(stderr, "Cancelled\n");
        else
            std::fprintf(stderr, "%s%s\n", finalStatus(scan.progress(), tally, log.errorTotal()).c_str(),
                         unreadable ? fmt::format(" {} could not be read.", unreadable).c_str() : "");
    }
    return rc;
}
