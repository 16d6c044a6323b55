#pragma once
// One chunk's span in a chunked file (RIFF/RF64, DSDIFF): where its header
// starts, how many bytes it covers, its identifier, and what the walk learned
// about it. Regions nest: a container chunk (the DSDIFF property chunk, the
// root of the chunk tree) holds the regions of the chunks inside it.
#include <cstdint>
#include <vector>

namespace sondrel {

class ChunkRegion {
  public:
    ChunkRegion(uint64_t offset, uint64_t size) : offset_(offset), size_(size) {}
    ChunkRegion(uint64_t offset, uint64_t size, uint32_t type)
        : offset_(offset), size_(size), chunkType_(type) {}

    // File offset of the chunk header.
    uint64_t offset() const { return offset_; }
    void setOffset(uint64_t v) { offset_ = v; }
    // Bytes covered (what a walk counts: header and pad byte included for RIFF).
    uint64_t size() const { return size_; }
    void setSize(uint64_t v) { size_ = v; }
    // The span ends at a chunk whose header was invalid.
    bool fault() const { return fault_; }
    void setFault(bool v) { fault_ = v; }
    // The declared data size is odd (a pad byte follows the data).
    bool oddSize() const { return oddSize_; }
    void setOddSize(bool v) { oddSize_ = v; }
    // Recorded after an overflow of the file's end that could be recovered.
    bool truncated() const { return truncated_; }
    void setTruncated(bool v) { truncated_ = v; }
    // The four identifier bytes as a big-endian number.
    uint32_t chunkType() const { return uint32_t(chunkType_); }
    void setChunkType(uint32_t v) { chunkType_ = v; }

    // The nested regions, in file order.
    const std::vector<ChunkRegion>& subchunks() const { return subchunks_; }
    // True once a nested region list exists, even an empty one.
    bool hasSubchunks() const { return hasSubchunks_; }
    ChunkRegion& addSubchunk(ChunkRegion region);
    ChunkRegion& addSubchunk(uint64_t offset, uint64_t size, uint32_t type);
    // Replaces all nested regions by a copy of `regions`.
    void addSubchunks(const std::vector<ChunkRegion>& regions) {
        subchunks_ = regions;
        hasSubchunks_ = true;
    }

  private:
    uint64_t offset_ = 0;
    uint64_t size_ = 0;
    bool fault_ = false;
    bool oddSize_ = false;
    bool truncated_ = false;
    uint64_t chunkType_ = 0;
    bool hasSubchunks_ = false;
    std::vector<ChunkRegion> subchunks_;
};

}  // namespace sondrel
