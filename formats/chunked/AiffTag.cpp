#include "formats/chunked/AiffTag.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>

#include "core/Printf.h"

namespace sondrel {

namespace {

constexpr const char* kTooSmall = "Insufficient data to contain a valid AIFF file";
constexpr const char* kReadError = "Read error";
constexpr const char* kMissingForm = "Missing FORM chunk";
constexpr const char* kFormSizeMismatch =
    "The contained file size of %" PRIu64 " does not represent the adjusted file size of %" PRIu64;
constexpr const char* kInvalidFormType = "Invalid FORM type";
constexpr const char* kMissingComm = "Missing COMM chunk";
constexpr const char* kMoreThanOneComm = "More than one COMM chunk";
constexpr const char* kInvalidCommSize = "Invalid size for COMM chunk";
constexpr const char* kZeroSampleRate = "The sample rate is 0";
constexpr const char* kID3OneByteShort = "ID3 chunk overflows by one byte";
constexpr const char* kChunkOverflows =
    "Chunk overflows: size=%" PRIu64 ", next offset=%" PRIu64 ", file size=%" PRIu64;
// The first argument completes the opening word: "Audio c" or "C".
constexpr const char* kChunkOverflowsRecoverable =
    "%shunk overflows (recoverable): size=%" PRIu64 ", next offset=%" PRIu64 ", file size=%" PRIu64;
constexpr const char* kID3SizeMismatch = "ID3 contained size does not reflect chunk size";
constexpr const char* kMultipleID3 = "Multiple ID3 chunks";
// Arguments: the budget and what it counts ("chunks" or "ID3 chunks").
constexpr const char* kTooManyChunks = "Too many %s: the check stopped after %" PRIu64 " %s";

constexpr uint32_t kFORM = fourcc("FORM");
constexpr uint32_t kAIFF = fourcc("AIFF");
constexpr uint32_t kAIFC = fourcc("AIFC");
constexpr uint32_t kCOMM = fourcc("COMM");
constexpr uint32_t kSSND = fourcc("SSND");
constexpr uint32_t kID3 = fourcc("ID3 ");

constexpr uint64_t kHeaderSize = 12;      // "FORM", size, form type
constexpr uint64_t kChunkHeaderSize = 8;  // identifier, 32-bit size
constexpr uint64_t kCommFieldsSize = 18;  // channels, frames, sample size, 80-bit rate
constexpr uint64_t kSampleRateIndex = 8;  // of the rate within the COMM fields

// Real files hold a handful of chunks and at most a repeated ID3 chunk or
// two. A walk beyond these counts is looking at a file made to exhaust the
// checker (every repeated ID3 chunk costs a log line), and stops.
constexpr uint64_t kMaxChunks = 1000000;
constexpr uint64_t kMaxID3Chunks = 1000;

}  // namespace

double AiffTag::extendedToDouble(const uint8_t* p) {
    const bool negative = p[0] & 0x80;
    const int exponent = int(be16(p) & 0x7fff);
    const uint64_t mantissa = be64(p + 2);
    double value;
    if (exponent == 0x7fff) {
        // All exponent bits set: infinity when the fraction below the integer bit is zero.
        value = (mantissa << 1) == 0 ? std::numeric_limits<double>::infinity()
                                     : std::numeric_limits<double>::quiet_NaN();
    } else {
        // The mantissa is an integer with the binary point after its top bit;
        // a zero exponent field denotes a denormal, scaled as exponent 1.
        const int unbiased = (exponent == 0 ? 1 : exponent) - 16383 - 63;
        value = std::ldexp(double(mantissa), unbiased);
    }
    return negative ? -value : value;
}

AiffTag::AiffTag(const std::string& path, Tag& tag) : ID3Base(path, tag) {
    isAIFF = true;
    finishInit();
    closeTheFile();
}

void AiffTag::finishInit() {
    if (!setupFileForReading()) return;
    spanFile();  // false only means that the check stopped early
}

bool AiffTag::spanFile() {
    if (fileSize < kHeaderSize) {
        theTag->logError(kFatal, 0, kTooSmall);
        return false;
    }
    if (!fileHandle->readInto(0, dbuf, kHeaderSize)) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    if (get4b(0) != kFORM) {
        theTag->logError(kFatal, 0, kMissingForm);
        return false;
    }
    globalChunkSize = get4b(4);
    // The FORM content is padded to an even length; one trailing byte beyond
    // it is tolerated.
    const uint64_t evenFormSize = globalChunkSize + (globalChunkSize & 1);
    const uint64_t declaredEnd = kChunkHeaderSize + evenFormSize;
    if (declaredEnd != fileSize && declaredEnd != fileSize - 1)
        theTag->logError(kContainer, 0, stringWithFormat(kFormSizeMismatch, evenFormSize, fileSize - 8));
    const uint32_t formType = uint32_t(get4b(8));
    if (formType != kAIFF && formType != kAIFC) {
        theTag->logError(kFatal, 0, kInvalidFormType);
        return false;
    }
    effectiveSize = fileSize;
    if (declaredEnd == kHeaderSize) {
        // The FORM holds nothing but its type.
        theTag->logError(kFatal, fileSize, kMissingComm);
        return false;
    }

    bool commSeen = false;
    bool soundSeen = false;
    bool id3Decoded = false;
    // Chunks are numbered from 1 so that the adjacency of ID3 chunks can be told.
    uint64_t chunkNumber = 0;
    uint64_t firstID3 = 0;
    uint64_t lastID3 = 0;
    uint64_t id3Chunks = 0;
    calculatedSize = kHeaderSize;
    if (fileSize >= 21) {
        uint64_t offset = kHeaderSize;
        uint64_t size = 0;
        bool landedOnDeclaredEnd = false;
        do {
            if (++chunkNumber > kMaxChunks) {
                theTag->logError(kFatal, offset,
                                 stringWithFormat(kTooManyChunks, "chunks", kMaxChunks, "chunks"));
                return false;
            }
            if (!fileHandle->readInto(offset, dbuf, kChunkHeaderSize)) {
                theTag->logError(kFile, offset, kReadError);
                return false;
            }
            const uint32_t id = uint32_t(get4b(0));
            size = get4b(4);
            const uint64_t chunkEnd = offset + kChunkHeaderSize + size;  // the pad byte is not counted
            if (chunkEnd <= effectiveSize) {
                if (id == kSSND) {
                    soundSeen = true;
                } else if (id == kCOMM) {
                    if (commSeen) {
                        theTag->logError(kFatal, offset, kMoreThanOneComm);
                        return false;
                    }
                    if (!decodeCOMM(offset, size)) return false;
                    commSeen = true;
                }
            } else if (id == kID3 && (size & 1) == 0 && chunkEnd == effectiveSize + 1) {
                // A writer that counted the pad byte of an odd-sized tag in
                // the chunk size: the tag itself is whole.
                --size;
                theTag->logError(kContainer, offset, kID3OneByteShort);
            } else if (!soundSeen && id != kSSND) {
                theTag->logError(kFatal, offset,
                                 stringWithFormat(kChunkOverflows, size, chunkEnd, effectiveSize));
                return false;
            } else {
                // Called recoverable because the sound data is there, but the
                // walk cannot go past a chunk whose end is unknown.
                calculatedSize = offset;
                theTag->logError(kContainer, offset,
                                 stringWithFormat(kChunkOverflowsRecoverable, id == kSSND ? "Audio c" : "C",
                                                  size, chunkEnd, effectiveSize));
                return false;
            }

            if (id == kID3) {
                if (++id3Chunks > kMaxID3Chunks) {
                    theTag->logError(
                        kFatal, offset,
                        stringWithFormat(kTooManyChunks, "ID3 chunks", kMaxID3Chunks, "ID3 chunks"));
                    return false;
                }
                if (id3Decoded) {
                    // Only one tag is read. A duplicate right after the latest
                    // ID3 chunk is a writer's repeat; one elsewhere is fatal.
                    if (lastID3 == chunkNumber - 1) {
                        theTag->logError(kContainer, offset, kMultipleID3);
                        lastID3 = chunkNumber;
                    } else {
                        theTag->logError(kFatal, offset, kMultipleID3);
                        return false;
                    }
                } else {
                    if (!decodeID3(offset, size)) return false;
                    id3Decoded = true;
                    if (totalTagSize != size) theTag->logError(kContainer, offset, kID3SizeMismatch);
                    firstID3 = lastID3 = chunkNumber;
                }
            }

            offset += kChunkHeaderSize + size + (size & 1);
            if (offset == declaredEnd) {
                // The FORM's declared content is complete; later bytes are not examined.
                landedOnDeclaredEnd = true;
                break;
            }
        } while (offset + kChunkHeaderSize < effectiveSize);
        if (!landedOnDeclaredEnd) calculatedSize = offset - (size & 1);
    }

    if (!commSeen) {
        theTag->logError(kFatal, fileSize, kMissingComm);
        return false;
    }
    if (firstID3 == lastID3) return true;
    // Adjacent duplicate ID3 chunks: tolerated only at the end of the content.
    if (lastID3 != chunkNumber) {
        theTag->logError(kFatal, fileSize, kMultipleID3);
        return false;
    }
    calculatedSize = ID3EndOffset;
    theTag->logError(kContainer, fileSize, kMultipleID3);
    return true;
}

bool AiffTag::decodeCOMM(uint64_t offset, uint64_t size) {
    if (size < kCommFieldsSize) {
        theTag->logError(kFatal, offset, kInvalidCommSize);
        return false;
    }
    if (!fileHandle->readInto(offset + kChunkHeaderSize, dbuf, kCommFieldsSize)) {
        theTag->logError(kFile, offset, kReadError);
        return false;
    }
    const double rate = extendedToDouble(dbytes + kSampleRateIndex);
    frameSamplerate = truncatedUnsigned(rate);
    // Only an exact zero is reported; a rate that is not a number passes.
    if (rate == 0) theTag->logError(kContainer, offset, kZeroSampleRate);
    return true;
}

bool AiffTag::decodeID3(uint64_t offset, uint64_t size) {
    ID3ChunkOffset = offset;
    InPlaceSize = size + (size & 1);
    unadjustedSize = size;
    ID3EndOffset = offset + kChunkHeaderSize + InPlaceSize;

    // The tag starts right after the chunk header.
    return readEmbeddedTag(offset + kChunkHeaderSize);
}

}  // namespace sondrel
