#pragma once
// The parsed header of one ID3v2 tag and the tag's bytes as read.
#include <cstdint>

#include "core/Bytes.h"

namespace sondrel {

class ID3TagHeader {
public:
    // initAtOffset: only `offset` is set.
    explicit ID3TagHeader(uint64_t offset) : offset(offset) {}

    // Stores the flags and sets hasFooter (0x10) and unsynchronized (0x80);
    // only ever sets them, never clears.
    void setFlags(uint64_t f);
    // Stores the tag bytes and derives totalTagSize, tagSize, firstFrameOffset,
    // tagEndOffset and frameHeaderSize; extendedHeaderSize, version and flags
    // must be set before.
    void setData(Bytes d);
    void setExtendedHeaderSize(uint64_t x) { extendedHeaderSize = x; }
    void setVersion(uint64_t v) { version = v; }

    const uint8_t* bytes() const { return data.data(); }

    Bytes data;                   // the whole tag as read (header through footer)
    uint64_t offset = 0;          // file offset of "ID3"; moved to the real start for a footer-found tag
    uint64_t version = 0;
    uint64_t revision = 0;
    uint64_t flags = 0;
    uint64_t frameHeaderSize = 10;  // 6 for version 2
    bool hasFooter = false;
    bool unsynchronized = false;
    uint64_t tagSize = 0;
    uint64_t totalTagSize = 0;
    uint64_t firstFrameOffset = 0;
    uint64_t extendedHeaderSize = 0;
    uint64_t tagEndOffset = 0;      // lowered by the frame walk when the tag runs into audio
    bool isFooter = false;          // look for "3DI" at `offset` and find the tag before it
};

}  // namespace sondrel
