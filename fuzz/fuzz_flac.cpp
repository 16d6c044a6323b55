// Arbitrary bytes checked as a FLAC file.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.flac", data, size);
}
