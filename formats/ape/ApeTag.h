#pragma once
// Checks one Monkey's Audio file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class ApeTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    ApeTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
