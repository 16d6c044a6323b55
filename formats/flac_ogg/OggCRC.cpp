#include "formats/flac_ogg/OggCRC.h"

#include <array>

namespace sondrel::oggcrc {

namespace {

using Table = std::array<uint32_t, 256>;

// kTables[0] is the usual byte table; kTables[k][b] is the CRC of byte b
// followed by k zero bytes, so eight table look-ups advance the CRC over
// eight input bytes at once.
constexpr std::array<Table, 8> makeTables() {
    std::array<Table, 8> t{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t r = b << 24;
        for (int bit = 0; bit < 8; ++bit) r = (r & 0x80000000u) ? (r << 1) ^ 0x04C11DB7u : r << 1;
        t[0][b] = r;
    }
    for (size_t k = 1; k < 8; ++k)
        for (uint32_t b = 0; b < 256; ++b) t[k][b] = (t[k - 1][b] << 8) ^ t[0][t[k - 1][b] >> 24];
    return t;
}

constexpr std::array<Table, 8> kTables = makeTables();

}  // namespace

uint32_t updateBytewise(uint32_t crc, const uint8_t* bytes, size_t length) {
    for (size_t i = 0; i < length; ++i) crc = (crc << 8) ^ kTables[0][(crc >> 24) ^ bytes[i]];
    return crc;
}

uint32_t update(uint32_t crc, const uint8_t* p, size_t length) {
    const auto& t = kTables;
    while (length >= 8) {
        // The first four bytes meet the running CRC; the CRC is most
        // significant bit first, so they are combined big-endian.
        uint32_t c = crc ^ ((uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3]);
        crc = t[7][c >> 24] ^ t[6][(c >> 16) & 0xff] ^ t[5][(c >> 8) & 0xff] ^ t[4][c & 0xff] ^ t[3][p[4]] ^
              t[2][p[5]] ^ t[1][p[6]] ^ t[0][p[7]];
        p += 8;
        length -= 8;
    }
    return updateBytewise(crc, p, length);
}

}  // namespace sondrel::oggcrc
