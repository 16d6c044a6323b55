#pragma once
// printf-style formatting into a std::string, for messages whose layout is
// given as a printf format ("%010lu", "0x%02lx", ...).
#include <cstdint>
#include <string>

namespace sondrel {

__attribute__((format(printf, 1, 2))) std::string stringWithFormat(const char* format, ...);

// Truncates towards zero; a value that no unsigned 64-bit number can hold
// (negative, NaN, too large) saturates instead of being undefined.
uint64_t truncatedUnsigned(double v);

}  // namespace sondrel
