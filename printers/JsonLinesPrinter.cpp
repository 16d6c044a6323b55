#include "printers/JsonLinesPrinter.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <string_view>

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

// Appends `s` as a JSON string. Most names and messages need no escaping and
// are copied as they are; the rest are escaped by the JSON library. (A record
// is written for every file, so this path is kept short.)
void appendString(std::string& out, std::string_view s) {
    const bool plain = std::all_of(s.begin(), s.end(), [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F && c != '"' &&
               c != '\\';
    });
    if (plain) {
        out += '"';
        out += s;
        out += '"';
    } else if (text::isValidUTF8(s)) {
        out += dump(json(s));
    } else {
        out += dump(json(text::sanitizeUTF8(s)));
    }
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
    out += R"({"type":"file","data":{"path":{"text":)";
    appendString(out, path);
    if (!text::isValidUTF8(path)) {
        out += R"(,"bytes":")";
        out += base64Encode(path);
        out += '"';
    }
    out += R"(},"problems":[)";
    firstProblem_ = true;
}

void JsonLinesPrinter::problem(std::string& out, const LogError& e) {
    const auto& row = codes::codeAt(e.code);
    out += firstProblem_ ? R"({"offset":)" : R"(,{"offset":)";
    firstProblem_ = false;
    out += std::to_string(e.offset);
    out += R"(,"category":)";
    appendString(out, categoryWord(e.logtype));
    out += R"(,"code":)";
    appendString(out, row.code);
    out += R"(,"severity":)";
    appendString(out, codes::severityName(row.severity));
    out += R"(,"message":)";
    appendString(out, e.reason);
    out += '}';
}

void JsonLinesPrinter::fileEnd(std::string& out, const std::string& path, const FileResult& result) {
    out += R"(],"size":)";
    out += std::to_string(result.size);
    out += R"(,"modified":)";
    if (result.modDate.empty())
        out += "null";
    else
        appendString(out, result.modDate);
    out += R"(,"format":)";
    if (const FormatEntry* format = formatForPath(path))
        appendString(out, format->name);
    else
        out += "null";
    if (result.openError) {
        out += R"(,"open_error":)";
        appendString(out, std::strerror(result.openError));
    }
    out += "}}\n";
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
