#include "formats/ape/ApeTag.h"

#include <algorithm>
#include <cstring>

#include "core/LogError.h"
#include "core/Text.h"
#include "formats/id3/ID3Base.h"

namespace sondrel {

namespace {

constexpr const char* kInvalidFileSize = "Invalid file size for APE file";
constexpr const char* kReadError = "Read error";
constexpr const char* kCloseError = "Error closing the file";
constexpr const char* kID3ExtractError = "Error extracting ID3v2 tag";
constexpr const char* kHasID3v2 = "File contains an ID3v2 tag";
constexpr const char* kMissingMAC = "Missing 'MAC ' header";
constexpr const char* kHasID3v1 = "Contains an ID3V1 tag";
constexpr const char* kCannotExtract = "Cannot extract file properties";
constexpr const char* kNoAudioProperties = "Cannot determine audio properties";
constexpr const char* kItemOverflows = "Tag Item overflows";
constexpr const char* kKeyNotTerminated = "Tag Item key name not terminated";
constexpr const char* kKeyEmpty = "Tag Item key is empty";
constexpr const char* kKeyInvalid = "Tag Item key is invalid";
constexpr const char* kCannotDecode = "Cannot decode tag item value";
constexpr const char* kArtworkNoPrefix = "Artwork item is missing data prefix";

// Files of 41 bytes or less are refused as too small for either format.
constexpr uint64_t kMinimumFileSize = 42;
constexpr uint64_t kFooterSize = 32;
constexpr uint64_t kID3v1Size = 128;
// Stream headers of this version and later use the descriptor layout.
constexpr uint64_t kNewLayoutVersion = 3980;
constexpr uint64_t kDescriptorLength = 52;
// Version 2000 is APEv2 (item flags, header, UTF-8); 1000 and anything else
// is read by the APEv1 rules.
constexpr uint32_t kApeV2 = 2000;
constexpr uint32_t kHasHeaderFlag = 0x80000000u;

// Item kinds from flag bits 1..2: text, binary, external link, reserved.
enum ItemKind : unsigned { kText = 0, kBinary = 1, kReserved = 3 };

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
    return b > ~uint64_t(0) - a ? ~uint64_t(0) : a + b;
}

bool startsWithCaseInsensitive(const std::string& s, std::string_view prefix) {
    return s.size() >= prefix.size() &&
           text::equalsCaseInsensitive(std::string_view(s).substr(0, prefix.size()), prefix);
}

}  // namespace

ApeTag::ApeTag(const std::string& path, Tag& tag) : theFile(path), theTag(&tag) {
    if (setupFileForReading() && verifyMarker()) {
        checkForID3V1Tag();
        checkForAPE();
    }
    validateFile();
    if (hasAPE) getAPETags();
    ape_data = Bytes();
    closeFile();
}

ApeTag::ApeTag(const std::string& path, Tag& tag, NoCheck) : theFile(path), theTag(&tag) {}

ApeTag::~ApeTag() = default;

bool ApeTag::setupFileForReading() {
    fileHandle = theTag->setupFile(fileSize);
    if (!fileHandle) return false;
    if (fileSize < kMinimumFileSize) {
        theTag->logError(kFile, 0, kInvalidFileSize);
        return false;
    }
    return true;
}

bool ApeTag::closeFile() {
    if (!fileHandle) return true;
    bool ok = fileHandle->closeTheFile();
    if (!ok) theTag->logError(kFile, 0, kCloseError);
    fileHandle.reset();
    return ok;
}

uint64_t ApeTag::getData(const uint8_t* p, unsigned count) {
    if (!p) p = nextByte;
    uint64_t value = 0;
    for (unsigned i = 0; i < count && i < 8; ++i) value |= uint64_t(p[i]) << (8 * i);
    nextByte = p + count;
    return value;
}

bool ApeTag::validateSignature(const uint8_t* bytes, size_t count, const char* pattern) {
    return count == 0 || std::memcmp(bytes, pattern, count) == 0;
}

std::optional<Bytes> ApeTag::readAt(uint64_t offset, uint64_t length) {
    if (!fileHandle || !fits(fileSize, offset, length)) return std::nullopt;
    return fileHandle->readDataAtOffset(offset, length);
}

bool ApeTag::verifyMarker() {
    auto start = readAt(0, 8);
    if (!start) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    macSize = fileSize;
    if (validateSignature(start->data(), 4, "MAC ")) return true;
    if (validateSignature(start->data(), 3, "ID3") && !checkForID3()) {
        theTag->logError(kFile, 0, kID3ExtractError);
        return false;
    }
    return spanForApeMarker();
}

// The stream header may follow junk (or a tag the reader skipped): search
// the rest of the file for it.
bool ApeTag::spanForApeMarker() {
    static const uint8_t marker[] = {'M', 'A', 'C', ' '};
    uint64_t found = fileHandle->spanForMarker(marker, 4, macStart, saturatingAdd(macStart, macSize));
    if (found == FileHandle::kNotFound || !fileHandle->seekToOffset(found + 4)) {
        theTag->logError(kFile, 0, kMissingMAC);
        return false;
    }
    macStart = found;
    macSize = fileSize - found;
    return true;
}

// A leading ID3v2 tag is read into the record by the ID3 reader, which moves
// the stream's start behind it.
bool ApeTag::checkForID3() {
    ID3Base reader(*theTag);
    bool ok = reader.flacEntryHandle(*fileHandle, fileSize, *theTag, macStart, macSize);
    if (ok) theTag->logError(kFile, 0, kHasID3v2);
    return ok;
}

void ApeTag::checkForID3V1Tag() {
    if (fileSize < kID3v1Size + 1) return;
    uint64_t at = fileSize - kID3v1Size;
    auto probe = readAt(at, 3);
    if (!probe) {
        theTag->logError(kFile, at, kReadError);
        return;
    }
    if (validateSignature(probe->data(), 3, "TAG")) {
        theTag->logError(kFile, at, kHasID3v1);
        hasID3V1 = true;
    }
}

// The tag is found through its footer at the end of the file (before an
// ID3v1 tag). Offsets are computed in unsigned arithmetic as the format's
// sizes give them: a size that points before the start of the file wraps to
// an offset that cannot be read, which is reported as a read error.
bool ApeTag::checkForAPE() {
    uint64_t footerOffset = fileSize - kFooterSize - (hasID3V1 ? kID3v1Size : 0);
    auto footer = readAt(footerOffset, kFooterSize);
    if (!footer) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    if (!validateSignature(footer->data(), 8, "APETAGEX")) return false;
    ape_version = getData(footer->data() + 8, 4);
    ape_size = getData(nullptr, 4) - kFooterSize;
    ape_count = getData(nullptr, 4);
    ape_flags = getData(nullptr, 4);
    ape_base = footerOffset - ape_size;
    macSize = ape_base - macStart;

    // The optional header is looked for directly in front of the footer, not
    // in front of the items, so only an item-less tag has its header found.
    if (ape_version == kApeV2) {
        ape_hasHeader = (ape_flags & kHasHeaderFlag) != 0;
        if (ape_hasHeader) {
            auto header = readAt(footerOffset - kFooterSize, kFooterSize);
            if (!header) {
                theTag->logError(kFile, 0, kReadError);
                return false;
            }
            if (validateSignature(header->data(), 8, "APETAGEX")) macSize -= kFooterSize;
        }
    }

    auto items = readAt(ape_base, ape_size);
    if (!items) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    ape_data = std::move(*items);
    hasAPE = true;
    return true;
}

void ApeTag::validateFile() {
    auto start = readAt(macStart, 6);
    if (!start) {
        theTag->logError(kFile, macStart, kReadError);
        return;
    }
    macVersion = getData(start->data() + 4, 2);
    bool ok = macVersion < kNewLayoutVersion ? validateOld() : validateNew();
    if (!ok) theTag->logError(kFile, macStart, kCannotExtract);
}

// Old layout: a fixed header, then the WAVE header of the original file,
// whose "fmt " chunk gives the audio properties.
bool ApeTag::validateOld() {
    auto fixed = readAt(saturatingAdd(macStart, 6), 26);
    std::optional<Bytes> wave;
    if (fixed) wave = readAt(saturatingAdd(macStart, 32), 44);
    if (!wave) {
        theTag->logError(kFile, macStart, kReadError);
        return false;
    }
    if (!validateSignature(wave->data() + 16, 8, "WAVEfmt "))
        theTag->logError(kFile, macStart, kNoAudioProperties);
    return true;
}

// New layout: a descriptor whose first field is its own length; when it is
// not the usual 52 the stream header is read at that length taken as an
// absolute file offset (not relative to the stream's start), as the program
// always has.
bool ApeTag::validateNew() {
    auto descriptor = readAt(saturatingAdd(macStart, 8), 68);
    if (!descriptor) {
        theTag->logError(kFile, macStart, kReadError);
        return false;
    }
    uint64_t descriptorLength = getData(descriptor->data(), 4);
    if (descriptorLength == kDescriptorLength) return true;
    if (!readAt(descriptorLength, 24)) {
        theTag->logError(kFile, macStart, kReadError);
        return false;
    }
    return true;
}

// Each item: value size (4), flags (4), key ending in a zero byte, value.
// Every bound is checked against the item area before a byte is used.
void ApeTag::getAPETags() {
    if (ape_count == 0) return;
    const uint64_t size = ape_data.size();
    const uint8_t* area = ape_data.data();
    itemCursor = 0;
    uint64_t step = 0;
    uint64_t done = 0;
    for (;;) {
        itemCursor += step;
        const uint64_t c = itemCursor;
        const uint64_t at = ape_base + c;
        if (c == size) return;
        if (c > size || size - c < 8) {
            theTag->logError(kFile, at, kItemOverflows);
            return;
        }
        const uint64_t valueSize = getData(area + c, 4);
        // The value size is measured from the flags field, as the program
        // always has.
        if (valueSize + 4 > size - c) {
            theTag->logError(kFile, at, kItemOverflows);
            return;
        }
        const uint64_t itemFlags = ape_version == kApeV2 ? getData(nullptr, 4) : 0;

        const uint64_t keyStart = c + 8;
        if (keyStart >= size) {
            theTag->logError(kFile, at, kKeyNotTerminated);
            return;
        }
        const uint8_t* keyEnd = static_cast<const uint8_t*>(std::memchr(area + keyStart, 0, size - keyStart));
        if (!keyEnd) {
            theTag->logError(kFile, at, kKeyNotTerminated);
            return;
        }
        const uint64_t keyLength = uint64_t(keyEnd - (area + keyStart));
        step = valueSize + 9 + keyLength;
        if (step > size - c) {
            theTag->logError(kFile, at, kItemOverflows);
            return;
        }
        const ByteSpan value(area + keyStart + keyLength + 1, valueSize);

        auto key = text::decodeASCII(ByteSpan(area + keyStart, keyLength));
        if (!key || key->empty()) {
            theTag->logError(kFile, at, kKeyEmpty);
        } else {
            std::string cleaned = *key;
            std::erase_if(cleaned, [](char ch) { return ch < 32 || ch > 126; });
            if (cleaned.empty()) {
                theTag->logError(kFile, at, kKeyInvalid);
            } else {
                // A read-only item (bit 0) counts as a reserved, non-text kind.
                const unsigned kind = (itemFlags & 1) ? kReserved : unsigned((itemFlags >> 1) & 3);
                if (kind != kText) {
                    if (kind == kBinary && (text::equalsCaseInsensitive(cleaned, "Cover Art (front)") ||
                                            startsWithCaseInsensitive(cleaned, "Artwork-")))
                        getArtwork(value);
                } else {
                    std::optional<std::string> decoded;
                    if (ape_version == kApeV2) decoded = text::decodeUTF8(value);
                    if (!decoded) decoded = text::decodeLatin1(value);
                    if (!decoded) decoded = text::decodeASCII(value);
                    if (!decoded) theTag->logError(kFile, at, kCannotDecode);
                }
            }
        }
        if (++done == ape_count) return;
    }
}

// Cover art values start with a file name ended by a zero byte.
void ApeTag::getArtwork(ByteSpan value) {
    if (std::find(value.begin(), value.end(), uint8_t(0)) == value.end())
        theTag->logError(kTagProblem, ape_base + itemCursor, kArtworkNoPrefix);
}

}  // namespace sondrel
