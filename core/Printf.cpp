#include "core/Printf.h"

#include <cstdarg>
#include <cstdio>
#include <limits>

namespace sondrel {

std::string stringWithFormat(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string out;
    if (n > 0) {
        out.resize(size_t(n) + 1);
        std::vsnprintf(out.data(), out.size(), format, again);
        out.resize(size_t(n));
    }
    va_end(again);
    return out;
}

uint64_t truncatedUnsigned(double v) {
    if (!(v > 0)) return 0;
    if (v >= 18446744073709551616.0) return std::numeric_limits<uint64_t>::max();
    return uint64_t(v);
}

}  // namespace sondrel
