#pragma once
// The one table that maps file extensions to a checker and its format code.
// The path predicates, the record's dispatch and the command line's help all
// read it, so adding a format is one row here.
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
    std::unique_ptr<Checker> (*make)(const std::string& path, Tag& tag);
};

// In the order the record's dispatch asks: MP3, MPEG-4, FLAC, WAV, DSF, DFF,
// AIFF, Ogg, APE, WavPack.
std::span<const FormatEntry> formatTable();
// The entry whose extension ends the name (case-insensitive), or null.
const FormatEntry* formatForPath(std::string_view path);

}  // namespace sondrel
