#pragma once
// Checks one FLAC file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class FlacTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    FlacTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
