#include "cli/Options.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>

#include "core/BuildInfo.h"
#include "core/FormatTable.h"

namespace sondrel {

namespace {

constexpr const char* kInput = "Input";
constexpr const char* kOutput = "Output";
constexpr const char* kReport = "What is reported";
constexpr const char* kRunning = "Running";
constexpr const char* kCodes = "Problem codes";
constexpr const char* kInfo = "Information";

std::string extensionList() {
    std::string out;
    for (const auto& e : formatTable()) {
        out += fmt::format("  {:<22}", e.name);
        for (const char* ext : e.extensions) out += std::string(" ") + ext;
        out += "\n";
    }
    return out;
}

}  // namespace

void defineOptions(CLI::App& app, CliOptions& o, const std::string& settingsFile) {
    app.get_formatter()->column_width(34);
    app.description(
        "Checks audio files for structural damage and metadata problems and writes every problem, with "
        "its byte offset, category and message, to a log: standard output unless --log names a file.");
    app.footer(fmt::format(
        "Each PATH (or entry of --files-from) is a folder, walked deeply, or an audio file. Audio files "
        "by extension:\n{}\n"
        "Options marked (KEY) override the stored option KEY for this run only. Stored options live in\n"
        "  {}\n"
        "shared with the desktop program (whose log file is LogPath).\n\n"
        "Exit status:\n"
        "  0    no problem logged\n"
        "  1    problems logged\n"
        "  2    could not start, a log write failed, or an input could not be read\n"
        "  130  cancelled (interrupt or terminate signal)\n"
        "  141  the log's reader went away (a closed pipe)\n\n"
        "Examples:\n"
        "  sondrel ~/Music                          check a library, log to standard output\n"
        "  sondrel --log music.log ~/Music          write the log to a file\n"
        "  sondrel --format jsonl ~/Music > out.jsonl   JSON Lines for scripts\n"
        "  find ~/Music -newer stamp -print0 | sondrel --files-from - -0   check a list of files\n"
        "  sondrel --min-severity error ~/Music     only errors and damage\n"
        "  sondrel --verify quick --cache ~/Music   check the audio too; next time only what changed\n"
        "  sondrel --shard 0/4 --format jsonl ~/Music > part0.jsonl   one part of four (0 to 3)\n"
        "  sondrel merge part*.jsonl > music.log    join the parts into the one log\n"
        "  sondrel --explain id3.trailing-nil       what a problem code means",
        extensionList(), settingsFile));

    app.set_version_flag(
           "-V,--version",
           fmt::format("sondrel ({}) {} (Build {})", build::kName, build::kVersion, build::kBuild),
           "Print the version and exit")
        ->group(kInfo);
    app.set_help_flag("-h,--help", "Print this help and exit")->group(kInfo);

    app.add_option("PATH", o.paths, "Folders and audio files to check")->type_name("")->group(kInput);

    app.add_option("--files-from", o.filesFrom,
                   "Also check the paths listed in FILE ('-' for standard input), one per line")
        ->type_name("FILE")
        ->group(kInput);
    app.add_flag("-0,--null", o.nullSeparated, "The --files-from list is separated by NUL bytes, not lines")
        ->group(kInput);

    app.add_option("--log", o.logPath,
                   "Write the log to FILE instead of standard output ('-' is standard output); an "
                   "existing file is replaced only when it is a log of this program")
        ->type_name("FILE")
        ->group(kOutput);
    app.add_flag("--force", o.force,
                 "Replace an existing --log file even when it does not look like a log of this program")
        ->group(kOutput);
    app.add_option("--format", o.format,
                   "Log layout: text (the plain log) or jsonl (JSON Lines); default text")
        ->check(CLI::IsMember({"text", "jsonl"}).description(""))
        ->type_name("text|jsonl")
        ->group(kOutput);
    app.add_option("--color,--colour", o.color,
                   "Tint problem lines by severity in a text log on a terminal; default auto (a "
                   "terminal, and NO_COLOR unset)")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("auto|always|never")
        ->group(kOutput);
    app.add_flag("-q,--quiet", o.quiet, "No progress line and no final status on standard error")
        ->group(kOutput);

    app.add_option("--option", o.options, "Override a stored option for this run only")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->group(kReport);
    app.add_flag("--all-files", o.allFiles,
                 "Write a heading for every file, even one without problems (LogAllFiles)")
        ->group(kReport);
    app.add_flag("--privacy", o.privacy, "Report embedded owner and identification data (LogPriv)")
        ->group(kReport);
    app.add_flag("--dups", o.dups, "Report duplicated list items (LogDups)")->group(kReport);
    app.add_flag("--suppress-time-errors", o.suppressTime,
                 "Do not report malformed time stamps (SuppressTimeErrors)")
        ->group(kReport);
    app.add_flag("--id3v1", o.id3v1, "Report ID3v1 and APE tags in MP3 files (LogID3v1)")->group(kReport);
    app.add_flag("--mpeg4-multiple-atoms", o.mulAtoms, "Do not report repeated MPEG-4 atoms (MPEG4_MulAtoms)")
        ->group(kReport);
    app.add_flag("--mpeg4-multiple-data", o.mulData,
                 "Accept several data items in one MPEG-4 atom (MPEG4_MulData)")
        ->group(kReport);
    app.add_option("--verify", o.verifyTier,
                   "Verify the audio itself: quick (checksums and counts the formats carry) or full (also "
                   "decode every frame); default off (Verify)")
        ->check(CLI::IsMember({"off", "quick", "full"}).description(""))
        ->type_name("off|quick|full")
        ->group(kReport);
    app.add_option("--min-severity", o.minSeverity,
                   "Log only problems of this severity or graver: note, warning, error, damage; default "
                   "note (MinSeverity)")
        ->type_name("LEVEL")
        ->group(kReport);
    app.add_option("--select", o.selectCodes,
                   "Log only these problem codes; a family (id3) or a trailing * names a group (SelectCodes)")
        ->type_name("CODE[,CODE...]")
        ->group(kReport);
    app.add_option(
           "--ignore", o.ignoreCodes,
           "Do not log these problem codes; a family (id3) or a trailing * names a group (IgnoreCodes)")
        ->type_name("CODE[,CODE...]")
        ->group(kReport);

    o.jobs = std::max(1u, std::thread::hardware_concurrency());
    app.add_option(
           "-j,--jobs", o.jobs,
           fmt::format("Files analysed at once, 1 to 1024; default the number of processors ({})", o.jobs))
        ->check(CLI::Range(1u, 1024u).description(""))
        ->type_name("N")
        ->group(kRunning);
    app.add_flag("--cache", o.cache,
                 "Keep results and check only files changed since the last scan (Cache); see --cache-file")
        ->group(kRunning);
    app.add_flag("--no-cache", o.noCache, "Check every file and keep no results, whatever Cache says")
        ->group(kRunning);
    app.add_option("--cache-file", o.cacheFile,
                   "The results database (implies --cache; default: $XDG_CACHE_HOME/sondrel/results.sqlite)")
        ->type_name("FILE")
        ->group(kRunning);
    app.add_option("--recheck-older-than", o.recheckDays,
                   "Check a file again when its kept result is older than DAYS, even if it is unchanged")
        ->check(CLI::Range(0, 1000000).description(""))
        ->type_name("DAYS")
        ->group(kRunning);

    app.add_option("--shard", o.shard,
                   "Check only part K of N (K from 0) of the sorted work list, whole folders kept together; "
                   "join the parts' JSON Lines with 'sondrel merge'")
        ->type_name("K/N")
        ->group(kRunning);

    app.add_option("--explain", o.explainCode, "Explain a problem code and exit")
        ->type_name("CODE")
        ->group(kCodes);
    app.add_flag("--list-codes", o.listCodes,
                 "List every problem code with its severity and messages, and exit")
        ->group(kCodes);
}

}  // namespace sondrel
