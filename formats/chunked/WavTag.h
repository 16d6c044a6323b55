#pragma once
// Checks one WAV (RIFF/WAVE) or RF64 file: the file header, the top-level
// chunk walk with its pad bytes, the RF64 64-bit size chunk, the format, data,
// LIST and ID3 chunks, recovery from a last chunk that overruns the file, the
// declared RIFF size, and finally the last embedded ID3v2 tag.
#include <cstdint>
#include <string>
#include <vector>

#include "core/Tag.h"
#include "formats/chunked/ChunkRegion.h"
#include "formats/id3/ID3Base.h"

namespace sondrel {

class WavTag : public ID3Base {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    WavTag(const std::string& path, Tag& tag);

    // The chunks to keep and the chunks a tag writer would replace (ID3 and
    // LIST/INFO chunks), in file order; each list holds at most the first
    // 4096 such regions.
    const std::vector<ChunkRegion>& getKeepRegions() const { return keepRegions; }
    const std::vector<ChunkRegion>& getRemoveRegions() const { return removeRegions; }

  private:
    void finishInit();
    bool spanFile();
    void markRegion(uint64_t offset, uint64_t size, bool keep, bool odd, uint32_t chunkType,
                    bool addressFault, bool truncated);
    bool validateChunkHeader(uint32_t identifier, uint64_t offset);
    bool processFormatChunkAtOffset(uint64_t offset, uint64_t size);
    bool processDataChunkWithSize(uint64_t size, uint64_t offset);
    bool processDS64ChunkAtOffset(uint64_t offset, uint64_t size);
    bool processLISTChunkAtOffset(uint64_t offset, uint64_t size);
    bool decodeID3(uint64_t offset);
    void logUnrecoverableChunk(uint64_t offset, uint64_t size, uint32_t identifier, bool fmtSeen,
                               bool dataSeen);

    uint64_t dataSize = 0;
    bool haveID3 = false;
    std::vector<ChunkRegion> keepRegions;
    std::vector<ChunkRegion> removeRegions;
    bool keepRegion = false;
    uint64_t ID3Count = 0;
    uint64_t lastID3Offset = 0;  // of the last ID3 chunk header in file order
    bool have_id3_chunk = false;
    bool have_ID3_chunk = false;
    bool isRF64 = false;
    uint64_t rf64_riff_size = 0;
    uint64_t rf64_data_size = 0;
};

}  // namespace sondrel
