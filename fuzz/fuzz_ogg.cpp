// Arbitrary bytes checked as an Ogg file.
#include <cstring>

#include "core/Bytes.h"
#include "formats/flac_ogg/OggCRC.h"
#include "fuzz/FuzzCommon.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

// Rewrites the CRC of every complete page from the start of the input.
void fixPageCRCs(uint8_t* data, size_t size) {
    size_t pos = 0;
    while (sondrel::fits(size, pos, 27) && std::memcmp(data + pos, "OggS", 4) == 0) {
        const size_t segments = data[pos + 26];
        if (!sondrel::fits(size, pos + 27, segments)) return;
        size_t body = 0;
        for (size_t i = 0; i < segments; ++i) body += data[pos + 27 + i];
        const size_t pageSize = 27 + segments + body;
        if (!sondrel::fits(size, pos, pageSize)) return;
        std::memset(data + pos + 22, 0, 4);
        const uint32_t crc = sondrel::oggcrc::update(0, data + pos, pageSize);
        for (int i = 0; i < 4; ++i) data[pos + 22 + i] = uint8_t(crc >> (8 * i));
        pos += pageSize;
    }
}

}  // namespace

// Nearly every mutation breaks a page CRC, and any problem suppresses the
// comment checks; so most mutants get their CRCs repaired, letting the
// fuzzer reach the header packets and the comment reader too.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed) {
    size = LLVMFuzzerMutate(data, size, maxSize);
    if (seed % 4 != 0) fixPageCRCs(data, size);
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return sondrel::fuzz::checkAs("x.ogg", data, size);
}
