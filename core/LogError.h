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

// One logged problem: category code, absolute byte offset, message.
struct LogError {
    uint32_t logtype = 0;
    uint64_t offset = 0;
    std::string reason;
};

// The category word of a code; unknown codes print as "Container".
const char* categoryWord(uint32_t logtype);

}  // namespace sondrel
