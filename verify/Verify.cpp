#include "verify/Verify.h"

#include <FLAC/format.h>
#include <fmt/format.h>
#include <mpg123.h>
#include <wavpack/wavpack.h>

#include "core/FormatTable.h"
#include "core/LogError.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "verify/FlacVerify.h"
#include "verify/Messages.h"
#include "verify/Mp4Verify.h"
#include "verify/MpegVerify.h"
#include "verify/OggVerify.h"
#include "verify/PcmVerify.h"
#include "verify/WavPackVerify.h"

namespace sondrel::verify {

std::optional<Tier> parseTier(std::string_view text) {
    if (text == "off") return Tier::Off;
    if (text == "quick") return Tier::Quick;
    if (text == "full") return Tier::Full;
    return std::nullopt;
}

std::string libraryVersions() {
    // libmpg123 of this generation has no run-time version call; its API
    // number is what the program was built against.
    return fmt::format("libFLAC {}, mpg123 API {}, WavPack {}", FLAC__VERSION_STRING, MPG123_API_VERSION,
                       WavpackGetLibraryVersionString());
}

void install() {
    setAudioVerifier(&verifyFile);
}

void verifyFile(Tag& tag, Format format) {
    auto tier = parseTier(tag.settings().stringFromKey("Verify"));
    if (!tier || *tier == Tier::Off) return;
    Findings findings(tag);
    switch (format) {
        case Format::FLAC:
            verifyFlac(tag, *tier, findings);
            break;
        case Format::MP3:
            verifyMpeg(tag, *tier, findings);
            break;
        case Format::MPEG4:
            verifyMp4(tag, *tier, findings);
            break;
        case Format::Ogg:
            verifyOgg(tag, *tier, findings);
            break;
        case Format::WAV:
            verifyWav(tag, findings);
            break;
        case Format::AIFF:
            verifyAiff(tag, findings);
            break;
        case Format::DSF:
            verifyDsf(tag, findings);
            break;
        case Format::WavPack:
            verifyWavPack(tag, *tier, findings);
            break;
        default:
            break;
    }
}

std::string formatTime(uint64_t samples, uint32_t rate) {
    if (rate == 0) return "00:00:00.000";
    uint64_t seconds = samples / rate;
    uint64_t millis = (samples % rate) * 1000 / rate;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", seconds / 3600, seconds / 60 % 60, seconds % 60, millis);
}

void Findings::add(uint64_t offset, std::string message) {
    ++count_;
    if (count_ <= kListed)
        tag_.logError(kAudio, offset, std::move(message));
    else if (count_ == kListed + 1)
        firstUnlisted_ = offset;
}

void Findings::finish() {
    if (finished_) return;
    finished_ = true;
    if (count_ > kListed)
        tag_.logError(kAudio, firstUnlisted_, fmt::format(msg::kMoreFindings, count_ - kListed));
}

}  // namespace sondrel::verify
