#include "formats/chunked/DffTag.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "core/LogError.h"
#include "core/Printf.h"

namespace sondrel {

namespace {

constexpr const char* kInsufficientData = "Insufficient data to contain a valid DFF file";
constexpr const char* kReadError = "Read error";
// Arguments: the FRM8 size, the file size - 12.
constexpr const char* kSizeMismatch =
    "The contained file size of %" PRIu64 " does not represent the adjusted file size of %" PRIu64;
constexpr const char* kInvalidSignature = "Invalid DFF signature";
constexpr const char* kMissingFVER = "Missing FVER chunk";
constexpr const char* kMissingFVERSize = "Missing FVER chunk size";
constexpr const char* kMissingPROP = "Missing PROP chunk";
constexpr const char* kMissingFS = "Missing FS property";
constexpr const char* kMissingCHNL = "Missing CHNL property";
constexpr const char* kMissingCMPR = "Missing CMPR property";
constexpr const char* kDuplicateCHNL = "Duplicate CHNL property";
constexpr const char* kDuplicateCMPR = "Duplicate CMPR property";
constexpr const char* kDuplicateFS = "Duplicate FS property";
constexpr const char* kInvalidChannels = "Invalid number of channels (%" PRIu64 ")";
constexpr const char* kMissingSound = "Missing DSD or DST sound chunk";
// Arguments: the chunk's data size, the offset after it, the file size.
constexpr const char* kChunkOverflows =
    "Chunk overflows. size=%" PRIu64 ", next offset=%" PRIu64 ", file size=%" PRIu64;
constexpr const char* kMoreThanOneSound = "File contains more than one sound chunk";
constexpr const char* kSoundMismatch = "Sound chunk does not match compression type";
constexpr const char* kDstTooSmall = "DST chunk too small";
constexpr const char* kMissingFRTE = "Missing DST-FRTE chunk";
constexpr const char* kID3BeforeSound = "ID3 tag precedes sound chunk";
// Arguments: what is counted ("chunks" or "properties"), the budget, the same word.
constexpr const char* kTooMany = "Too many %s: the check stopped after %" PRIu64 " %s";

constexpr uint32_t kFRM8 = fourcc("FRM8");
constexpr uint32_t kDSD = fourcc("DSD ");
constexpr uint32_t kDST = fourcc("DST ");
constexpr uint32_t kFVER = fourcc("FVER");
constexpr uint32_t kPROP = fourcc("PROP");
constexpr uint32_t kSND = fourcc("SND ");
constexpr uint32_t kFS = fourcc("FS  ");
constexpr uint32_t kCHNL = fourcc("CHNL");
constexpr uint32_t kCMPR = fourcc("CMPR");
constexpr uint32_t kFRTE = fourcc("FRTE");
constexpr uint32_t kID3Upper = fourcc("ID3 ");
constexpr uint32_t kID3Lower = fourcc("id3 ");
constexpr uint32_t kRoot = fourcc("root");

// FRM8 header (12), form type (4), FVER chunk (12 + 4), PROP header (12).
constexpr uint64_t kFixedStart = 44;
constexpr uint64_t kPropOffset = 32;
constexpr uint64_t kChunkHeaderSize = 12;
// The smallest file that can hold the fixed start, the properties and a sound chunk.
constexpr uint64_t kMinimumFileSize = 128;
// The DST sound data opens with a frame-information chunk: its header and
// the 6 bytes of frame count and rate.
constexpr uint64_t kDstMinimum = 18;

// Real files hold a handful of chunks and properties. A walk that meets more
// than this many is looking at a file made to exhaust the checker, and stops.
constexpr uint64_t kMaxChunks = 1000000;
// The chunk tree keeps the first regions of each level only: nothing later in
// the check reads it, and millions of tiny chunks must not cost memory each.
constexpr size_t kMaxRegions = 4096;

// Channel count 1..6 to the channel-mode value; five channels skip the value 5.
constexpr uint64_t kChannelMode[] = {0, 1, 2, 3, 4, 6, 7};

// Chunks are padded to an even length; a size that cannot be rounded
// without wrapping stays as it is (it overruns any file anyway).
uint64_t roundedUp(uint64_t size) {
    return size == UINT64_MAX ? size : size + (size & 1);
}

}  // namespace

DffTag::DffTag(const std::string& path, Tag& tag) : ID3Base(path, tag) {
    isMP3 = isAIFF = isDSF = isWAV = false;
    isDFF = true;
    finishInit();
    closeTheFile();
}

void DffTag::finishInit() {
    if (!setupFileForReading()) return;
    spanFile();  // false only means that the check stopped early
}

bool DffTag::propertyBytes(uint64_t pos, uint64_t propSize, uint8_t* out, uint64_t length) {
    std::memset(out, 0, length);
    if (pos >= propSize) return true;
    return fileHandle->readInto(kFixedStart + pos, out, std::min(length, propSize - pos));
}

bool DffTag::spanFile() {
    if (fileSize < kMinimumFileSize) {
        theTag->logError(kFatal, 0, kInsufficientData);
        return false;
    }
    uint8_t start[kFixedStart];
    if (!fileHandle->readInto(0, start, kFixedStart)) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    // One trailing byte beyond the declared size is tolerated. The size is
    // checked before the signature.
    const uint64_t frm8Size = be64(start + 4);
    if (frm8Size + 12 != fileSize && frm8Size + 12 != fileSize - 1) {
        theTag->logError(kContainer, 0, stringWithFormat(kSizeMismatch, frm8Size, fileSize - 12));
    }
    if (be32(start) != kFRM8 || be32(start + 12) != kDSD) {
        theTag->logError(kFatal, 0, kInvalidSignature);
        return false;
    }
    if (be32(start + 16) != kFVER) {
        theTag->logError(kFatal, 0, kMissingFVER);
        return false;
    }
    if (be64(start + 20) != 4) {
        theTag->logError(kFatal, 0, kMissingFVERSize);
        return false;
    }
    if (be32(start + 32) != kPROP) {
        theTag->logError(kFatal, 36, kMissingPROP);
        return false;
    }

    const uint64_t propSize = roundedUp(be64(start + 36));
    chunkTree.emplace(kPropOffset, fileSize - kPropOffset, kRoot);
    uint32_t compression = 0;
    if (!walkProperties(propSize, compression)) return false;

    // The top-level chunks after the property chunk.
    if (propSize > fileSize - kChunkHeaderSize - kFixedStart) {
        theTag->logError(kFatal, 0, kMissingSound);
        return false;
    }
    foffset = kFixedStart + propSize;
    bool haveSound = false;
    uint64_t chunkCount = 0;
    for (;;) {
        if (++chunkCount > kMaxChunks) {
            theTag->logError(kFatal, foffset, stringWithFormat(kTooMany, "chunks", kMaxChunks, "chunks"));
            return false;
        }
        uint8_t header[kChunkHeaderSize];
        if (!fileHandle->readInto(foffset, header, kChunkHeaderSize)) {
            theTag->logError(kFile, foffset, kReadError);
            return false;
        }
        const uint32_t identifier = be32(header);
        const uint64_t size = be64(header + 4);
        const ChunkRegion region(foffset, size, identifier);
        if (chunkTree->subchunks().size() < kMaxRegions) chunkTree->addSubchunk(region);
        if (size > fileSize - foffset - kChunkHeaderSize) {
            theTag->logError(kFatal, foffset,
                             stringWithFormat(kChunkOverflows, size, foffset + size + 12, fileSize));
            return false;
        }
        const uint64_t padded = roundedUp(size);
        switch (identifier) {
            case kDSD:
                if (haveSound) {
                    theTag->logError(kFatal, foffset, kMoreThanOneSound);
                    return false;
                }
                haveSound = true;
                if (compression != kDSD) {
                    theTag->logError(kFatal, foffset, kSoundMismatch);
                    return false;
                }
                break;
            case kDST: {
                if (haveSound) {
                    theTag->logError(kFatal, foffset, kMoreThanOneSound);
                    return false;
                }
                if (compression != kDST) {
                    theTag->logError(kFatal, foffset, kSoundMismatch);
                    return false;
                }
                if (padded < kDstMinimum) {
                    theTag->logError(kFatal, foffset, kDstTooSmall);
                    return false;
                }
                // Only the frame-information header is read, never the sound.
                uint8_t frte[kDstMinimum];
                if (!fileHandle->readInto(foffset + kChunkHeaderSize, frte, kDstMinimum)) {
                    theTag->logError(kFile, foffset + kChunkHeaderSize, kReadError);
                    return false;
                }
                if (be32(frte) != kFRTE) {
                    theTag->logError(kFatal, foffset + kChunkHeaderSize, kMissingFRTE);
                    return false;
                }
                haveSound = true;
                break;
            }
            case kID3Upper:
            case kID3Lower:
                if (!haveSound) {
                    theTag->logError(kFatal, foffset, kID3BeforeSound);
                    return false;
                }
                haveRootID3Chunk = true;
                lastID3Chunk = region;
                break;
            default:
                break;
        }
        // The overflow test above keeps this sum within the file size + 1.
        const uint64_t next = foffset + kChunkHeaderSize + padded;
        if (next > fileSize - kChunkHeaderSize) break;
        foffset = next;
    }
    if (!haveSound) {
        theTag->logError(kFatal, 0, kMissingSound);
        return false;
    }
    if (lastID3Chunk) return decodeID3(lastID3Chunk->offset());
    return true;
}

bool DffTag::walkProperties(uint64_t propSize, uint32_t& compression) {
    // The root holds only this region yet, so the reference stays valid
    // until the walk below ends.
    ChunkRegion& propChunk = chunkTree->addSubchunk(kPropOffset, propSize, kPROP);
    // The property data is never held whole: after checking that all of it
    // lies inside the file, each property's header and first data bytes are
    // read as the walk reaches them.
    uint8_t head[kChunkHeaderSize + 4];
    if (!fits(fileSize, kFixedStart, propSize) || !propertyBytes(0, propSize, head, 4)) {
        theTag->logError(kFile, kFixedStart, kReadError);
        return false;
    }
    if (propSize < 4 || be32(head) != kSND) {
        theTag->logError(kFile, kFixedStart, kReadError);
        return false;
    }
    frameSamplerate = 0;
    if (propSize < 16) {
        theTag->logError(kFatal, kFixedStart, kMissingFS);
        return false;
    }

    bool haveFS = false, haveCHNL = false, haveCMPR = false;
    uint64_t pos = 4;
    uint64_t propertyCount = 0;
    for (;;) {
        if (++propertyCount > kMaxChunks) {
            theTag->logError(kFatal, kFixedStart + pos,
                             stringWithFormat(kTooMany, "properties", kMaxChunks, "properties"));
            return false;
        }
        // Header and the first 4 data bytes, which are all a property needs.
        if (!propertyBytes(pos, propSize, head, sizeof head)) {
            theTag->logError(kFile, kFixedStart, kReadError);
            return false;
        }
        const uint64_t propertyOffset = kFixedStart + pos;
        const uint32_t identifier = be32(head);
        const uint64_t size = roundedUp(be64(head + 4));
        const ChunkRegion region(propertyOffset, size, identifier);
        if (propChunk.subchunks().size() < kMaxRegions) propChunk.addSubchunk(region);
        const uint8_t* data = head + kChunkHeaderSize;
        switch (identifier) {
            case kCHNL: {
                if (haveCHNL) {
                    theTag->logError(kFatal, propertyOffset, kDuplicateCHNL);
                    return false;
                }
                const uint64_t channels = be16(data);
                if (channels < 1 || channels > 6) {
                    theTag->logError(kFatal, propertyOffset, stringWithFormat(kInvalidChannels, channels));
                    return false;
                }
                frameChannelmode = kChannelMode[channels];
                haveCHNL = true;
                break;
            }
            case kCMPR:
                if (haveCMPR) {
                    theTag->logError(kFatal, propertyOffset, kDuplicateCMPR);
                    return false;
                }
                compression = be32(data);
                haveCMPR = true;
                break;
            case kFS:
                if (haveFS) {
                    theTag->logError(kFatal, propertyOffset, kDuplicateFS);
                    return false;
                }
                frameSamplerate = be32(data);
                haveFS = true;
                break;
            case kID3Upper:
            case kID3Lower:
                havePropID3Chunk = true;
                lastID3Chunk = region;
                break;
            default:
                break;
        }
        // Go on while the next property's header still fits in the data.
        if (size > propSize - pos - kChunkHeaderSize) break;
        const uint64_t next = pos + kChunkHeaderSize + size;
        if (kChunkHeaderSize > propSize - next) break;
        pos = next;
    }

    if (!haveFS) {
        theTag->logError(kFatal, kFixedStart, kMissingFS);
        return false;
    }
    if (!haveCHNL) {
        theTag->logError(kFatal, kFixedStart, kMissingCHNL);
        return false;
    }
    if (!haveCMPR) {
        theTag->logError(kFatal, kFixedStart, kMissingCMPR);
        return false;
    }
    return true;
}

bool DffTag::decodeID3(uint64_t offset) {
    // The tag starts right after the chunk header.
    return readEmbeddedTag(offset + kChunkHeaderSize);
}

}  // namespace sondrel
