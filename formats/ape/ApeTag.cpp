#include "formats/ape/ApeTag.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/ByteReader.h"
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
constexpr const char* kArtworkNoPrefix = "Artwork item is missing data prefix";
constexpr const char* kTooManyItems = "Too many tag items: the check stopped after {} items";

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
enum ItemKind : unsigned { kBinary = 1, kReserved = 3 };

// Real tags hold a few dozen items. A tag with more than this many is made to
// exhaust the checker (an item can cost a log line), and its walk stops.
constexpr uint64_t kMaxItems = 50000;
// The stretch of the item area held at once.
constexpr uint64_t kWindowSize = 65536;

// What the item walk needs of a key, gathered without holding the key whole:
// whether it is 7-bit ASCII, and its printable characters (those from 32 to
// 126), counted, of which the first few are kept for matching the names of
// artwork items.
struct ItemKey {
    static constexpr size_t kKept = 64;
    bool notASCII = false;
    uint64_t printable = 0;
    std::string start;

    bool isArtworkName() const {
        constexpr std::string_view kFront = "Cover Art (front)";
        constexpr std::string_view kPrefix = "Artwork-";
        const std::string_view s(start);
        return (printable == kFront.size() && text::equalsCaseInsensitive(s, kFront)) ||
               (s.size() >= kPrefix.size() &&
                text::equalsCaseInsensitive(s.substr(0, kPrefix.size()), kPrefix));
    }
};

// A window of at most kWindowSize bytes onto the item area
// [base, base + size) of the file. Positions are relative to the area; the
// callers keep them inside it.
class AreaWindow {
  public:
    AreaWindow(FileHandle& handle, uint64_t base, uint64_t size)
        : handle_(handle), base_(base), size_(size) {}

    // The `length` bytes (at most kWindowSize) at `pos`, or null when the
    // read fails or they do not lie inside the area.
    const uint8_t* at(uint64_t pos, uint64_t length) {
        if (length > kWindowSize || !fits(size_, pos, length)) return nullptr;
        if (pos >= start_ && fits(window_.size(), pos - start_, length))
            return window_.data() + (pos - start_);
        const uint64_t take = std::min(kWindowSize, size_ - pos);
        window_.resize(size_t(take));
        if (!handle_.readInto(base_ + pos, window_.data(), take)) {
            window_.clear();
            return nullptr;
        }
        start_ = pos;
        return window_.data() + (pos - start_);
    }

    // The position of the first zero byte in [pos, end), `end` when there is
    // none, or nullopt when a read fails.
    std::optional<uint64_t> findZero(uint64_t pos, uint64_t end) {
        if (end > size_) return std::nullopt;
        while (pos < end) {
            const uint64_t length = std::min(kWindowSize, end - pos);
            const uint8_t* p = at(pos, length);
            if (!p) return std::nullopt;
            if (const void* zero = std::memchr(p, 0, size_t(length)))
                return pos + uint64_t(static_cast<const uint8_t*>(zero) - p);
            pos += length;
        }
        return end;
    }

    // The facts about the key of `length` bytes at `pos`; nullopt when a read fails.
    std::optional<ItemKey> key(uint64_t pos, uint64_t length) {
        ItemKey key;
        if (!fits(size_, pos, length)) return std::nullopt;
        while (length > 0) {
            const uint64_t piece = std::min(kWindowSize, length);
            const uint8_t* p = at(pos, piece);
            if (!p) return std::nullopt;
            for (uint64_t i = 0; i < piece; ++i) {
                if (p[i] >= 0x80) key.notASCII = true;
                if (p[i] < 32 || p[i] > 126) continue;
                if (key.start.size() < ItemKey::kKept) key.start += char(p[i]);
                ++key.printable;
            }
            pos += piece;
            length -= piece;
        }
        return key;
    }

  private:
    FileHandle& handle_;
    uint64_t base_;
    uint64_t size_;
    uint64_t start_ = 0;
    Bytes window_;
};

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
    return b > ~uint64_t(0) - a ? ~uint64_t(0) : a + b;
}

}  // namespace

ApeTag::ApeTag(const std::string& path, Tag& tag) : theFile(path), theTag(&tag) {
    if (setupFileForReading() && verifyMarker()) {
        checkForID3V1Tag();
        checkForAPE();
    }
    validateFile();
    if (hasAPE) getAPETags();
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
    // Signature, version, size, item count, flags; the 32 bytes are all there.
    ByteReader fields(*footer);
    fields.skip(8);
    ape_version = fields.le32().value_or(0);
    ape_size = uint64_t(fields.le32().value_or(0)) - kFooterSize;
    ape_count = fields.le32().value_or(0);
    ape_flags = fields.le32().value_or(0);
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

    // The items are read as the walk reaches them; here it is only made sure
    // that the area lies inside the file (a size pointing before the file's
    // start has wrapped the base).
    if (!fits(fileSize, ape_base, ape_size)) {
        theTag->logError(kFile, 0, kReadError);
        return false;
    }
    hasAPE = true;
    return true;
}

void ApeTag::validateFile() {
    auto start = readAt(macStart, 6);
    if (!start) {
        theTag->logError(kFile, macStart, kReadError);
        return;
    }
    ByteReader fields(*start);
    fields.skip(4);
    macVersion = fields.le16().value_or(0);
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
    const uint64_t descriptorLength = ByteReader(*descriptor).le32().value_or(0);
    if (descriptorLength == kDescriptorLength) return true;
    if (!readAt(descriptorLength, 24)) {
        theTag->logError(kFile, macStart, kReadError);
        return false;
    }
    return true;
}

// Each item: value size (4), flags (4), key ending in a zero byte, value.
// The item area is never held whole (a tag may declare up to 4 GB of it): the
// walk reads it through a window, and every bound is checked against the
// area's size before a byte is used.
void ApeTag::getAPETags() {
    if (ape_count == 0) return;
    const uint64_t size = ape_size;
    AreaWindow area(*fileHandle, ape_base, size);
    itemCursor = 0;
    uint64_t step = 0;
    uint64_t done = 0;
    for (;;) {
        itemCursor += step;
        const uint64_t c = itemCursor;
        const uint64_t at = ape_base + c;
        if (c == size) return;
        if (done == kMaxItems) {
            theTag->logError(kFatal, at, fmt::format(kTooManyItems, kMaxItems));
            return;
        }
        if (c > size || size - c < 8) {
            theTag->logError(kFile, at, kItemOverflows);
            return;
        }
        const uint8_t* fields = area.at(c, 8);
        if (!fields) break;
        const uint64_t valueSize = le32(fields);
        // The value size is measured from the flags field, as the program
        // always has.
        if (valueSize + 4 > size - c) {
            theTag->logError(kFile, at, kItemOverflows);
            return;
        }
        const uint64_t itemFlags = ape_version == kApeV2 ? le32(fields + 4) : 0;

        const uint64_t keyStart = c + 8;
        if (keyStart >= size) {
            theTag->logError(kFile, at, kKeyNotTerminated);
            return;
        }
        std::optional<uint64_t> keyEnd = area.findZero(keyStart, size);
        if (!keyEnd) break;
        if (*keyEnd == size) {
            theTag->logError(kFile, at, kKeyNotTerminated);
            return;
        }
        const uint64_t keyLength = *keyEnd - keyStart;
        step = valueSize + 9 + keyLength;
        if (step > size - c) {
            theTag->logError(kFile, at, kItemOverflows);
            return;
        }
        std::optional<ItemKey> key = area.key(keyStart, keyLength);
        if (!key) break;

        if (keyLength == 0 || key->notASCII) {
            theTag->logError(kFile, at, kKeyEmpty);
        } else if (key->printable == 0) {
            theTag->logError(kFile, at, kKeyInvalid);
        } else {
            // A read-only item (bit 0) counts as a reserved, non-text kind.
            // Text values are not decoded: every byte string reads as ISO
            // Latin-1, so a text value can never fail to decode.
            const unsigned kind = (itemFlags & 1) ? kReserved : unsigned((itemFlags >> 1) & 3);
            if (kind == kBinary && key->isArtworkName()) {
                // Cover art values start with a file name ended by a zero byte.
                const uint64_t valueStart = *keyEnd + 1;
                std::optional<uint64_t> zero = area.findZero(valueStart, valueStart + valueSize);
                if (!zero) break;
                if (*zero == valueStart + valueSize) theTag->logError(kTagProblem, at, kArtworkNoPrefix);
            }
        }
        if (++done == ape_count) return;
    }
    // Only a failed read of bytes known to lie inside the file ends up here.
    theTag->logError(kFile, ape_base + itemCursor, kReadError);
}

}  // namespace sondrel
