// The versions of every decoder library the verification uses.
#include <FLAC/format.h>
#include <fmt/format.h>
#include <opus/opus.h>
#include <vorbis/codec.h>
#include <wavpack/wavpack.h>

#include "verify/FfmpegDecode.h"
#include "verify/Verify.h"

namespace sondrel::verify {

std::string decoderLibraryVersions() {
    return fmt::format(
        "libFLAC {}\nlibmpg123 {}\nlibwavpack {}\nlibvorbisfile {} ({})\nlibopusfile {} ({})\n{}\n",
        FLAC__VERSION_STRING, SONDREL_MPG123_VERSION, WavpackGetLibraryVersionString(),
        SONDREL_VORBISFILE_VERSION, vorbis_version_string(), SONDREL_OPUSFILE_VERSION,
        opus_get_version_string(), ffmpegVersions());
}

}  // namespace sondrel::verify
