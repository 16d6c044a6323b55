#include "formats/ape/WVTag.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "core/LogError.h"

namespace sondrel {

namespace {

constexpr const char* kReadError = "Read error";
constexpr const char* kMissingWvpk = "Missing 'wvpk' header";
constexpr const char* kInvalidVersion = "Invalid codec version";
constexpr const char* kUnknownRate = "The sample rate is unknown";
constexpr const char* kDamaged = "The audio stream appears to be damaged";
constexpr const char* kNoAudioInfo = "Cannot locate audio information";
constexpr const char* kTooManyBlocks = "Too many blocks: the check stopped after {} blocks";

// Block header (32 bytes, little-endian): "wvpk", block size - 8, stream
// version, high bytes of the 40-bit block index and total sample count, their
// low 32 bits, block samples, flags, CRC.
constexpr uint64_t kBlockHeaderSize = 32;
constexpr uint64_t kMinVersion = 1026;
constexpr uint64_t kMaxVersion = 1040;
constexpr uint32_t kFinalBlock = 0x1000;
constexpr uint32_t kRateMask = 0x7800000;
constexpr unsigned kRateShift = 23;
constexpr uint32_t kUnknownRateIndex = 15;
// A total sample count of all ones in the first block means "unknown".
constexpr uint64_t kUnknownSamples = 0xFFFFFFFF;
constexpr uint64_t kStretch = 10240;
// The walk normally ends with the first frame's final block (one block per
// channel pair). A chain of more blocks than this before a final one is made
// to exhaust the checker (a block can cost a log line), and the walk stops.
constexpr uint64_t kMaxBlocks = 100000;

uint64_t totalSamples(const uint8_t* h) {
    return (uint64_t(h[11]) << 32) | le32(h + 12);
}
uint64_t blockIndex(const uint8_t* h) {
    return (uint64_t(h[10]) << 32) | le32(h + 16);
}

}  // namespace

WVTag::WVTag(const std::string& path, Tag& tag) : ApeTag(path, tag, NoCheck{}) {
    isWavPack = true;
    // No ID3v1 probe for WavPack: the APE footer is always the last 32 bytes.
    if (setupFileForReading() && verifyMarker()) checkForAPE();
    if (!blk1.empty()) validateFile();
    if (hasAPE) getAPETags();
    closeFile();
}

bool WVTag::verifyMarker() {
    auto first = readAt(0, kBlockHeaderSize);
    if (!first) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    macSize = fileSize;
    if (!validateSignature(first->data(), 4, "wvpk")) {
        theTag->logError(kFile, 0, kMissingWvpk);
        return false;
    }
    blk1 = std::move(*first);
    return true;
}

// Walks the block headers from the first up to the first final block. The
// stream ends where the APE tag begins (macSize). Only the 32-byte headers
// are read.
void WVTag::validateFile() {
    Bytes header = std::move(blk1);
    blk1 = Bytes();
    uint64_t at = 0;
    uint32_t flags = 0;
    uint64_t index = 1;
    uint64_t blocks = 0;
    for (;;) {
        if (++blocks > kMaxBlocks) {
            theTag->logError(kFatal, at, fmt::format(kTooManyBlocks, kMaxBlocks));
            return;
        }
        const uint8_t* h = header.data();
        const uint64_t blockSize = le32(h + 4);
        if (uint32_t f = le32(h + 24)) flags = f;
        version = le16(h + 8);
        if (version < kMinVersion || version > kMaxVersion) {
            theTag->logError(kFile, at, kInvalidVersion);
            break;
        }
        if (uint64_t total = totalSamples(h)) sampleFrames = total;
        index = blockIndex(h);
        if (((flags & kRateMask) >> kRateShift) == kUnknownRateIndex)
            theTag->logError(kFile, at, kUnknownRate);
        if (flags & kFinalBlock) break;

        const uint64_t next = at + blockSize + 8;
        if (macSize < kBlockHeaderSize || next > macSize - kBlockHeaderSize) {
            theTag->logError(kFile, next, kDamaged);
            break;
        }
        auto nextHeader = readAt(next, kBlockHeaderSize);
        if (!nextHeader) {
            theTag->logError(kFile, next, kReadError);
            return;
        }
        if (!validateSignature(nextHeader->data(), 4, "wvpk")) {
            theTag->logError(kFile, next, kMissingWvpk);
            return;
        }
        header = std::move(*nextHeader);
        at = next;
    }
    if (index == 0 && sampleFrames != kUnknownSamples) return;
    lookForSampleFramesAtEnd();
}

// Searches backwards from the end of the stream, newest data first, for the
// last block header; when it is a final block, its block index plus its
// total-samples field is taken as the count (the sum is the program's rule).
// Consecutive stretches overlap by a header's 32 bytes.
void WVTag::lookForSampleFramesAtEnd() {
    sampleFrames = 0;
    bool found = false;
    uint64_t end = macSize;
    Bytes stretch;
    for (;;) {
        const uint64_t start = end < kStretch ? 0 : end - kStretch;
        const uint64_t length = end - start;
        if (length < kBlockHeaderSize) break;
        stretch.resize(length);
        if (!fileHandle || !fits(fileSize, start, length) ||
            !fileHandle->readInto(start, stretch.data(), length)) {
            theTag->logError(kFile, start, kReadError);
            break;
        }
        // The marker must lie within the first (length - 28) bytes, so the
        // fields up to the flags are inside the stretch.
        const uint64_t searchable = length - 28;
        const uint8_t* hit = nullptr;
        for (uint64_t i = searchable - 4 + 1; i-- > 0;) {
            if (std::memcmp(stretch.data() + i, "wvpk", 4) == 0) {
                hit = stretch.data() + i;
                break;
            }
        }
        if (hit) {
            if (le32(hit + 24) & kFinalBlock) {
                sampleFrames = blockIndex(hit) + totalSamples(hit);
                found = true;
            }
            break;
        }
        if (length != kStretch) break;
        end = start + kBlockHeaderSize;
    }
    if (!found || sampleFrames == 0) theTag->logError(kFile, 0, kNoAudioInfo);
}

}  // namespace sondrel
