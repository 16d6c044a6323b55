#include "formats/flac_ogg/OggCRC.h"

#include <array>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace sondrel::oggcrc {

namespace {

constexpr uint32_t kPolynomial = 0x04C11DB7u;

using Table = std::array<uint32_t, 256>;

// kTables[0] is the usual byte table; kTables[k][b] is the CRC of byte b
// followed by k zero bytes, so eight table look-ups advance the CRC over
// eight input bytes at once.
constexpr std::array<Table, 8> makeTables() {
    std::array<Table, 8> t{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t r = b << 24;
        for (int bit = 0; bit < 8; ++bit) r = (r & 0x80000000u) ? (r << 1) ^ kPolynomial : r << 1;
        t[0][b] = r;
    }
    for (size_t k = 1; k < 8; ++k)
        for (uint32_t b = 0; b < 256; ++b) t[k][b] = (t[k - 1][b] << 8) ^ t[0][t[k - 1][b] >> 24];
    return t;
}

constexpr std::array<Table, 8> kTables = makeTables();

#if defined(__x86_64__)
// x^n modulo the polynomial, for the folding constants.
constexpr uint64_t xPowerMod(unsigned n) {
    uint32_t r = 1;
    for (unsigned i = 0; i < n; ++i) r = (r & 0x80000000u) ? (r << 1) ^ kPolynomial : r << 1;
    return r;
}

// Folding: the message is taken 16 bytes at a time as a 128-bit polynomial
// (first byte highest). An accumulator A = H·x^64 + L that must move d bits
// further along the message becomes H·(x^(d+64) mod P) + L·(x^d mod P): the
// same remainder modulo P, in at most 96 bits, so the next block can be
// added to it with a plain xor. Four accumulators 64 bytes apart keep the
// multiplier busy; at the end they are folded into one, and its 16 bytes go
// through the table like any other message bytes, which also makes the
// final reduction the table's job.
__attribute__((target("pclmul,ssse3"))) __m128i fold(__m128i a, __m128i k, __m128i next) {
    return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(a, k, 0x11), _mm_clmulepi64_si128(a, k, 0x00)),
                         next);
}

__attribute__((target("pclmul,ssse3"))) __m128i byteReversal() {
    return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

// Sixteen message bytes as one polynomial, the first byte highest.
__attribute__((target("pclmul,ssse3"))) __m128i load(const uint8_t* at) {
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at)), byteReversal());
}

__attribute__((target("pclmul,ssse3"))) uint32_t updateFolding(uint32_t crc, const uint8_t* p,
                                                               size_t length) {
    if (length < 128) return updateSliced(crc, p, length);
    const __m128i reverse = byteReversal();
    const __m128i by512 = _mm_set_epi64x(int64_t(xPowerMod(512 + 64)), int64_t(xPowerMod(512)));
    const __m128i by384 = _mm_set_epi64x(int64_t(xPowerMod(384 + 64)), int64_t(xPowerMod(384)));
    const __m128i by256 = _mm_set_epi64x(int64_t(xPowerMod(256 + 64)), int64_t(xPowerMod(256)));
    const __m128i by128 = _mm_set_epi64x(int64_t(xPowerMod(128 + 64)), int64_t(xPowerMod(128)));

    // The running CRC stands for the message so far; it is added to the
    // first four bytes, exactly as the register of the byte form would.
    __m128i a0 = _mm_xor_si128(load(p), _mm_set_epi32(int(crc), 0, 0, 0));
    __m128i a1 = load(p + 16), a2 = load(p + 32), a3 = load(p + 48);
    p += 64;
    length -= 64;
    while (length >= 64) {
        a0 = fold(a0, by512, load(p));
        a1 = fold(a1, by512, load(p + 16));
        a2 = fold(a2, by512, load(p + 32));
        a3 = fold(a3, by512, load(p + 48));
        p += 64;
        length -= 64;
    }
    __m128i a = fold(a0, by384, fold(a1, by256, fold(a2, by128, a3)));
    while (length >= 16) {
        a = fold(a, by128, load(p));
        p += 16;
        length -= 16;
    }
    alignas(16) uint8_t last[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(last), _mm_shuffle_epi8(a, reverse));
    return updateSliced(updateSliced(0, last, sizeof last), p, length);
}

using UpdateFn = uint32_t (*)(uint32_t, const uint8_t*, size_t);

// The processor is asked directly (CPUID leaf 1) rather than through the
// compiler's __builtin_cpu_supports, whose support code runs a full
// processor survey at the start of every run, Ogg or not; under a hypervisor
// each CPUID instruction is a costly exit.
UpdateFn chooseUpdate() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & bit_PCLMUL) && (ecx & bit_SSSE3))
        return updateFolding;
    return updateSliced;
}

// Chosen once, on first use.
UpdateFn fastest() {
    static const UpdateFn chosen = chooseUpdate();
    return chosen;
}
#endif

}  // namespace

uint32_t updateBytewise(uint32_t crc, const uint8_t* bytes, size_t length) {
    for (size_t i = 0; i < length; ++i) crc = (crc << 8) ^ kTables[0][(crc >> 24) ^ bytes[i]];
    return crc;
}

uint32_t updateSliced(uint32_t crc, const uint8_t* p, size_t length) {
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

uint32_t update(uint32_t crc, const uint8_t* bytes, size_t length) {
#if defined(__x86_64__)
    return fastest()(crc, bytes, length);
#else
    return updateSliced(crc, bytes, length);
#endif
}

bool hasFolding() {
#if defined(__x86_64__)
    return fastest() != updateSliced;
#else
    return false;
#endif
}

}  // namespace sondrel::oggcrc
