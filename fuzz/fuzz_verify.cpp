// Audio verification on arbitrary bytes: the file's first bytes choose the
// format as a user's file name would (a FLAC stream named .flac, and so on),
// and the input's length chooses the tier, so the same mutations reach the
// integrity walks of the quick tier and the decoders of the full one.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/FuzzCommon.h"
#include "verify/Verify.h"

namespace {

const char* nameFor(const uint8_t* data, size_t size) {
    auto is = [&](size_t at, const char* marker) {
        const size_t n = std::strlen(marker);
        return size >= at + n && std::memcmp(data + at, marker, n) == 0;
    };
    if (is(0, "fLaC")) return "x.flac";
    if (is(0, "OggS")) return is(28, "OpusHead") ? "x.opus" : "x.ogg";
    if (is(0, "RIFF") || is(0, "RF64")) return "x.wav";
    if (is(0, "FORM")) return "x.aiff";
    if (is(0, "DSD ")) return "x.dsf";
    if (is(0, "FRM8")) return "x.dff";
    if (is(0, "MAC ")) return "x.ape";
    if (is(0, "wvpk")) return "x.wv";
    if (is(4, "ftyp")) return "x.m4a";
    return "x.mp3";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace sondrel;
    static const Settings* const tiers = [] {
        installCheckers();
        verify::install();
        static Settings s[2];
        s[0].overrideValue("Verify", "quick");
        s[1].overrideValue("Verify", "full");
        return s;
    }();
    Tag tag(std::string("/fuzz/") + nameFor(data, size), tiers[size % 2], Bytes(data, data + size));
    return 0;
}
