#pragma once
// Checks one DSDIFF file: the FRM8 container and its declared size, the
// format version chunk, the property chunk with its sample rate, channel and
// compression properties, then the top-level chunks after it: exactly one
// sound chunk (DSD or DST, agreeing with the compression type) and ID3 chunks,
// which must follow the sound chunk. The last ID3 chunk is read as an ID3v2 tag.
#include <cstdint>
#include <optional>
#include <string>

#include "core/Tag.h"
#include "formats/chunked/ChunkRegion.h"
#include "formats/id3/ID3Base.h"

namespace sondrel {

class DffTag : public ID3Base {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    DffTag(const std::string& path, Tag& tag);

    // Root region (offset 32 to the file's end) holding the property region
    // and one region per top-level chunk after it; absent when the check
    // stopped before the property chunk.
    const std::optional<ChunkRegion>& getChunkTree() const { return chunkTree; }
    uint64_t getSampleRate() const { return frameSamplerate; }
    uint64_t getChannelMode() const { return frameChannelmode; }

  private:
    void finishInit();
    bool spanFile();
    bool walkProperties(uint64_t propSize, uint32_t& compression);
    // Reads `length` bytes at `pos` of the property data (of `propSize`
    // bytes) into `out`; bytes past the property data read as 0. False on a
    // failed read.
    bool propertyBytes(uint64_t pos, uint64_t propSize, uint8_t* out, uint64_t length);
    bool decodeID3(uint64_t offset);

    std::optional<ChunkRegion> chunkTree;
    uint64_t foffset = 0;
    bool havePropID3Chunk = false;
    bool haveRootID3Chunk = false;
    std::optional<ChunkRegion> lastID3Chunk;
};

}  // namespace sondrel
