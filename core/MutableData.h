#pragma once
// Writers of fixed-width integers into byte buffers (appending, or replacing
// bytes at an offset). Writes that would fall outside the buffer do nothing.
#include <cstdint>

#include "core/Bytes.h"

namespace sondrel::MutableData {

void append8bit(Bytes& d, uint8_t v);
void append16bitBE(Bytes& d, uint16_t v);
void append32bitBE(Bytes& d, uint32_t v);
void append32bitLE(Bytes& d, uint32_t v);
void append64bitBE(Bytes& d, uint64_t v);
void append64bitLE(Bytes& d, uint64_t v);
void set8bitBE(Bytes& d, uint8_t v, uint64_t offset);
void set16bitBE(Bytes& d, uint16_t v, uint64_t offset);
void set32bitBE(Bytes& d, uint32_t v, uint64_t offset);
void set32bitLE(Bytes& d, uint32_t v, uint64_t offset);
// Replaces only four bytes: the high 32 bits of the value's big-endian form.
void set64bitBE(Bytes& d, uint64_t v, uint64_t offset);
// Four bytes of an ID3v2 synchsafe integer (7 bits a byte, top bit clear).
void setSyncSafeLength(Bytes& d, uint32_t v, uint64_t offset);

}  // namespace sondrel::MutableData
