#include "core/FormatTable.h"

#include <array>

#include "core/Text.h"
#include "formats/ape/ApeTag.h"
#include "formats/ape/WVTag.h"
#include "formats/chunked/AiffTag.h"
#include "formats/chunked/DffTag.h"
#include "formats/chunked/DsfTag.h"
#include "formats/chunked/WavTag.h"
#include "formats/flac_ogg/FlacTag.h"
#include "formats/flac_ogg/OggTag.h"
#include "formats/id3/ID3Tag.h"
#include "formats/mp4/M4ATag.h"

namespace sondrel {

namespace {

template <typename T>
std::unique_ptr<Checker> make(const std::string& path, Tag& tag) {
    return std::make_unique<T>(path, tag);
}

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

const std::array<FormatEntry, 10> kTable = {{
    {Format::MP3, "MPEG audio (MP3, MP2)", kMP3, 1, make<ID3Tag>},
    {Format::MPEG4, "MPEG-4 audio", kMPEG4, 2, make<M4ATag>},
    {Format::FLAC, "FLAC", kFLAC, 4, make<FlacTag>},
    {Format::WAV, "WAV and RF64", kWAV, 1, make<WavTag>},
    {Format::DSF, "DSF", kDSF, 1, make<DsfTag>},
    {Format::DFF, "DSDIFF", kDFF, 1, make<DffTag>},
    {Format::AIFF, "AIFF and AIFF-C", kAIFF, 1, make<AiffTag>},
    {Format::Ogg, "Ogg Vorbis and Opus", kOgg, 128, make<OggTag>},
    {Format::APE, "Monkey's Audio", kAPE, 256, make<ApeTag>},
    {Format::WavPack, "WavPack", kWV, 512, make<WVTag>},
}};

}  // namespace

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
