#pragma once
// Checks one AIFF or AIFF-C file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class AiffTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    AiffTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
