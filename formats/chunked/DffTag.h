#pragma once
// Checks one DSDIFF file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class DffTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    DffTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
