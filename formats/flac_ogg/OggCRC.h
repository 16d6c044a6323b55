#pragma once
// The CRC-32 of Ogg pages: polynomial 0x04C11DB7, initial value 0, bits taken
// most significant first (no reflection) and no final inversion. A page's CRC
// covers its 27 header bytes with the stored CRC field read as zeros, then
// its lacing values, then its body.
#include <cstddef>
#include <cstdint>

namespace sondrel::oggcrc {

// Feeds `length` bytes into a running CRC by the fastest form the processor
// offers: carry-less multiplication folding where it has it, the sliced
// tables otherwise. The result always equals that of updateBytewise.
uint32_t update(uint32_t crc, const uint8_t* bytes, size_t length);

// Eight bytes per step through sliced tables; the portable fallback.
uint32_t updateSliced(uint32_t crc, const uint8_t* bytes, size_t length);

// The plain table-driven form, one byte per step: the reference that the
// fast paths are tested and measured against.
uint32_t updateBytewise(uint32_t crc, const uint8_t* bytes, size_t length);

// True when update() folds with carry-less multiplication on this processor.
bool hasFolding();

}  // namespace sondrel::oggcrc
