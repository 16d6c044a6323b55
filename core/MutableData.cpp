#include "core/MutableData.h"

#include "core/Bytes.h"

namespace sondrel::MutableData {

namespace {
void put(Bytes& d, uint64_t offset, uint64_t v, int width, bool bigEndian) {
    if (!fits(d.size(), offset, uint64_t(width))) return;
    for (int i = 0; i < width; ++i) {
        int shift = bigEndian ? 8 * (width - 1 - i) : 8 * i;
        d[size_t(offset) + size_t(i)] = uint8_t(v >> shift);
    }
}
void add(Bytes& d, uint64_t v, int width, bool bigEndian) {
    d.resize(d.size() + size_t(width));
    put(d, d.size() - size_t(width), v, width, bigEndian);
}
}  // namespace

void append8bit(Bytes& d, uint8_t v) {
    d.push_back(v);
}
void append16bitBE(Bytes& d, uint16_t v) {
    add(d, v, 2, true);
}
void append32bitBE(Bytes& d, uint32_t v) {
    add(d, v, 4, true);
}
void append32bitLE(Bytes& d, uint32_t v) {
    add(d, v, 4, false);
}
void append64bitBE(Bytes& d, uint64_t v) {
    add(d, v, 8, true);
}
void append64bitLE(Bytes& d, uint64_t v) {
    add(d, v, 8, false);
}
void set8bitBE(Bytes& d, uint8_t v, uint64_t offset) {
    put(d, offset, v, 1, true);
}
void set16bitBE(Bytes& d, uint16_t v, uint64_t offset) {
    put(d, offset, v, 2, true);
}
void set32bitBE(Bytes& d, uint32_t v, uint64_t offset) {
    put(d, offset, v, 4, true);
}
void set32bitLE(Bytes& d, uint32_t v, uint64_t offset) {
    put(d, offset, v, 4, false);
}
void set64bitBE(Bytes& d, uint64_t v, uint64_t offset) {
    put(d, offset, v >> 32, 4, true);
}
void setSyncSafeLength(Bytes& d, uint32_t v, uint64_t offset) {
    uint32_t s = ((v >> 21) & 0x7f) << 24 | ((v >> 14) & 0x7f) << 16 | ((v >> 7) & 0x7f) << 8 | (v & 0x7f);
    put(d, offset, s, 4, true);
}

}  // namespace sondrel::MutableData
