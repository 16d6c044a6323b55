// The program's own inputs besides audio: a settings file and the paths given
// to it. The input is stored as the settings file and loaded, every option
// is read back through each typed reader, the settings are saved again; then
// each line of the input is taken as a path for the path checks.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/PathPredicates.h"
#include "core/Settings.h"
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    {
        std::ofstream out(sondrel::fuzz::workFolder() / "settings.conf", std::ios::binary | std::ios::trunc);
        out << text;
    }
    sondrel::Settings settings = sondrel::Settings::load(sondrel::fuzz::workFolder().string());
    for (const char* key :
         {"LogPath", "LogAllFiles", "LogPriv", "LogDups", "SuppressTimeErrors", "MPEG4_MulAtoms",
          "MPEG4_MulData", "LogID3v1", "LogPrompt", "FirstTimeUsage", "LogFixedFontSize", "Unknown"}) {
        (void)settings.boolFromKey(key);
        (void)settings.intFromKey(key);
        (void)settings.unsignedLongLongFromKey(key);
        (void)settings.doubleFromKey(key, 0);
        (void)settings.stringFromKey(key);
        (void)settings.existsKey(key);
    }
    (void)settings.expandedLogPath();
    settings.ensureDefaultLogPath();
    (void)settings.save();

    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string path = text.substr(start, end - start);
        (void)sondrel::isAudioFile(path);
        (void)sondrel::isPlistFile(path);
        (void)sondrel::isPathClean(path);
        (void)sondrel::isPathVolume(path);
        (void)sondrel::isPathApplication(path);
        (void)sondrel::fullPath(path);
        (void)sondrel::parentFolder(path);
        (void)sondrel::lastComponent(path);
        start = end + 1;
    }
    return 0;
}
