#pragma once
// The audio verification is the "sondrel_decoders" module: every verify/
// source but Install.cpp, with the decoder libraries (libFLAC, mpg123,
// WavPack, ...). The program loads it the first time a file is to be
// verified; a run without verification never loads those libraries. The
// module calls back into the program's own code (the record, the settings),
// which the program exports to it.
#include <cstddef>
#include <string>

#include "core/Tag.h"

namespace sondrel::verify {

struct ModuleTable {
    size_t size;  // sizeof(ModuleTable): a module of another version is refused
    AudioVerifier verifyFile;
    std::string (*libraryVersions)();
};

constexpr const char* kModule = "sondrel_decoders";

}  // namespace sondrel::verify

// The module's entry point (the static build of the tests calls it too).
extern "C" const void* sondrel_module_sondrel_decoders();
