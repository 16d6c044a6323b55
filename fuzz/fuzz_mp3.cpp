// Arbitrary bytes through the MP3 checker: ID3v1/APE probes, ID3v2 tags at
// either end, summary headers and the frame scan.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.mp3", data, size);
}
