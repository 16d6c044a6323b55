#pragma once
// Shared body of the fuzz targets: analyse the input as a file of the given
// name, entirely in memory.
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/Checkers.h"

namespace sondrel::fuzz {

inline int checkAs(const char* name, const uint8_t* data, size_t size) {
    static const Settings settings = [] {
        installCheckers();
        Settings s;
        for (const char* k : {"LogDups", "LogID3v1", "LogPriv", "MPEG4_MulData"}) s.overrideValue(k, "1");
        return s;
    }();
    Tag tag(std::string("/fuzz/") + name, settings, Bytes(data, data + size));
    return 0;
}

}  // namespace sondrel::fuzz
