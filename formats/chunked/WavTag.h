#pragma once
// Checks one WAV or RF64 file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class WavTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    WavTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
