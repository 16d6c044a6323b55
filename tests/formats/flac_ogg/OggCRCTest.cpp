// The folded and sliced Ogg CRCs must equal the byte-at-a-time reference for every
// length and alignment, also when fed in pieces.
#include <gtest/gtest.h>

#include <random>
#include <string_view>

#include "core/Bytes.h"
#include "formats/flac_ogg/OggCRC.h"

namespace sondrel {
namespace {

TEST(OggCRC, FastFormsEqualReference) {
    // The check value of this CRC (no reflection, initial 0, no final inversion).
    const auto check = reinterpret_cast<const uint8_t*>("123456789");
    EXPECT_EQ(oggcrc::updateBytewise(0, check, 9), 0x89A1897Fu);
    EXPECT_EQ(oggcrc::update(0, check, 9), 0x89A1897Fu);
    EXPECT_EQ(oggcrc::updateSliced(0, check, 9), 0x89A1897Fu);

    std::mt19937 rng(20261123);
    Bytes buffer(4096 + 16);
    for (auto& b : buffer) b = uint8_t(rng());
    for (size_t align = 0; align < 16; ++align) {
        const uint8_t* p = buffer.data() + align;
        // Every length around the folding's 64- and 16-byte steps, then
        // random ones up to 4096.
        for (size_t round = 0; round < 364; ++round) {
            const size_t length = round < 300 ? round : rng() % 4097;
            const uint32_t seed = rng();
            const uint32_t reference = oggcrc::updateBytewise(seed, p, length);
            ASSERT_EQ(oggcrc::update(seed, p, length), reference)
                << "alignment " << align << ", length " << length;
            ASSERT_EQ(oggcrc::updateSliced(seed, p, length), reference) << length;
        }
    }
    // Fed in uneven pieces, as a page is (header, lacing values, body).
    for (int round = 0; round < 200; ++round) {
        size_t a = rng() % 300, b = rng() % 300, c = rng() % 3000;
        const uint8_t* p = buffer.data() + rng() % 16;
        uint32_t crc = oggcrc::update(oggcrc::update(oggcrc::update(0, p, a), p + a, b), p + a + b, c);
        ASSERT_EQ(crc, oggcrc::updateBytewise(0, p, a + b + c));
    }
}

}  // namespace
}  // namespace sondrel
