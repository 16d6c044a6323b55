#include "formats/id3/ID3TagHeader.h"

namespace sondrel {

void ID3TagHeader::setFlags(uint64_t f) {
    flags = f;
    if (f & 0x10) hasFooter = true;
    if (f & 0x80) unsynchronized = true;
}

// The derived sizes describe the tag as read: after whole-tag
// unsynchronisation has been undone the buffer keeps its original length, so
// these still count the bytes before compaction. The sums are taken modulo
// 2^64 on purpose: an extended header that reaches into the footer area makes
// tagSize wrap, and the end offset then still comes out as offset + length - 10.
void ID3TagHeader::setData(Bytes d) {
    data = std::move(d);
    totalTagSize = data.size();
    tagSize = totalTagSize - extendedHeaderSize - 10 - (hasFooter ? 10 : 0);
    firstFrameOffset = offset + extendedHeaderSize + 10;
    tagEndOffset = firstFrameOffset + tagSize;
    frameHeaderSize = version == 2 ? 6 : 10;
}

}  // namespace sondrel
