#pragma once
// One packet of an Ogg stream cut out of one or more pages: the pages and
// segments it spans, and its bytes, gathered page by page as the pages are
// read (so no page body has to be kept for it).
#include <cstdint>

#include "core/Bytes.h"
#include "formats/flac_ogg/OGGPage.h"

namespace sondrel {

class OGGPacket {
  public:
    OGGPacket(uint64_t startPage, uint64_t startSegment, uint64_t firstPageOffset);

    // Takes this packet's segments out of the page at index `pageIndex`,
    // whose body is `body`: from its first segment (or segment 0 on a later
    // page) up to `endSegment` (kNoIndex: to the end of the page). When the
    // packet ends on this page (`ends`), its end is set.
    void addPage(const OGGPage& page, uint64_t pageIndex, ByteSpan body, bool ends, uint64_t endSegment);

    // The packet's bytes; empty while its end has not been found.
    ByteSpan data() const { return hasEnd() ? ByteSpan(data_) : ByteSpan(); }
    Bytes& mutableData() { return data_; }
    bool hasEnd() const { return hasEnd_; }

    uint64_t startPage() const { return startPage_; }
    uint64_t endPage() const { return endPage_; }
    uint64_t startSegment() const { return startSegment_; }
    uint64_t endSegment() const { return endSegment_; }
    // File offset of the packet's first page (where its problems are logged).
    uint64_t offset() const { return offset_; }

  private:
    uint64_t startPage_ = 0;
    uint64_t endPage_ = OGGPage::kNoIndex;
    uint64_t startSegment_ = 0;
    uint64_t endSegment_ = OGGPage::kNoIndex;
    uint64_t offset_ = 0;
    bool hasEnd_ = false;
    Bytes data_;
};

}  // namespace sondrel
