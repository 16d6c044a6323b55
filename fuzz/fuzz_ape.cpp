// Arbitrary bytes checked as a Monkey's Audio file.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.ape", data, size);
}
