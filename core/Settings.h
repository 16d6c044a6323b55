#pragma once
// The user-defaults store: option values by key, read at the point of use.
// Initial values come from the "UserDefaults" resource compiled into the
// program; stored values persist in $XDG_CONFIG_HOME/sondrel/settings.conf
// (default ~/.config/sondrel/), shared by the command line and the desktop
// application; a run may override any key without storing it.
// The typed readers never fail: an absent key gives the type's empty value.
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace sondrel {

class Settings {
  public:
    // Registered defaults only (no file).
    Settings();
    // Registered defaults, then the values stored in `configFolder` (or the
    // default folder when empty).
    static Settings load(const std::string& configFolder = {});
    static std::string defaultConfigFolder();

    Settings(const Settings& other);
    Settings& operator=(const Settings& other);

    // Typed, never-failing readers.
    bool boolFromKey(const std::string& key) const;
    int64_t intFromKey(const std::string& key) const;
    uint64_t unsignedLongLongFromKey(const std::string& key) const;
    double doubleFromKey(const std::string& key, double failvalue) const;
    std::string stringFromKey(const std::string& key) const;
    bool existsKey(const std::string& key) const;

    // Writers: stored persistently by `save`.
    void setBool(const std::string& key, bool value);
    void setInteger(const std::string& key, int64_t value);
    void setString(const std::string& key, const std::string& value);
    // A run-only override (never stored). Booleans accept 1/0, true/false, yes/no.
    void overrideValue(const std::string& key, const std::string& value);

    // Writes the stored values to the settings file; false on failure.
    bool save() const;
    const std::string& configFolder() const { return folder_; }

    // `LogPath` with a leading "~" expanded to the home folder.
    std::string expandedLogPath() const;
    // When `LogPath` is empty: store "~/Documents/Sondrel.txt".
    void ensureDefaultLogPath();

    static bool parseBool(const std::string& text, bool& out);
    static std::string expandTilde(const std::string& path);

  private:
    std::optional<std::string> raw(const std::string& key) const;
    std::map<std::string, std::string> defaults_;
    std::map<std::string, std::string> stored_;
    std::map<std::string, std::string> overrides_;
    std::string folder_;
    mutable std::mutex mutex_;
};

}  // namespace sondrel
