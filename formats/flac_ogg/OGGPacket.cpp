#include "formats/flac_ogg/OGGPacket.h"

namespace sondrel {

OGGPacket::OGGPacket(uint64_t startPage, uint64_t startSegment, uint64_t firstPageOffset)
    : startPage_(startPage), startSegment_(startSegment), offset_(firstPageOffset) {}

void OGGPacket::addPage(const OGGPage& page, uint64_t pageIndex, ByteSpan body, bool ends,
                        uint64_t endSegment) {
    uint64_t first = pageIndex == startPage_ ? startSegment_ : 0;
    ByteSpan part = page.dataForIndex(first, ends ? endSegment : OGGPage::kNoIndex, body);
    data_.insert(data_.end(), part.begin(), part.end());
    if (ends) {
        endPage_ = pageIndex;
        endSegment_ = endSegment;
        hasEnd_ = true;
    }
}

}  // namespace sondrel
