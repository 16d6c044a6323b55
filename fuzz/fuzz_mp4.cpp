// Arbitrary bytes checked as an MPEG-4 audio file.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.m4a", data, size);
}
