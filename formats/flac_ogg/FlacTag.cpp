#include "formats/flac_ogg/FlacTag.h"

#include <cstring>
#include <utility>

#include "core/ByteReader.h"
#include "core/Text.h"
#include "formats/id3/ID3Base.h"

namespace sondrel {

namespace {

constexpr const char* kInvalidFileSize = "Invalid file size for FLAC file";
constexpr const char* kReadError = "Read error";
constexpr const char* kContainsID3 = "File contains an ID3 tag";
constexpr const char* kInvalidHeader = "Invalid FLAC header";
constexpr const char* kMissingStreamInfo = "Missing StreamInfo metadatablock";
constexpr const char* kShortStreamInfo = "Invalid STREAMINFO - insufficient data";
constexpr const char* kZeroSampleRate = "STREAMINFO frame sample rate is 0";
constexpr const char* kMissingVendor = "Missing Vendor string";
constexpr const char* kVendorOverflows = "The Vendor string overflows";
constexpr const char* kMissingCount = "Missing count of FLAC Comments";
constexpr const char* kCommentOverflows = "FLAC Comment overflows";
constexpr const char* kMissingEquals = "Missing = in FLAC Comment";
constexpr const char* kInvalidName = "FLAC Comment name contains invalid characters";
std::string controlInValueMessage(const std::string& name) {
    return "FLAC value for Comment '" + name + "' contains control characters";
}
constexpr const char* kArtOverflows = "Artwork block overflows";
constexpr const char* kArtPictureType = "Artwork block contains invalid picture type";
constexpr const char* kArtMimeNotASCII = "Artwork block mime type cannot be represented as ASCII";
constexpr const char* kArtIndirect = "Artwork block mime type is an indirect reference";
constexpr const char* kApplicationLength = "Invalid length for APPLICATION block";
constexpr const char* kCloseError = "Error closing the file";

// "fLaC" plus the smallest STREAMINFO block (4-byte header, 34 bytes of
// data) is 42 bytes.
constexpr uint64_t kMinimumFileSize = 42;

enum BlockType : uint32_t { kStreamInfo = 0, kApplication = 2, kVorbisComment = 4, kPicture = 6 };
constexpr uint32_t kPictureTypeCount = 21;
constexpr size_t kStreamInfoUsed = 18;

// A comment name may hold only the printable ASCII characters U+0020..U+007D
// without "=" (which ends the name); "~", U+007F and everything beyond ASCII
// are refused. Every non-ASCII character is encoded with bytes of 0x80 and
// above, so testing bytes is enough.
bool isValidNameByte(uint8_t c) {
    return c >= 0x20 && c <= 0x7d && c != '=';
}

}  // namespace

FlacTag::FlacTag(const std::string& path, Tag& tag, NoCheck) : theFile(path), theTag(&tag) {}

FlacTag::FlacTag(const std::string& path, Tag& tag) : FlacTag(path, tag, NoCheck{}) {
    if (!setupFileForReading() || !verifyMarker()) {
        closeFile();
        return;
    }
    // The first walk proves the chain sound and keeps only its first block;
    // the second walks the same headers again to examine the blocks. Keeping
    // no list of blocks lets a file of millions of tiny blocks cost no memory.
    std::optional<MetadataBlock> first;
    walkBlocks([&](const MetadataBlock& block) {
        if (!first) first = block;
        audioStart = block.end();
        return true;
    });
    // Any problem so far, of any kind (the notice about a leading ID3 tag
    // included), leaves the file with the block walk only.
    if (theTag->errorCount() == 0) {
        if (!first || first->blockType() != kStreamInfo) {
            theTag->logError(kFatal, 0, kMissingStreamInfo);
        } else if (decodeStreamInfo(*first)) {
            bool isFirst = true;
            walkBlocks([&](const MetadataBlock& block) {
                if (std::exchange(isFirst, false)) return true;
                switch (block.blockType()) {
                    case kVorbisComment:
                        return getTags(block);
                    case kPicture:
                        return getArt(block);
                    case kApplication:
                        handleApplicationData(block);
                        return true;
                    default:
                        return true;  // padding, seek table, cue sheet, reserved types
                }
            });
        }
    }
    closeFile();
}

void FlacTag::walkBlocks(const std::function<bool(const MetadataBlock&)>& visit) {
    uint64_t next = offset;
    for (;;) {
        MetadataBlock block;
        block.setFileHandle(fileHandle.get());
        block.setFileSize(fileSize);
        block.setTheTag(theTag);
        if (!block.getBlock(next) || !visit(block) || block.isLastBlock()) return;
        next = block.end();
    }
}

bool FlacTag::setupFileForReading() {
    fileHandle = theTag->setupFile(fileSize);
    if (!fileHandle) return false;
    if (fileSize < kMinimumFileSize) {
        theTag->logError(kFatal, 0, kInvalidFileSize);
        return false;
    }
    return true;
}

bool FlacTag::closeFile() {
    if (!fileHandle) return true;
    bool ok = fileHandle->closeTheFile();
    if (!ok && theTag->errorCount() == 0) theTag->logError(kFile, 0, kCloseError);
    fileHandle.reset();
    return ok;
}

bool FlacTag::closeTheFile() {
    if (!fileHandle) return true;
    bool ok = fileHandle->closeTheFile();
    if (!ok) theTag->logError(kFile, 0, kCloseError);
    fileHandle.reset();
    return ok;
}

bool FlacTag::verifyMarker() {
    uint8_t head[4];
    if (!fileHandle->readInto(0, head, sizeof head)) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    if (std::memcmp(head, "fLaC", 4) == 0) {
        offset = 4;
        return true;
    }
    if (std::memcmp(head, "ID3", 3) == 0) {
        // Logged before the tag is read, so the ID3 reader's own lines follow it.
        theTag->logError(kContainer, 0, kContainsID3);
        if (checkForID3() && spanForFlacMarker() && fileHandle->seekToOffset(realBase + 4)) {
            offset = realBase + 4;
            return true;
        }
    }
    theTag->logError(kFatal, 0, kInvalidHeader);
    return false;
}

bool FlacTag::checkForID3() {
    ID3Base reader(*theTag);
    return reader.flacEntryHandle(*fileHandle, fileSize, *theTag, realBase, realSize);
}

// Searches from the end of the ID3 tag to the end of the file in blocks of
// 10240 bytes that overlap by three, so a marker across two blocks is found.
bool FlacTag::spanForFlacMarker() {
    static const uint8_t kMarker[4] = {'f', 'L', 'a', 'C'};
    uint64_t found = fileHandle->spanForMarker(kMarker, sizeof kMarker, realBase, fileSize);
    if (found == FileHandle::kNotFound) return false;
    realBase = found;
    realSize = fileSize - found;
    return true;
}

std::optional<Bytes> FlacTag::readBlockData(const MetadataBlock& block) {
    // The walk has made sure that every block lies inside the file.
    auto data = fileHandle->readDataAtOffset(block.dataOffset(), block.length());
    if (!data) theTag->logError(kFile, block.dataOffset(), kReadError);
    return data;
}

bool FlacTag::decodeStreamInfo(const MetadataBlock& block) {
    if (block.length() < kStreamInfoUsed) {
        theTag->logError(kFatal, block.dataOffset(), kShortStreamInfo);
        return false;
    }
    uint8_t b[kStreamInfoUsed];
    if (!fileHandle->readInto(block.dataOffset(), b, sizeof b)) {
        theTag->logError(kFile, block.dataOffset(), kReadError);
        return false;
    }
    uint64_t minFrameSize = getData(b + 4, 3);
    uint64_t maxFrameSize = getData(b + 7, 3);
    frameIsVBR = minFrameSize != 0 && minFrameSize != maxFrameSize;
    frameSampleRate = getData(b + 10, 3) >> 4;
    frameNumberOfChannels = (b[12] >> 1) & 7;
    frameBitsPerSample = ((b[12] & 1u) << 4) + (b[13] >> 4) + 1;
    uint64_t totalSamples = (uint64_t(b[13] & 15) << 32) + getData(b + 14, 4);
    if (frameSampleRate == 0) {
        frameDuration_ms = 0;
        frameBitrate = 0;
        theTag->logError(kContainer, block.dataOffset(), kZeroSampleRate);
        return true;
    }
    frameDuration_ms = uint64_t(double(totalSamples) * 1000.0 / double(frameSampleRate));
    if (frameSampleRate <= totalSamples) {
        uint64_t seconds = totalSamples / frameSampleRate;
        uint64_t audioBytes = fileSize - audioStart;
        frameBitrate = audioBytes * 8 / seconds / 1000;
    } else {
        frameBitrate = 0;
    }
    return true;
}

bool FlacTag::getTags(const MetadataBlock& block) {
    auto data = readBlockData(block);
    if (!data) return false;
    errorDataOffset = block.dataOffset();
    return getTags(data->data(), data->size());
}

// The Vorbis comment layout: a 32-bit little-endian vendor length and the
// vendor text, a 32-bit count, then per comment a 32-bit length and the text
// "NAME=value". Fields are taken with a bounded reader: a length that runs
// past the structure is an overflow, never a read beyond it.
bool FlacTag::getTags(const uint8_t* bytes, uint64_t length) {
    if (length <= 3) {
        theTag->logError(kFraming, errorDataOffset, kMissingVendor);
        return true;
    }
    ByteReader r(bytes, size_t(length));
    uint64_t vendorLength = *r.le32();
    if (vendorLength > r.remaining()) {
        theTag->logError(kFraming, errorDataOffset + 4, kVendorOverflows);
        vendorLength = r.remaining();
        if (length == 4) return true;
    }
    // The vendor text must decode; the ISO Latin-1 fallback always does, and
    // the text itself is not kept.
    (void)text::decodeUTF8OrLatin1(*r.bytes(vendorLength));
    auto count = r.le32();
    if (!count) {
        theTag->logError(kFraming, errorDataOffset + vendorLength + 4, kMissingCount);
        return true;
    }
    if (*count == 0) return true;
    uint64_t done = 0;
    for (;;) {
        auto textLength = r.le32();
        if (!textLength) break;
        auto comment = r.bytes(*textLength);
        if (!comment) break;
        postField(text::decodeUTF8OrLatin1(*comment), r.pos() - comment->size());
        if (++done == *count) return true;
    }
    // Either a length field is missing (more comments were counted than the
    // block holds) or a text runs past the block; the reader stands at it.
    theTag->logError(kFraming, errorDataOffset + r.pos(), kCommentOverflows);
    return true;
}

void FlacTag::postField(const std::string& comment, uint64_t position) {
    uint64_t at = errorDataOffset + position;
    size_t equals = comment.find('=');
    if (equals == std::string::npos || equals == 0) {
        theTag->logError(kTagProblem, at, kMissingEquals);
        return;
    }
    std::string name = comment.substr(0, equals);
    for (unsigned char c : name) {
        if (!isValidNameByte(c)) {
            theTag->logError(kTagProblem, at, kInvalidName);
            return;
        }
    }
    if (text::containsDirt(std::string_view(comment).substr(equals + 1))) {
        theTag->logError(kTagProblem, at, controlInValueMessage(name));
    }
}

// PICTURE: picture type, MIME length and text, description length and text,
// width, height, depth, colour count, data length and data; all numbers are
// 32-bit big-endian. Every message is logged at the start of the block data.
// The fields are taken with a bounded reader, so a declared length can never
// lead a read past the block: a field that does not fit is an overflow.
bool FlacTag::getArt(const MetadataBlock& block) {
    auto data = readBlockData(block);
    if (!data) return false;
    errorDataOffset = block.dataOffset();
    auto overflows = [&] {
        theTag->logError(kFraming, errorDataOffset, kArtOverflows);
        return true;
    };
    ByteReader r(*data);
    if (r.size() <= 7) return overflows();
    if (*r.be32() >= kPictureTypeCount) theTag->logError(kFraming, errorDataOffset, kArtPictureType);
    auto mimeBytes = r.bytes(*r.be32());
    if (!mimeBytes) return overflows();
    auto mime = text::decodeASCII(*mimeBytes);
    if (!mime) {
        theTag->logError(kFraming, errorDataOffset, kArtMimeNotASCII);
        return false;
    }
    if (*mime == "-->") {
        theTag->logError(kFraming, errorDataOffset, kArtIndirect);
        return true;
    }
    auto descriptionLength = r.be32();
    if (!descriptionLength) return overflows();
    auto description = r.bytes(*descriptionLength);
    if (!description) return overflows();
    // Decodes as UTF-8 or else ISO Latin-1, so it cannot fail.
    (void)text::decodeUTF8OrLatin1(*description);
    // No room for the four picture numbers and the data length: silently accepted.
    if (!r.has(20)) return true;
    r.skip(16);
    auto image = r.bytes(*r.be32());
    if (!image) return overflows();
    if (auto problem = theTag->validateImage(image->data(), image->size(), *mime))
        theTag->logError(kFraming, errorDataOffset, std::move(*problem));
    return true;
}

void FlacTag::handleApplicationData(const MetadataBlock& block) {
    // Four bytes of registered application identifier are the least it holds.
    if (block.length() <= 3) theTag->logError(kContainer, block.offset(), kApplicationLength);
}

uint64_t FlacTag::getData(const uint8_t* bytes, unsigned count) {
    uint64_t v = 0;
    for (unsigned i = 0; i < count; ++i) v = (v << 8) | bytes[i];
    return v;
}

uint32_t FlacTag::getLE32Bits(const uint8_t* bytes) {
    return le32(bytes);
}

std::string FlacTag::allocUTF8StrAt(const uint8_t* bytes, uint64_t start, uint64_t length) {
    return text::decodeUTF8OrLatin1(ByteSpan(bytes + start, length));
}

}  // namespace sondrel
