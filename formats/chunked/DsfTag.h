#pragma once
// Checks one DSF (DSD stream) file: the "DSD " chunk with its file size and
// metadata pointer, the "fmt " chunk, the "data" chunk header, the derived
// duration and bit rate, and the ID3v2 tag that the metadata pointer names,
// falling back to the end of the audio data.
#include <cstdint>
#include <string>

#include "core/Tag.h"
#include "formats/id3/ID3Base.h"

namespace sondrel {

class DsfTag : public ID3Base {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    DsfTag(const std::string& path, Tag& tag);

  private:
    // The three chunk headers of a DSF file always lie in its first bytes.
    static constexpr uint64_t kHeadSize = 128;

    void finishInit();
    bool spanFile();
    // Reads a tag header at `offset`; false when no tag could be read there.
    bool readTagAt(uint64_t offset);

    uint32_t get4bFlipped(uint64_t index) const { return be32(dbytes + index); }
    uint64_t get32bitLE(uint64_t index) const { return le32(dbytes + index); }
    uint64_t get64bitLE(uint64_t index) const { return le64(dbytes + index); }

    uint8_t head[kHeadSize] = {};
    const uint8_t* dbytes = head;
    uint64_t tagOffset = 0;  // the metadata pointer, later where the tag was found; 0 when none
    bool haveTag = false;
};

}  // namespace sondrel
