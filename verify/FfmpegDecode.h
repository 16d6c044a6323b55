#pragma once
// Decoding of MPEG-4 audio (AAC, ALAC and whatever else a track holds) and
// Monkey's Audio with the FFmpeg libraries. No FFmpeg type appears here.
#include <cstdint>

#include "core/FileHandle.h"
#include "verify/Verify.h"

namespace sondrel::verify {

// The lines one container's decoding writes; fmt patterns from Messages.h.
struct DecodeMessages {
    const char* cannotDecode;   // reason
    const char* decodeError;    // time, reason
    const char* readError;      // time, reason
    const char* decodedLength;  // decoded time, declared time
};

// Demuxes the file with the FFmpeg demuxer named `demuxer` ("mov", "ape"),
// decodes every packet of its first audio stream, and reports packets the
// decoder rejects, a read that fails before the end, and a decoded length
// that differs from the stream's declared duration by more than one frame.
void decodeWithFfmpeg(FileHandle& file, uint64_t size, const char* demuxer, const DecodeMessages& messages,
                      Findings& findings);

// The FFmpeg libraries' versions, for the list of decoders in use.
std::string ffmpegVersions();

}  // namespace sondrel::verify
