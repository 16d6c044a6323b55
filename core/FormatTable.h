#pragma once
// The one table of formats: names, file extensions and the format code the
// record stores. The path predicates, the record's dispatch and the command
// line's help all read it, so adding a format is one row here. Which checker
// analyses a format is not known to the core: formats/Checkers installs one
// per format at the start of each program (front ends, tests, fuzz targets),
// so the core depends on no checker while the checkers build on the core.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace sondrel {

class Checker;
class Tag;

enum class Format { MP3, MPEG4, FLAC, AIFF, DSF, WAV, DFF, Ogg, APE, WavPack };

struct FormatEntry {
    Format format;
    const char* name;                         // for help texts
    std::span<const char* const> extensions;  // with the dot, lower case
    uint32_t tagType;                         // format code stored in the record
};

using CheckerFactory = std::unique_ptr<Checker> (*)(const std::string& path, Tag& tag);
// Installs the checker of a format (before the first analysis; not
// synchronised with a running scan).
void setChecker(Format format, CheckerFactory make);
// The installed checker, or null.
CheckerFactory checkerFor(Format format);

// In the order the record's dispatch asks: MP3, MPEG-4, FLAC, WAV, DSF, DFF,
// AIFF, Ogg, APE, WavPack.
std::span<const FormatEntry> formatTable();
// The entry whose extension ends the name (case-insensitive), or null.
const FormatEntry* formatForPath(std::string_view path);

}  // namespace sondrel
