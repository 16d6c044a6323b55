#include "core/Settings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "core/BuildInfo.h"

namespace sondrel {

namespace {

constexpr const char* kFileName = "settings.conf";

// "key=value" lines; "#" starts a comment line. Values run to the end of the line.
std::map<std::string, std::string> parse(std::istream& in) {
    std::map<std::string, std::string> out;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        auto eq = line.find('=');
        if (eq == std::string::npos || eq == 0) continue;
        out[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

std::string homeFolder() {
    const char* home = std::getenv("HOME");
    return home ? home : "";
}

}  // namespace

Settings::Settings() {
    std::istringstream in(build::kUserDefaults);
    defaults_ = parse(in);
}

Settings::Settings(const Settings& other) {
    std::lock_guard lock(other.mutex_);
    defaults_ = other.defaults_;
    stored_ = other.stored_;
    overrides_ = other.overrides_;
    folder_ = other.folder_;
}

Settings& Settings::operator=(const Settings& other) {
    if (this == &other) return *this;
    std::scoped_lock lock(mutex_, other.mutex_);
    defaults_ = other.defaults_;
    stored_ = other.stored_;
    overrides_ = other.overrides_;
    folder_ = other.folder_;
    return *this;
}

std::string Settings::defaultConfigFolder() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    std::string base = xdg && *xdg ? std::string(xdg) : homeFolder() + "/.config";
    return base + "/sondrel";
}

Settings Settings::load(const std::string& configFolder) {
    Settings s;
    s.folder_ = configFolder.empty() ? defaultConfigFolder() : configFolder;
    std::ifstream in(s.folder_ + "/" + kFileName);
    if (in) s.stored_ = parse(in);
    return s;
}

std::optional<std::string> Settings::raw(const std::string& key) const {
    std::lock_guard lock(mutex_);
    for (const auto* m : {&overrides_, &stored_, &defaults_}) {
        auto it = m->find(key);
        if (it != m->end()) return it->second;
    }
    return std::nullopt;
}

bool Settings::parseBool(const std::string& text, bool& out) {
    std::string t;
    for (char c : text) t += char(std::tolower(static_cast<unsigned char>(c)));
    if (t == "1" || t == "true" || t == "yes") return out = true, true;
    if (t == "0" || t == "false" || t == "no") return out = false, true;
    return false;
}

bool Settings::boolFromKey(const std::string& key) const {
    auto v = raw(key);
    if (!v) return false;
    bool b = false;
    if (parseBool(*v, b)) return b;
    // Like a stored number: true when its integer value is not 0.
    return std::strtoll(v->c_str(), nullptr, 10) != 0;
}

int64_t Settings::intFromKey(const std::string& key) const {
    auto v = raw(key);
    if (!v) return 0;
    bool b = false;
    if (parseBool(*v, b) && !v->empty() && !std::isdigit(static_cast<unsigned char>((*v)[0])))
        return b ? 1 : 0;
    return std::strtoll(v->c_str(), nullptr, 10);
}

uint64_t Settings::unsignedLongLongFromKey(const std::string& key) const {
    auto v = raw(key);
    return v ? std::strtoull(v->c_str(), nullptr, 10) : 0;
}

double Settings::doubleFromKey(const std::string& key, double failvalue) const {
    auto v = raw(key);
    if (!v || v->empty()) return failvalue;
    char* end = nullptr;
    double d = std::strtod(v->c_str(), &end);
    return end == v->c_str() ? failvalue : d;
}

std::string Settings::stringFromKey(const std::string& key) const {
    return raw(key).value_or("");
}

bool Settings::existsKey(const std::string& key) const {
    return raw(key).has_value();
}

void Settings::setBool(const std::string& key, bool value) {
    setString(key, value ? "true" : "false");
}

void Settings::setInteger(const std::string& key, int64_t value) {
    setString(key, std::to_string(value));
}

void Settings::setString(const std::string& key, const std::string& value) {
    std::lock_guard lock(mutex_);
    stored_[key] = value;
    overrides_.erase(key);
}

void Settings::overrideValue(const std::string& key, const std::string& value) {
    std::lock_guard lock(mutex_);
    overrides_[key] = value;
}

bool Settings::save() const {
    std::map<std::string, std::string> stored;
    std::string folder;
    {
        std::lock_guard lock(mutex_);
        stored = stored_;
        folder = folder_.empty() ? defaultConfigFolder() : folder_;
    }
    // Make the folder and its parents.
    for (size_t pos = 1; pos <= folder.size(); ++pos) {
        if (pos == folder.size() || folder[pos] == '/') {
            std::string part = folder.substr(0, pos);
            if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
        }
    }
    std::string path = folder + "/" + kFileName;
    std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::trunc);
        if (!out) return false;
        for (const auto& [k, v] : stored) out << k << '=' << v << '\n';
        if (!out.flush()) return false;
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0;
}

std::string Settings::expandTilde(const std::string& path) {
    if (path == "~") return homeFolder();
    if (path.rfind("~/", 0) == 0) return homeFolder() + path.substr(1);
    return path;
}

std::string Settings::expandedLogPath() const {
    return expandTilde(stringFromKey("LogPath"));
}

void Settings::ensureDefaultLogPath() {
    if (stringFromKey("LogPath").empty()) setString("LogPath", "~/Documents/Sondrel.txt");
}

}  // namespace sondrel
