// Feeds arbitrary bytes to the checker as a .dff file.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.dff", data, size);
}
