#pragma once
// Checks one WavPack file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class WVTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    WVTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
