#pragma once
#include <cstdint>
#include <string>

namespace sondrel {

// Problem categories; the log writer prints the word for each.
enum LogType : uint32_t {
    kFile = 0,
    kContainer = 1,
    kFraming = 2,
    kTagProblem = 3,
    kFatal = 4,
    kPrivacy = 5,
    kRename = 6,
    // The audio itself: frames, blocks or pages whose checksums, counts or
    // decoding fail (only when the audio is verified).
    kAudio = 7,
};

// One logged problem: category code, absolute byte offset, message, and the
// row of the problem-code table its message belongs to (set when the problem
// is recorded; it decides severity and filtering, never the log text).
struct LogError {
    uint32_t logtype = 0;
    uint64_t offset = 0;
    std::string reason;
    uint16_t code = 0;
};

// The category word of a code; unknown codes print as "Container".
const char* categoryWord(uint32_t logtype);

}  // namespace sondrel
