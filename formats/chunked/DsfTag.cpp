#include "formats/chunked/DsfTag.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <limits>

#include "core/Printf.h"

namespace sondrel {

namespace {

// Every message of this checker is logged at offset 0.
constexpr const char* kTooSmall = "Insufficient data to contain a valid DSF file";
constexpr const char* kReadError = "Read error";
constexpr const char* kInvalidSignature = "Invalid DSF file signature";
constexpr const char* kInvalidDsdSize = "Invalid size in DSD chunk";
constexpr const char* kFileSizeMismatch =
    "The contained file size of %" PRIu64 " does not match the actual file size of %" PRIu64;
constexpr const char* kTagPastEnd = "ID3 tag offset is past the end of the file";
constexpr const char* kInvalidFmtSignature = "Invalid fmt signature";
constexpr const char* kInvalidFmtSize = "Invalid fmt chunk size";
constexpr const char* kFormatNotOne = "File format is not 1";
constexpr const char* kInvalidBitsPerSample = "Invalid bits per sample";
constexpr const char* kUnexpectedFmtSize = "Unexpected fmt chunk size";
constexpr const char* kInvalidDataSignature = "Invalid data signature";
constexpr const char* kZeroSampleRate = "Frame Sample Rate is 0";
constexpr const char* kZeroDuration = "Duration is 0";
constexpr const char* kTagNotAtAddress = "ID3 tag not at specified address";
constexpr const char* kTagInsideAudio = "ID3 tag offset is inside audio data";

constexpr uint32_t kDSD = fourcc("DSD ");
constexpr uint32_t kFmt = fourcc("fmt ");
constexpr uint32_t kData = fourcc("data");

// The "DSD " chunk: identifier, its own size (always 28), total file size,
// metadata pointer (offset of the ID3v2 tag, 0 when there is none).
constexpr uint64_t kDsdChunkSize = 28;
constexpr uint64_t kTotalSizeIndex = 12;
constexpr uint64_t kMetadataPointerIndex = 20;
// The "fmt " chunk follows at 28: identifier, size, then the fields below.
constexpr uint64_t kFmtIndex = 28;
constexpr uint64_t kFmtSizeIndex = 32;
constexpr uint64_t kFormatVersionIndex = 40;
constexpr uint64_t kChannelTypeIndex = 48;
constexpr uint64_t kChannelCountIndex = 52;
constexpr uint64_t kSamplingFrequencyIndex = 56;
constexpr uint64_t kBitsPerSampleIndex = 60;
constexpr uint64_t kSampleCountIndex = 64;
constexpr uint64_t kBlockSizeIndex = 72;
constexpr uint64_t kMinFmtSize = 52;
// The "data" header (identifier and 64-bit size) is 12 bytes after the fmt
// chunk's 28 + size, and must still lie in the bytes read first.
constexpr uint64_t kDataHeaderTail = 12;
constexpr uint64_t kID3HeaderSize = 10;

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
    return b > std::numeric_limits<uint64_t>::max() - a ? std::numeric_limits<uint64_t>::max() : a + b;
}

}  // namespace

DsfTag::DsfTag(const std::string& path, Tag& tag) : ID3Base(path, tag) {
    isDSF = true;
    finishInit();
    closeTheFile();
}

void DsfTag::finishInit() {
    if (!setupFileForReading()) return;
    spanFile();  // false only means that the check stopped early
}

bool DsfTag::readTagAt(uint64_t offset) {
    tag1 = std::make_unique<ID3TagHeader>(offset);
    // A header that cannot fit in the file is refused silently, as the tag
    // reader itself would; tested here so that no offset sum can wrap.
    if (!fits(fileSize, offset, kID3HeaderSize) || !readID3Header(*tag1)) {
        tag1.reset();
        return false;
    }
    return true;
}

bool DsfTag::spanFile() {
    if (fileSize < kHeadSize) {
        theTag->logError(kFatal, 0, kTooSmall);
        return false;
    }
    if (!fileHandle->readInto(0, head, kHeadSize)) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    if (get4bFlipped(0) != kDSD) {
        theTag->logError(kFatal, 0, kInvalidSignature);
        return false;
    }
    if (get64bitLE(4) != kDsdChunkSize) {
        theTag->logError(kFatal, 0, kInvalidDsdSize);
        return false;
    }
    const uint64_t declaredFileSize = get64bitLE(kTotalSizeIndex);
    if (declaredFileSize != fileSize)
        theTag->logError(kContainer, 0, stringWithFormat(kFileSizeMismatch, declaredFileSize, fileSize));
    tagOffset = get64bitLE(kMetadataPointerIndex);
    if (tagOffset > fileSize) theTag->logError(kFatal, 0, kTagPastEnd);
    haveTag = tagOffset != 0;

    // These findings are reported but the fields are still used.
    if (get4bFlipped(kFmtIndex) != kFmt) theTag->logError(kFatal, 0, kInvalidFmtSignature);
    const uint64_t fmtSize = get64bitLE(kFmtSizeIndex);
    if (fmtSize < kMinFmtSize) theTag->logError(kFatal, 0, kInvalidFmtSize);
    if (get32bitLE(kFormatVersionIndex) != 1) theTag->logError(kFatal, 0, kFormatNotOne);
    const uint64_t bitsPerSample = get32bitLE(kBitsPerSampleIndex);
    if (bitsPerSample != 1 && bitsPerSample != 8) theTag->logError(kFatal, 0, kInvalidBitsPerSample);

    // Channel types run from 1 (mono) to 7 (5.1); 16 marks 8-bit samples.
    const uint64_t channelType = get32bitLE(kChannelTypeIndex);
    frameChannelmode = channelType < 8 ? channelType : 0;
    if (bitsPerSample == 8) frameChannelmode += 16;
    const uint64_t channelCount = get32bitLE(kChannelCountIndex);
    const uint64_t frequency = get32bitLE(kSamplingFrequencyIndex);
    frameSamplerate = frequency;
    const uint64_t sampleCount = get64bitLE(kSampleCountIndex);
    frameSampleSize = get32bitLE(kBlockSizeIndex);

    if (fmtSize > kHeadSize - kFmtIndex - kDataHeaderTail) {
        theTag->logError(kFatal, 0, kUnexpectedFmtSize);
        return false;
    }
    const uint64_t dataIndex = kFmtIndex + fmtSize;
    if (get4bFlipped(dataIndex) != kData) {
        theTag->logError(kFatal, 0, kInvalidDataSignature);
        return false;
    }
    // The data chunk's size counts its own header, so the audio ends here.
    const uint64_t audioEnd = saturatingAdd(dataIndex, get64bitLE(dataIndex + 4));

    if (frequency == 0) {
        frameBitrate = 0;
        frameDuration_ms = 0;
        theTag->logError(kContainer, 0, kZeroSampleRate);
    } else {
        frameDuration_ms = truncatedUnsigned(double(sampleCount) * 1000.0 / double(frequency));
        if (frameDuration_ms == 0) {
            theTag->logError(kContainer, 0, kZeroDuration);
            frameBitrate = 0;
        } else {
            frameBitrate =
                truncatedUnsigned(double(bitsPerSample) * double(channelCount) * double(frequency) / 1000.0);
        }
    }

    if (!haveTag) return true;
    if (tagOffset >= audioEnd) {
        if (!readTagAt(tagOffset)) {
            tagOffset = 0;
            if (missingID3) theTag->logError(kContainer, 0, kTagNotAtAddress);
            return false;
        }
    } else {
        // Some writers store a pointer into the audio; the tag usually
        // follows the data chunk directly.
        theTag->logError(kContainer, 0, kTagInsideAudio);
        if (!readTagAt(audioEnd)) {
            haveTag = false;
            tagOffset = 0;
            return false;
        }
        tagOffset = audioEnd;
    }
    haveValidTag = true;
    tagEndOffset = unsynchronizedAll ? totalTagSize : tag1->tagEndOffset;
    getFrames();
    return true;
}

}  // namespace sondrel
