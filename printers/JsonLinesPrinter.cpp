#include "printers/JsonLinesPrinter.h"

#include <nlohmann/json.hpp>

#include <cstring>

#include "codes/ProblemCodes.h"
#include "core/BuildInfo.h"
#include "core/FormatTable.h"
#include "core/Text.h"

namespace sondrel {

namespace {

using json = nlohmann::ordered_json;

// Every string reaching the output has been made valid UTF-8 already; the
// replacing handler only guards against a slip, since a throw would cost the
// whole log.
std::string dump(const json& j) {
    return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string base64Encode(std::string_view bytes) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; bytes.size() - i >= 3; i += 3) {
        const uint32_t v = uint32_t(uint8_t(bytes[i])) << 16 | uint32_t(uint8_t(bytes[i + 1])) << 8 |
                           uint32_t(uint8_t(bytes[i + 2]));
        for (int s = 18; s >= 0; s -= 6) out += kAlphabet[(v >> s) & 63];
    }
    if (const size_t rest = bytes.size() - i) {
        uint32_t v = uint32_t(uint8_t(bytes[i])) << 16;
        if (rest == 2) v |= uint32_t(uint8_t(bytes[i + 1])) << 8;
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

JsonLinesPrinter::JsonLinesPrinter(std::map<std::string, std::string> options)
    : options_(std::move(options)) {}

void JsonLinesPrinter::begin(std::string& out, const std::string& startTime) {
    json options = json::object();
    for (const auto& [key, value] : options_) options[text::sanitizeUTF8(key)] = text::sanitizeUTF8(value);
    json j = {{"type", "begin"},
              {"data",
               {{"schema_version", kSchemaVersion},
                {"program", build::kName},
                {"version", build::kVersion},
                {"build", build::kBuild},
                {"start", startTime},
                {"options", std::move(options)}}}};
    if (shard_) j["data"]["shard"] = {{"index", shard_->first}, {"count", shard_->second}};
    out += dump(j);
    out += '\n';
}

void JsonLinesPrinter::fileHeading(std::string& out, const std::string& path, const std::string&) {
    json p = {{"text", text::sanitizeUTF8(path)}};
    if (!text::isValidUTF8(path)) p["bytes"] = base64Encode(path);
    out += R"({"type":"file","data":{"path":)";
    out += dump(p);
    out += R"(,"problems":[)";
    firstProblem_ = true;
}

void JsonLinesPrinter::problem(std::string& out, const LogError& e) {
    const auto& row = codes::codeAt(e.code);
    json j = {{"offset", e.offset},
              {"category", categoryWord(e.logtype)},
              {"code", row.code},
              {"severity", codes::severityName(row.severity)},
              {"message", text::sanitizeUTF8(e.reason)}};
    if (!firstProblem_) out += ',';
    firstProblem_ = false;
    out += dump(j);
}

void JsonLinesPrinter::fileEnd(std::string& out, const std::string& path, const FileResult& result) {
    json tail = {{"size", result.size}};
    tail["modified"] = result.modDate.empty() ? json(nullptr) : json(result.modDate);
    const FormatEntry* format = formatForPath(path);
    tail["format"] = format ? json(format->name) : json(nullptr);
    if (result.openError) tail["open_error"] = text::sanitizeUTF8(std::strerror(result.openError));
    // The tail's members follow the problem list inside the same object.
    std::string members = dump(tail);
    out += "],";
    out.append(members, 1, std::string::npos);
    out += "}\n";
}

void JsonLinesPrinter::summary(std::string& out, const RunSummary& s) {
    json problems = json::object(), files = json::object();
    for (int v = 0; v < 4; ++v) {
        const char* name = codes::severityName(static_cast<codes::Severity>(v));
        problems[name] = s.problemsBySeverity[size_t(v)];
        files[name] = s.filesByWorst[size_t(v)];
    }
    json j = {{"type", "summary"},
              {"data",
               {{"files_scanned", s.scanned},
                {"files_with_problems", s.withProblems},
                {"files_unreadable", s.unreadable},
                {"problems", s.problems},
                {"problems_by_severity", std::move(problems)},
                {"files_by_worst_severity", std::move(files)},
                {"cancelled", s.cancelled},
                {"exit_status", s.exitStatus}}}};
    out += dump(j);
    out += '\n';
}

}  // namespace sondrel
