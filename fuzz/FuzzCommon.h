#pragma once
// Shared body of the fuzz targets: analyse the input as a file of the given
// name, entirely in memory.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/Checkers.h"

namespace sondrel::fuzz {

// A temporary folder for this process, made once and removed at exit.
inline void removeWorkFolder();
inline const std::filesystem::path& workFolder() {
    static const std::filesystem::path folder = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "sondrel-fuzz-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        return std::filesystem::path(pattern);
    }();
    // Registered after the path itself, so it runs before the path is destroyed.
    static const bool cleanup = (std::atexit(removeWorkFolder), true);
    (void)cleanup;
    return folder;
}
inline void removeWorkFolder() {
    std::error_code ec;
    std::filesystem::remove_all(workFolder(), ec);
}

// The options that change what a checker reports. Every combination is
// reached without spending bytes of the file: the input's length picks one
// (lengths that differ by one switch the first option, and so on), so
// mutation that grows or shrinks a file also walks through the options.
inline constexpr std::array<const char*, 6> kOptions = {
    "LogDups", "LogID3v1", "LogPriv", "MPEG4_MulData", "MPEG4_MulAtoms", "SuppressTimeErrors"};

inline const Settings& settingsFor(size_t size) {
    static const std::array<Settings, 1 << kOptions.size()> all = [] {
        installCheckers();
        std::array<Settings, 1 << kOptions.size()> s;
        for (size_t combination = 0; combination < s.size(); ++combination)
            for (size_t i = 0; i < kOptions.size(); ++i)
                s[combination].overrideValue(kOptions[i], (combination >> i) & 1 ? "1" : "0");
        return s;
    }();
    return all[size % all.size()];
}

inline int checkAs(const char* name, const uint8_t* data, size_t size) {
    Tag tag(std::string("/fuzz/") + name, settingsFor(size), Bytes(data, data + size));
    return 0;
}

}  // namespace sondrel::fuzz
