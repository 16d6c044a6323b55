#pragma once
// Checks one DSF file.
#include <string>

#include "core/Tag.h"

namespace sondrel {

class DsfTag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    DsfTag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
