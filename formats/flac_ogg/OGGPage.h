#pragma once
// One Ogg page as far as packets are concerned: where it lies in the file and
// its lacing values. A packet is a run of segments; a lacing value below 255
// ends it, so a packet whose last segment on a page is 255 long goes on in
// the next page.
#include <cstdint>
#include <vector>

#include "core/Bytes.h"

namespace sondrel {

class OGGPage {
  public:
    static constexpr uint64_t kNoIndex = ~uint64_t(0);
    static constexpr size_t kHeaderSize = 27;

    OGGPage(uint64_t offset, uint8_t flags, std::vector<uint8_t> segmentList);

    // The packet that starts at `segment`: `complete` when it ends on this
    // page, and the index of the segment after it, or kNoIndex when it runs
    // to the end of the page (or beyond).
    void availableDataForPacketStartingAtIndex(uint64_t segment, bool& complete, uint64_t& nextIndex) const;
    // The body bytes of segments first..end-1 (end kNoIndex: to the end of the page).
    ByteSpan dataForIndex(uint64_t first, uint64_t end, ByteSpan body) const;
    // Body offset of a segment: the sum of the lacing values before it.
    uint64_t offsetToSegment(uint64_t segment) const;
    uint64_t lengthForSegment(uint64_t first, uint64_t end) const;
    uint64_t firstDataOffset() const { return kHeaderSize + segmentList_.size(); }

    uint64_t offset() const { return offset_; }
    uint8_t flags() const { return flags_; }
    uint64_t segmentCount() const { return segmentList_.size(); }
    // Header, lacing values and body; at most 27 + 255 + 255 * 255 bytes, so
    // it always fits in 16 bits.
    uint16_t totalSize() const { return totalSize_; }

  private:
    std::vector<uint8_t> segmentList_;
    uint64_t offset_ = 0;
    uint16_t totalSize_ = 0;
    uint8_t flags_ = 0;
};

}  // namespace sondrel
