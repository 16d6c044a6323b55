#pragma once
// One FLAC metadata block header: a byte holding the last-block flag (bit 7)
// and the block type (bits 0-6), then the length of the block data as a
// 24-bit big-endian number. The data follows the 4-byte header.
#include <cstdint>

#include "core/FileHandle.h"
#include "core/Tag.h"

namespace sondrel {

class MetadataBlock {
  public:
    void setFileHandle(FileHandle* handle) { fileHandle_ = handle; }
    void setFileSize(uint64_t size) { fileSize_ = size; }
    void setTheTag(Tag* tag) { theTag_ = tag; }

    // Reads the header at `headerOffset` and moves the handle past the block
    // data. False (with the problem logged) when the header cannot be read,
    // has the reserved type 127, or the data reaches the end of the file.
    bool getBlock(uint64_t headerOffset);

    uint64_t offset() const { return offset_; }
    bool isLastBlock() const { return isLastBlock_; }
    uint32_t blockType() const { return blockType_; }
    uint64_t dataOffset() const { return dataOffset_; }
    uint64_t length() const { return length_; }
    // Offset of the first byte after the block data.
    uint64_t end() const { return dataOffset_ + length_; }

    static uint32_t getLength(const uint8_t* bytes);

  private:
    FileHandle* fileHandle_ = nullptr;
    uint64_t fileSize_ = 0;
    Tag* theTag_ = nullptr;
    uint64_t offset_ = 0;
    bool isLastBlock_ = false;
    uint32_t blockType_ = 0;
    uint64_t dataOffset_ = 0;
    uint64_t length_ = 0;
};

}  // namespace sondrel
