// Arbitrary bytes checked as a .dsf file, entirely in memory.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.dsf", data, size);
}
