#include "core/LogError.h"

namespace sondrel {

const char* categoryWord(uint32_t logtype) {
    switch (logtype) {
        case kFile:
            return "File";
        case kFraming:
            return "Framing";
        case kTagProblem:
            return "Tag";
        case kFatal:
            return "Fatal";
        case kPrivacy:
            return "Privacy";
        case kRename:
            return "Rename(mp3)";
        case kAudio:
            return "Audio";
        default:
            return "Container";
    }
}

}  // namespace sondrel
