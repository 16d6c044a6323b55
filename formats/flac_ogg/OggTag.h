#pragma once
// Checks one Ogg Vorbis or Opus file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class OggTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    OggTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
