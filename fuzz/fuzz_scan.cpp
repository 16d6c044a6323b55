// The whole scan on real files: the input is written to a file in a folder
// of its own, and that folder (or the file alone) is scanned into a log file,
// as the command line does. This reaches what the in-memory targets cannot:
// the folder walk, path checks, file reads and the log writer.
// The first byte chooses the file name extension (low four bits), whether
// the folder or the file is selected, LogAllFiles, two jobs and a second
// copy of the file; the rest is the file.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/LogWriter.h"
#include "core/WorkThread.h"
#include "fuzz/FuzzCommon.h"
#include "printers/TextPrinter.h"

namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 16> kExtensions = {"mp3", "mp2",  "flac", "ogg", "opus", "wav",
                                                     "aif", "aiff", "dsf",  "dff", "ape",  "wv",
                                                     "m4a", "m4b",  "aifc", "txt"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    const fs::path folder = sondrel::fuzz::workFolder() / "in";
    std::error_code ec;
    fs::remove_all(folder, ec);
    fs::create_directories(folder, ec);
    const fs::path file = folder / (std::string("a.") + kExtensions[mode & 15]);
    {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data + 1), std::streamsize(size - 1));
    }
    if (mode & 0x80) fs::copy_file(file, folder / (std::string("b.") + kExtensions[mode & 15]), ec);

    sondrel::Settings settings = sondrel::fuzz::settingsFor(size);
    settings.overrideValue("LogAllFiles", (mode & 0x20) ? "1" : "0");
    sondrel::Selection selection;
    if (mode & 0x10)
        selection.files.insert(file.string());
    else
        selection.folders.insert(folder.string());

    sondrel::LogWriter log(std::make_unique<sondrel::TextPrinter>());
    if (log.openLog((sondrel::fuzz::workFolder() / "log.txt").string())) return 0;
    sondrel::WorkThread scan(std::move(selection), settings, log, {}, (mode & 0x40) ? 2 : 1);
    scan.main();
    log.closeLog();
    return 0;
}
