#include "formats/flac_ogg/MetadataBlock.h"

namespace sondrel {

namespace {
constexpr const char* kReadError = "Read error";
constexpr const char* kInvalidBlockType = "Invalid metadata block type";
constexpr const char* kBlockOverflows = "Metadata block overflows";
constexpr const char* kSeekError = "Seek error";
constexpr uint32_t kReservedBlockType = 127;
}  // namespace

uint32_t MetadataBlock::getLength(const uint8_t* bytes) {
    return be24(bytes);
}

bool MetadataBlock::getBlock(uint64_t headerOffset) {
    offset_ = headerOffset;
    uint8_t header[4];
    if (!fileHandle_->readInto(offset_, header, sizeof header)) {
        theTag_->logError(kFile, offset_, kReadError);
        return false;
    }
    isLastBlock_ = (header[0] & 0x80) != 0;
    blockType_ = header[0] & 0x7f;
    dataOffset_ = offset_ + 4;
    length_ = getLength(header + 1);
    if (blockType_ == kReservedBlockType) {
        theTag_->logError(kFatal, offset_, kInvalidBlockType);
        return false;
    }
    // The block must end strictly before the end of the file: metadata is
    // followed by audio frames, so a file ending with its last block is
    // reported too.
    if (end() >= fileSize_) {
        theTag_->logError(kFatal, offset_, kBlockOverflows);
        return false;
    }
    if (!fileHandle_->seekToOffset(end())) {
        theTag_->logError(kFile, end(), kSeekError);
        return false;
    }
    return true;
}

}  // namespace sondrel
