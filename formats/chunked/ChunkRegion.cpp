#include "formats/chunked/ChunkRegion.h"

#include <utility>

namespace sondrel {

ChunkRegion& ChunkRegion::addSubchunk(ChunkRegion region) {
    if (!hasSubchunks_) {
        hasSubchunks_ = true;
        subchunks_.reserve(5);
    }
    subchunks_.push_back(std::move(region));
    return subchunks_.back();
}

ChunkRegion& ChunkRegion::addSubchunk(uint64_t offset, uint64_t size, uint32_t type) {
    return addSubchunk(ChunkRegion(offset, size, type));
}

}  // namespace sondrel
