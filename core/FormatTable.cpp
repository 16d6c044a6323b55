#include "core/FormatTable.h"

#include <array>

#include "core/Text.h"

namespace sondrel {

namespace {

constexpr const char* kMP3[] = {".mp3", ".mp2"};
constexpr const char* kMPEG4[] = {".m4a", ".mp4", ".m4v", ".m4b"};
constexpr const char* kFLAC[] = {".flac"};
constexpr const char* kWAV[] = {".wav"};
constexpr const char* kDSF[] = {".dsf"};
constexpr const char* kDFF[] = {".dff"};
constexpr const char* kAIFF[] = {".aiff", ".aifc", ".aif"};
constexpr const char* kOgg[] = {".ogg", ".oga", ".opus"};
constexpr const char* kAPE[] = {".ape"};
constexpr const char* kWV[] = {".wv"};

constexpr size_t kFormatCount = 10;

const std::array<FormatEntry, kFormatCount> kTable = {{
    {Format::MP3, "MPEG audio (MP3, MP2)", kMP3, 1},
    {Format::MPEG4, "MPEG-4 audio", kMPEG4, 2},
    {Format::FLAC, "FLAC", kFLAC, 4},
    {Format::WAV, "WAV and RF64", kWAV, 1},
    {Format::DSF, "DSF", kDSF, 1},
    {Format::DFF, "DSDIFF", kDFF, 1},
    {Format::AIFF, "AIFF and AIFF-C", kAIFF, 1},
    {Format::Ogg, "Ogg Vorbis and Opus", kOgg, 128},
    {Format::APE, "Monkey's Audio", kAPE, 256},
    {Format::WavPack, "WavPack", kWV, 512},
}};

std::array<CheckerFactory, kFormatCount> gCheckers{};

}  // namespace

void setChecker(Format format, CheckerFactory make) {
    gCheckers[static_cast<size_t>(format)] = make;
}

CheckerFactory checkerFor(Format format) {
    return gCheckers[static_cast<size_t>(format)];
}

std::span<const FormatEntry> formatTable() {
    return kTable;
}

const FormatEntry* formatForPath(std::string_view path) {
    for (const auto& e : kTable)
        for (const char* ext : e.extensions)
            if (text::endsWithCaseInsensitive(path, ext)) return &e;
    return nullptr;
}

}  // namespace sondrel
