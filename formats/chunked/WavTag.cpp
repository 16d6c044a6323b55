#include "formats/chunked/WavTag.h"

#include <cinttypes>
#include <cstdio>

#include "core/Bytes.h"
#include "core/LogError.h"
#include "core/Printf.h"

namespace sondrel {

namespace {

constexpr const char* kFileTooSmall = "File too small for header";
constexpr const char* kReadError = "Read error";
constexpr const char* kMissingRiffId = "Missing RIFF id";
constexpr const char* kNotWave = "The file is not marked as WAVE";
constexpr const char* kMissingDs64 = "Missing ds64 chunk for WAV-RF64 file";
constexpr const char* kOnlyDataExtended = "WAV-RF64 file only extended 'data' chunks can be processed";
constexpr const char* kInvalidChunkHeader = "Invalid chunk header";
constexpr const char* kTruncatedOverflow = "The file was truncated due to overflow";
constexpr const char* kRecovered = "The file was truncated due to overflow. Sufficient data to recover";
constexpr const char* kMoreThanOneData = "The file contains more than one data chunk";
constexpr const char* kMoreThanOneDs64 = "More than one ds64 chunk";
constexpr const char* kInvalidDs64 = "Invalid ds64 chunk data";
constexpr const char* kInvalidFmt = "Invalid fmt chunk data";
// Argument: the chunk budget.
constexpr const char* kTooManyChunks = "Too many chunks: the check stopped after %" PRIu64 " chunks";
// Arguments: "RF64" or "RIFF", the declared size, the file size - 8.
constexpr const char* kSizeMismatch =
    "The %s contained file size of %" PRIu64 " does not represent the adjusted file size of %" PRIu64;
// Arguments: chunk offset, data size, chunk end, file size, the four
// identifier bytes, " -data" when no data chunk was seen, " -fmt" when no
// format chunk was seen.
constexpr const char* kUnrecoverableChunk = "Unrecoverable chunk error:\n\n%010" PRIu64 " %010" PRIu64
                                            " %010" PRIu64 " %010" PRIu64 "  0x%02x 0x%02x 0x%02x 0x%02x%s%s";

constexpr uint32_t kRIFF = fourcc("RIFF");
constexpr uint32_t kRF64 = fourcc("RF64");
constexpr uint32_t kWAVE = fourcc("WAVE");
constexpr uint32_t kFmt = fourcc("fmt ");
constexpr uint32_t kData = fourcc("data");
constexpr uint32_t kDs64 = fourcc("ds64");
constexpr uint32_t kLIST = fourcc("LIST");
constexpr uint32_t kINFO = fourcc("INFO");
constexpr uint32_t kID3Upper = fourcc("ID3 ");
constexpr uint32_t kID3Lower = fourcc("id3 ");
constexpr uint32_t kBlanks = fourcc("    ");
// In RF64 a 32-bit size of all ones means "the 64-bit value in ds64 applies".
constexpr uint32_t kRF64Extended = 0xFFFFFFFF;

constexpr uint64_t kHeaderSize = 12;
constexpr uint64_t kChunkHeaderSize = 8;

// Real files hold a handful of chunks. A walk that meets more than this many
// is looking at a file made to exhaust the checker, and stops.
constexpr uint64_t kMaxChunks = 1000000;
// The region lists keep the file's first regions only; nothing later in the
// check reads them, and a file of millions of tiny chunks must not cost
// memory per chunk.
constexpr size_t kMaxRegions = 4096;

}  // namespace

WavTag::WavTag(const std::string& path, Tag& tag) : ID3Base(path, tag) {
    isMP3 = isAIFF = isDSF = isDFF = false;
    isWAV = true;
    finishInit();
    closeTheFile();
}

void WavTag::finishInit() {
    if (!setupFileForReading()) return;
    spanFile();  // false only means that the check stopped early
}

void WavTag::markRegion(uint64_t offset, uint64_t size, bool keep, bool odd, uint32_t chunkType,
                        bool addressFault, bool truncated) {
    ChunkRegion region(offset, size);
    region.setOddSize(odd);
    region.setChunkType(chunkType);
    region.setFault(addressFault);
    region.setTruncated(truncated);
    std::vector<ChunkRegion>& list = keep ? keepRegions : removeRegions;
    if (list.size() < kMaxRegions) list.push_back(std::move(region));
}

bool WavTag::validateChunkHeader(uint32_t identifier, uint64_t offset) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        uint32_t c = (identifier >> shift) & 0xFF;
        if (c < 32 || c > 126) {
            theTag->logError(kFraming, offset, kInvalidChunkHeader);
            return false;
        }
    }
    return true;
}

void WavTag::logUnrecoverableChunk(uint64_t offset, uint64_t size, uint32_t identifier, bool fmtSeen,
                                   bool dataSeen) {
    // The chunk end is computed as the format's arithmetic gives it, even when
    // an absurd 64-bit size makes it wrap.
    uint64_t end = offset + kChunkHeaderSize + size;
    theTag->logError(
        kFatal, offset,
        stringWithFormat(kUnrecoverableChunk, offset, size, end, fileSize, unsigned(identifier >> 24),
                         unsigned((identifier >> 16) & 0xFF), unsigned((identifier >> 8) & 0xFF),
                         unsigned(identifier & 0xFF), dataSeen ? "" : " -data", fmtSeen ? "" : " -fmt"));
}

bool WavTag::spanFile() {
    if (fileSize < kHeaderSize) {
        theTag->logError(kFatal, 0, kFileTooSmall);
        return false;
    }
    uint8_t header[kHeaderSize];
    if (!fileHandle->readInto(0, header, kHeaderSize)) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    uint32_t id = be32(header);
    if (id == kRF64) {
        isRF64 = true;
    } else if (id != kRIFF) {
        theTag->logError(kFatal, 0, kMissingRiffId);
        return false;
    }
    const uint32_t riffSize = le32(header + 4);
    if (be32(header + 8) != kWAVE) {
        theTag->logError(kFatal, 0, kNotWave);
        return false;
    }

    keepRegions.reserve(2);
    removeRegions.reserve(2);
    markRegion(0, kHeaderSize, true, false, kBlanks, false, false);

    if (fileSize >= kHeaderSize + kChunkHeaderSize) {
        bool expectingDs64 = true;
        bool ds64Seen = false, fmtSeen = false, dataSeen = false, truncated = false;
        uint64_t offset = kHeaderSize;
        uint64_t chunkCount = 0;
        for (;;) {
            if (++chunkCount > kMaxChunks) {
                theTag->logError(kFatal, offset, stringWithFormat(kTooManyChunks, kMaxChunks));
                return false;
            }
            uint8_t chunk[kChunkHeaderSize];
            if (!fileHandle->readInto(offset, chunk, kChunkHeaderSize)) {
                theTag->logError(kFile, offset, kReadError);
                return false;
            }
            const uint32_t identifier = be32(chunk);
            uint64_t size = le32(chunk + 4);

            if (isRF64) {
                // Only the first chunk must be ds64: it carries the 64-bit sizes.
                if (expectingDs64 && identifier != kDs64) {
                    theTag->logError(kFile, offset, kMissingDs64);
                    return false;
                }
                expectingDs64 = false;
                if (size == kRF64Extended) {
                    if (identifier != kData) {
                        theTag->logError(kFile, offset, kOnlyDataExtended);
                        return false;
                    }
                    size = rf64_data_size;
                }
            }

            if (!validateChunkHeader(identifier, offset)) {
                // A garbled header after the format and the data chunk is
                // taken as the end of the usable file; before them nothing
                // can be salvaged.
                if (!fmtSeen || !dataSeen) {
                    theTag->logError(kFraming, offset, kTruncatedOverflow);
                    logUnrecoverableChunk(offset, size, identifier, fmtSeen, dataSeen);
                    return false;
                }
                markRegion(offset, kChunkHeaderSize + size, keepRegion, size & 1, identifier, true, false);
                break;
            }

            // Overflow of the file's end; the pad byte is not counted, so an
            // odd last chunk without its pad byte passes.
            if (size > fileSize - offset - kChunkHeaderSize) {
                if (identifier == kData) dataSeen = true;
                if (identifier == kFmt) fmtSeen = true;
                if (!fmtSeen || !dataSeen) {
                    logUnrecoverableChunk(offset, size, identifier, fmtSeen, dataSeen);
                    return false;
                }
                size = fileSize - offset - kChunkHeaderSize;
                theTag->logError(kFraming, offset, kRecovered);
                truncated = true;
            }

            keepRegion = true;
            switch (identifier) {
                case kID3Upper:
                    have_ID3_chunk = true;
                    ++ID3Count;
                    lastID3Offset = offset;
                    keepRegion = false;
                    break;
                case kID3Lower:
                    have_id3_chunk = true;
                    ++ID3Count;
                    lastID3Offset = offset;
                    keepRegion = false;
                    break;
                case kLIST:
                    if (!processLISTChunkAtOffset(offset, size)) return false;
                    break;
                case kData:
                    if (!processDataChunkWithSize(size, offset)) return false;
                    dataSeen = true;
                    break;
                case kDs64:
                    if (ds64Seen) {
                        theTag->logError(kFraming, offset, kMoreThanOneDs64);
                        return false;
                    }
                    if (!processDS64ChunkAtOffset(offset, size)) return false;
                    ds64Seen = true;
                    break;
                case kFmt:
                    if (!processFormatChunkAtOffset(offset, size)) return false;
                    fmtSeen = true;
                    break;
                default:
                    break;
            }

            // A clipped chunk ends at the file's end, so the pad byte takes
            // the next offset past it and the walk ends below.
            markRegion(offset, kChunkHeaderSize + size + (size & 1), keepRegion, size & 1, identifier, false,
                       truncated);
            const uint64_t span = kChunkHeaderSize + size + (size & 1);
            if (span > fileSize - offset || kChunkHeaderSize > fileSize - offset - span) break;
            offset += span;
        }
    }

    // One trailing byte beyond the declared size is tolerated.
    uint64_t declared = riffSize;
    if (isRF64 && riffSize == kRF64Extended) declared = rf64_riff_size;
    if (declared + 8 != fileSize && declared + 8 != fileSize - 1) {
        theTag->logError(kContainer, 0,
                         stringWithFormat(kSizeMismatch, isRF64 ? "RF64" : "RIFF", declared, fileSize - 8));
    }

    if (ID3Count == 0) return true;
    // Only the last ID3 chunk in file order is read; earlier ones are ignored.
    if (!decodeID3(lastID3Offset)) return false;
    haveID3 = true;
    return true;
}

bool WavTag::processLISTChunkAtOffset(uint64_t offset, uint64_t size) {
    // Too small to hold a list type and one sub-chunk header: kept as it is.
    if (size < 12) return true;
    uint8_t listType[4];
    if (!fileHandle->readInto(offset + kChunkHeaderSize, listType, 4)) {
        theTag->logError(kFile, offset, kReadError);
        return false;
    }
    // INFO lists hold metadata that a tag writer replaces.
    if (be32(listType) == kINFO) keepRegion = false;
    return true;
}

bool WavTag::processDataChunkWithSize(uint64_t size, uint64_t offset) {
    // Kept quirk: a first data chunk of size 0 leaves dataSize at 0, so a
    // second data chunk then passes unremarked.
    if (dataSize != 0) {
        theTag->logError(kFatal, offset, kMoreThanOneData);
        return false;
    }
    dataSize = size;
    return true;
}

bool WavTag::processDS64ChunkAtOffset(uint64_t offset, uint64_t /*size*/) {
    if (!isRF64) {
        theTag->logError(kFatal, offset, kInvalidDs64);
        return true;
    }
    // The RIFF size and the data size lead the chunk; 16 bytes are read even
    // from a shorter chunk.
    uint8_t sizes[16];
    if (!fileHandle->readInto(offset + kChunkHeaderSize, sizes, sizeof sizes)) {
        theTag->logError(kFile, offset, kReadError);
        return false;
    }
    rf64_riff_size = le64(sizes);
    rf64_data_size = le64(sizes + 8);
    return true;
}

bool WavTag::processFormatChunkAtOffset(uint64_t offset, uint64_t size) {
    if (size < 16) {
        theTag->logError(kFatal, offset, kInvalidFmt);
        return false;
    }
    // The basic format fields, or the whole extensible form; read only to
    // prove that they are there.
    uint8_t format[40];
    const uint64_t length = size == 40 ? 40 : 16;
    if (!fileHandle->readInto(offset + kChunkHeaderSize, format, length)) {
        theTag->logError(kFile, offset, kReadError);
        return false;
    }
    return true;
}

bool WavTag::decodeID3(uint64_t offset) {
    // The tag starts right after the chunk header.
    return readEmbeddedTag(offset + kChunkHeaderSize);
}

}  // namespace sondrel
