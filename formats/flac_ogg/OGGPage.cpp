#include "formats/flac_ogg/OGGPage.h"

#include <utility>

namespace sondrel {

OGGPage::OGGPage(uint64_t offset, uint8_t flags, std::vector<uint8_t> segmentList)
    : segmentList_(std::move(segmentList)), offset_(offset), flags_(flags) {
    totalSize_ = uint16_t(firstDataOffset() + lengthForSegment(0, kNoIndex));
}

void OGGPage::availableDataForPacketStartingAtIndex(uint64_t segment, bool& complete,
                                                    uint64_t& nextIndex) const {
    complete = false;
    nextIndex = kNoIndex;
    const uint64_t n = segmentList_.size();
    if (segment >= n) return;
    uint64_t i = segment;
    while (i < n && segmentList_[i] == 255) ++i;
    if (i == n) return;  // the packet goes on in the next page
    complete = true;
    if (i + 1 != n) nextIndex = i + 1;
}

uint64_t OGGPage::offsetToSegment(uint64_t segment) const {
    return lengthForSegment(0, segment);
}

uint64_t OGGPage::lengthForSegment(uint64_t first, uint64_t end) const {
    if (end == kNoIndex || end > segmentList_.size()) end = segmentList_.size();
    uint64_t sum = 0;
    for (uint64_t i = first; i < end; ++i) sum += segmentList_[i];
    return sum;
}

ByteSpan OGGPage::dataForIndex(uint64_t first, uint64_t end, ByteSpan body) const {
    uint64_t start = offsetToSegment(first);
    uint64_t length = lengthForSegment(first, end);
    if (!fits(body.size(), start, length)) return {};
    return body.subspan(start, length);
}

}  // namespace sondrel
