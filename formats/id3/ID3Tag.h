#pragma once
// Checks one MPEG audio file (MP3, MP2).
#include <string>

#include "core/Tag.h"

namespace sondrel {

class ID3Tag : public Checker {
public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    ID3Tag(const std::string& path, Tag& tag);
};

}  // namespace sondrel
