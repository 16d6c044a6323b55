#pragma once
// Checks one MPEG-4 audio file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class M4ATag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    M4ATag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
