#include "cli/Merge.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codes/ProblemCodes.h"
#include "core/BuildInfo.h"
#include "core/LogError.h"
#include "printers/JsonLinesPrinter.h"
#include "printers/TextPrinter.h"

namespace sondrel {

namespace {

using json = nlohmann::json;

constexpr int kClean = 0, kCannotRun = 2;

// A shard output found whole: its begin and summary records.
struct Shard {
    std::string file;
    unsigned index = 0, count = 0;
    json begin, summary;
};

// Why a shard output cannot be joined, naming the file.
struct Refusal {
    std::string file, reason;
};

std::optional<std::string> base64Decode(const std::string& in) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    if (in.size() % 4) return std::nullopt;
    std::string out;
    for (size_t i = 0; i < in.size(); i += 4) {
        uint32_t v = 0;
        int pad = 0;
        for (size_t j = 0; j < 4; ++j) {
            const char c = in[i + j];
            if (c == '=' && i + 4 == in.size() && j >= 2) {
                ++pad;
                v <<= 6;
                continue;
            }
            const int d = value(c);
            if (d < 0 || pad) return std::nullopt;
            v = v << 6 | uint32_t(d);
        }
        out += char(v >> 16);
        if (pad < 2) out += char(v >> 8 & 0xff);
        if (pad < 1) out += char(v & 0xff);
    }
    return out;
}

// The category code whose word the log prints.
uint32_t logTypeOf(const std::string& word) {
    for (uint32_t t = kFile; t <= kAudio; ++t)
        if (word == categoryWord(t)) return t;
    return kContainer;
}

std::string programOf(const json& data) {
    return fmt::format("{} Version {} (Build {})", data.value("program", "?"), data.value("version", "?"),
                       data.value("build", "?"));
}

// Reads a shard output through once: a begin record with a shard, whole
// JSON records on every line, and a summary record at the end.
std::optional<Refusal> readShard(const std::string& file, Shard& shard) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return Refusal{file, std::strerror(errno)};
    shard.file = file;
    std::string line;
    uint64_t number = 0;
    json last;
    bool endsWithLineFeed = true;
    while (std::getline(in, line)) {
        ++number;
        endsWithLineFeed = !in.eof();
        json j = json::parse(line, nullptr, false);
        if (j.is_discarded() || !j.is_object() || !j.contains("data") || !j["data"].is_object()) {
            if (!endsWithLineFeed) return Refusal{file, "truncated: its last line is cut short"};
            return Refusal{file, fmt::format("line {} is not a JSON Lines record", number)};
        }
        if (number == 1) {
            if (j.value("type", "") != "begin")
                return Refusal{file, "not sondrel JSON Lines: it does not start with a begin record"};
            const json& data = j["data"];
            if (!data.contains("shard") || !data["shard"].is_object())
                return Refusal{file,
                               "not a shard's output: its begin record has no shard (made without --shard)"};
            shard.index = data["shard"].value("index", 0u);
            shard.count = data["shard"].value("count", 0u);
            shard.begin = data;
        }
        last = std::move(j);
    }
    if (in.bad()) return Refusal{file, std::strerror(errno)};
    if (number == 0) return Refusal{file, "empty"};
    if (!endsWithLineFeed) return Refusal{file, "truncated: its last line is cut short"};
    if (last.value("type", "") != "summary")
        return Refusal{file, "truncated: no summary record at the end (the shard did not finish)"};
    shard.summary = last["data"];
    if (shard.summary.value("cancelled", false))
        return Refusal{file, "the shard was cancelled before it finished"};
    return std::nullopt;
}

// Everything the shards must agree on with this program and with each other.
std::optional<Refusal> compare(const std::vector<Shard>& shards) {
    const std::string self =
        fmt::format("{} Version {} (Build {})", build::kName, build::kVersion, build::kBuild);
    const Shard& first = shards.front();
    std::map<unsigned, const Shard*> byIndex;
    for (const Shard& s : shards) {
        if (s.begin.value("schema_version", 0) != JsonLinesPrinter::kSchemaVersion ||
            programOf(s.begin) != self)
            return Refusal{s.file, fmt::format("made by {} (schema {}), but this is {} (schema {})",
                                               programOf(s.begin), s.begin.value("schema_version", 0), self,
                                               JsonLinesPrinter::kSchemaVersion)};
        if (s.count != first.count)
            return Refusal{s.file, fmt::format("shard {} of {}, but {} is a shard of {}", s.index, s.count,
                                               first.file, first.count)};
        if (s.begin["options"] != first.begin["options"]) {
            std::string diff;
            for (const auto& [key, value] : s.begin["options"].items())
                if (!first.begin["options"].contains(key) || first.begin["options"][key] != value)
                    diff += fmt::format("{}{}={} (there {})", diff.empty() ? "" : ", ", key,
                                        value.is_string() ? value.get<std::string>() : value.dump(),
                                        first.begin["options"].value(key, "unset"));
            return Refusal{s.file, fmt::format("made with other options than {}: {}", first.file,
                                               diff.empty() ? "options missing" : diff)};
        }
        if (s.index >= s.count)
            return Refusal{s.file, fmt::format("shard {} of {} cannot exist", s.index, s.count)};
        auto [at, fresh] = byIndex.emplace(s.index, &s);
        if (!fresh)
            return Refusal{s.file,
                           fmt::format("shard {} of {} again (also {})", s.index, s.count, at->second->file)};
    }
    for (unsigned k = 0; k < first.count; ++k)
        if (!byIndex.count(k))
            return Refusal{fmt::format("shard {} of {}", k, first.count), "missing: no file given holds it"};
    return std::nullopt;
}

// The text log's lines for one file record.
void textOfFile(TextPrinter& printer, const json& data, bool logAllFiles, std::string& out) {
    std::string path = data["path"].value("text", "");
    if (data["path"].contains("bytes"))
        if (auto bytes = base64Decode(data["path"]["bytes"].get<std::string>())) path = std::move(*bytes);
    const json& problems = data["problems"];
    if (problems.empty() && !logAllFiles) return;
    const std::string modDate = data["modified"].is_string() ? data["modified"].get<std::string>() : "";
    printer.fileHeading(out, path, modDate);
    for (const auto& p : problems) {
        LogError e;
        e.logtype = logTypeOf(p.value("category", ""));
        e.offset = p.value("offset", uint64_t(0));
        e.reason = p.value("message", "");
        printer.problem(out, e);
    }
    if (data.value("truncated", false)) out += printer.outOfMemoryTail();
}

}  // namespace

int runMerge(int argc, char** argv) {
    CLI::App app{
        "Joins the JSON Lines of all shards of a run (sondrel --shard K/N --format jsonl) into the log "
        "one run over everything writes: one first line, the files in the single run's order, the "
        "summary added up. The exit status is that of the joined run.",
        "sondrel merge"};
    std::string format = "text", logPath;
    std::vector<std::string> files;
    app.add_option("--format", format, "Write the text log or JSON Lines; default text")
        ->check(CLI::IsMember({"text", "jsonl"}).description(""))
        ->type_name("text|jsonl");
    app.add_option("--log", logPath, "Write to FILE instead of standard output")->type_name("FILE");
    app.add_option("SHARD", files, "The shards' JSON Lines, all N of them, in any order")
        ->required()
        ->type_name("SHARD.jsonl");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? kClean : kCannotRun;
    }
    auto refuse = [](const Refusal& r) {
        std::fprintf(stderr, "sondrel merge: %s: %s\n", r.file.c_str(), r.reason.c_str());
        return kCannotRun;
    };

    std::vector<Shard> shards(files.size());
    for (size_t i = 0; i < files.size(); ++i)
        if (auto r = readShard(files[i], shards[i])) return refuse(*r);
    if (auto r = compare(shards)) return refuse(*r);
    std::sort(shards.begin(), shards.end(), [](const Shard& a, const Shard& b) { return a.index < b.index; });

    // The joined run began when the first of its parts did: every file was
    // checked after that moment, and no earlier start is known.
    std::string start = shards.front().begin.value("start", "");
    for (const Shard& s : shards) start = std::min(start, s.begin.value("start", std::string()));
    std::map<std::string, std::string> options;
    for (const auto& [key, value] : shards.front().begin["options"].items())
        if (value.is_string()) options[key] = value.get<std::string>();
    const bool logAllFiles = options["LogAllFiles"] == "true";

    RunSummary sum;
    int status = kClean;
    for (const Shard& s : shards) {
        const json& d = s.summary;
        sum.scanned += d.value("files_scanned", uint64_t(0));
        sum.withProblems += d.value("files_with_problems", uint64_t(0));
        sum.unreadable += d.value("files_unreadable", uint64_t(0));
        sum.problems += d.value("problems", uint64_t(0));
        for (int v = 0; v < 4; ++v) {
            const char* name = codes::severityName(static_cast<codes::Severity>(v));
            sum.problemsBySeverity[size_t(v)] += d["problems_by_severity"].value(name, uint64_t(0));
            sum.filesByWorst[size_t(v)] += d["files_by_worst_severity"].value(name, uint64_t(0));
        }
        // A failure anywhere outweighs problems, and problems outweigh a clean part.
        const int rc = d.value("exit_status", 0);
        if (rc == kCannotRun || (rc == 1 && status == kClean)) status = rc;
    }
    sum.exitStatus = status;

    std::FILE* out = stdout;
    if (!logPath.empty() && logPath != "-") {
        // Writing over a shard would destroy it before it is read again.
        struct stat target {};
        if (::stat(logPath.c_str(), &target) == 0)
            for (const Shard& s : shards) {
                struct stat input {};
                if (::stat(s.file.c_str(), &input) == 0 && input.st_dev == target.st_dev &&
                    input.st_ino == target.st_ino)
                    return refuse({logPath, "is one of the shard outputs; name a new file for the log"});
            }
        out = std::fopen(logPath.c_str(), "wb");
        if (!out) return refuse({logPath, std::strerror(errno)});
    }
    bool ok = true;
    auto put = [&](const std::string& bytes) {
        if (ok && !bytes.empty()) ok = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
    };
    std::unique_ptr<Printer> printer;
    if (format == "jsonl")
        printer = std::make_unique<JsonLinesPrinter>(options);
    else
        printer = std::make_unique<TextPrinter>();
    std::string buffer;
    printer->begin(buffer, start);
    put(buffer);
    for (const Shard& s : shards) {
        std::ifstream in(s.file, std::ios::binary);
        std::string line;
        bool first = true;
        while (ok && std::getline(in, line)) {
            if (first) {
                first = false;
                continue;
            }
            // The shard has not changed since it was read through: the summary is the last line.
            if (in.peek() == std::char_traits<char>::eof()) break;
            if (format == "jsonl") {
                line += '\n';
                put(line);
                continue;
            }
            buffer.clear();
            const json j = json::parse(line, nullptr, false);
            if (!j.is_discarded() && j.value("type", "") == "file")
                textOfFile(static_cast<TextPrinter&>(*printer), j["data"], logAllFiles, buffer);
            put(buffer);
        }
        if (!in.eof() && in.fail() && ok) return refuse({s.file, "could not be read again"});
    }
    buffer.clear();
    printer->summary(buffer, sum);
    put(buffer);
    if (std::fflush(out) != 0) ok = false;
    if (out != stdout && std::fclose(out) != 0) ok = false;
    if (!ok) return refuse({logPath.empty() ? "(standard output)" : logPath, std::strerror(errno)});
    return status;
}

}  // namespace sondrel
