#pragma once
// Checks one Ogg Vorbis or Ogg Opus file: walks every page (marker, stream
// serial number, page sequence, CRC, end of stream), cuts the identification
// and comment packets out of the first pages, checks them against the Vorbis
// and Opus header layouts, and hands the comments to the Vorbis comment
// reader of the FLAC checker.
#include <cstdint>
#include <optional>
#include <string>

#include "core/Tag.h"
#include "formats/flac_ogg/FlacTag.h"
#include "formats/flac_ogg/OGGPacket.h"
#include "formats/flac_ogg/OGGPage.h"

namespace sondrel {

class OggTag : public FlacTag {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    OggTag(const std::string& path, Tag& tag);

  private:
    class PageBlocks;
    enum Status { kCollectingIdentification, kCollectingComment, kHeadersDone };

    void readPages();
    // Feeds one page into the identification and comment packets while they
    // are being collected; false ends the walk.
    bool collectHeaderPackets(const OGGPage& page, uint64_t pageIndex, ByteSpan body);
    // Always true (the page walk goes on): past `limit` bytes the packet is
    // dropped with one line.
    bool withinBudget(OGGPacket& packet, uint64_t limit, const char* which);
    bool processv1();
    bool processv3();
    void endChecks();
    static bool testSignature(ByteSpan bytes, const char* pattern, size_t patternLength);

    std::optional<uint32_t> streamID;
    uint64_t pageCount = 0;
    uint64_t effectiveFileSize = 0;
    bool missingEOS = false;
    uint64_t firstGP = 0, lastGP = 0;
    uint64_t expectedPageNum = 0;
    uint8_t lastFlags = 0;
    uint64_t actualEOF = 0;
    std::optional<uint64_t> lastPageEnd;  // where the last page walked ends

    std::optional<OGGPacket> p1, p3;
    bool p1_good = false, p3_good = false;
    Status status = kCollectingIdentification;
    bool isVorbis = false, isOpus = false;
    size_t sigLength = 0;
    uint64_t channels = 0, sampleRate = 0, bitRateMin = 0, bitRateNominal = 0, bitRateMax = 0;
    bool VBR = false;
    uint64_t preSkip = 0;
    Bytes commentData;
    uint64_t commentSize = 0;
    bool overBudget = false;
};

}  // namespace sondrel
