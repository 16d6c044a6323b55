#include "formats/id3/ID3Base.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "formats/id3/ID3Frame.h"

namespace sondrel {

namespace {

constexpr const char* kInvalidFileSize = "Invalid file size";
constexpr const char* kErrorClosing = "Error closing the file";
constexpr const char* kReadError = "Read error";
constexpr const char* kInvalidVersion = "Invalid ID3 version 2.{}.{}";
constexpr const char* kNonStandardVersion = "Non standard ID3 version 2.1";
constexpr const char* kInvalidFooterVersion = "Invalid ID3 version 2.{} footer tag";
constexpr const char* kFooterFlagMissing = "Required ID3 footer flag not set in version 2.4";
constexpr const char* kCompressionV22 = "Compression not supported in ID3 version 2.2";
constexpr const char* kInvalidFlagBits = "Invalid flag bits in ID3 header";
constexpr const char* kExperimental = "Experimental bit is set in the tag header";
constexpr const char* kSizeZero = "Invalid ID3 tag size of 0";
constexpr const char* kInvalidFooterSize = "Invalid size for ID3 footer tag";
constexpr const char* kOverflowsFile = "ID3 tag overflows the file";
constexpr const char* kInvalidExtendedHeader = "Invalid extended header size";
constexpr const char* kFrameOverrun = "Frame overrun";
constexpr const char* kOverflowsAudio = "The ID3 tag overflows into the audio stream";
constexpr const char* kInvalidFrameSize = "Invalid frame size";
constexpr const char* kInvalidFrame = "Invalid frame";
constexpr const char* kInvalidFrameAfter = "Invalid frame. Previous frame at {}";
constexpr const char* kTooManyFrames = "Too many frames: the check stopped after {} frames";

// Real tags hold dozens of frames, rarely a few thousand. A tag with more than
// this many is made to exhaust the checker (each frame may store an item and
// log problems), and its walk stops.
constexpr uint64_t kMaxFrames = 100000;
// A tag is read whole (unsynchronisation and the frame walk need it), so its
// size is the checker's memory. Real tags, even with several large pictures,
// stay far below this; a larger one is reported and passed over.
constexpr uint64_t kMaxTagBytes = 64 * 1024 * 1024;
constexpr const char* kTagTooLarge =
    "ID3 tag of {} bytes is larger than the {} bytes this check reads; it was not checked";

// Header flags.
constexpr uint64_t kFlagUnsynchronised = 0x80;
constexpr uint64_t kFlagExtendedHeader = 0x40;  // compression in v2.2
constexpr uint64_t kFlagExperimental = 0x20;
constexpr uint64_t kFlagFooter = 0x10;

// An MPEG-1 Layer III frame sync without CRC: where it stands, the tag has
// run into the audio.
constexpr uint64_t kMPEGSync = 0xFFFB;

// Undoes unsynchronisation in place: a 00 that follows an FF was inserted by
// the writer. Returns the compacted length.
uint64_t resynchronise(uint8_t* d, uint64_t length) {
    uint64_t out = 0;
    for (uint64_t in = 0; in < length; ++in) {
        d[out++] = d[in];
        if (d[in] == 0xFF && in + 1 < length && d[in + 1] == 0x00) ++in;
    }
    return out;
}

}  // namespace

ID3Base::ID3Base(const std::string& path, Tag& tag) : theTag(&tag), theFile(path) {}
ID3Base::ID3Base(Tag& tag) : theTag(&tag) {}
ID3Base::~ID3Base() = default;

bool ID3Base::setupFileForReading() {
    ownedHandle = theTag->setupFile(fileSize);
    fileHandle = ownedHandle.get();
    if (!fileHandle) return false;
    if (fileSize <= 10) {
        theTag->logError(kFatal, 0, kInvalidFileSize);
        return false;
    }
    return true;
}

bool ID3Base::closeTheFile() {
    bool ok = true;
    if (ownedHandle) {
        ok = ownedHandle->closeTheFile();
        if (!ok) theTag->logError(kFile, 0, kErrorClosing);
        ownedHandle.reset();
    }
    fileHandle = nullptr;
    return ok;
}

bool ID3Base::readEmbeddedTag(uint64_t tagOffset, bool isFooter) {
    const size_t before = theTag->errorCount();
    tag1 = std::make_unique<ID3TagHeader>(tagOffset);
    tag1->isFooter = isFooter;
    if (!readID3Header(*tag1)) {
        tag1.reset();
        if (theTag->errorCount() != before) return false;
    }
    haveValidTag = true;
    tagEndOffset = unsynchronizedAll ? totalTagSize : (tag1 ? tag1->tagEndOffset : 0);
    getFrames();
    return true;
}

bool ID3Base::flacEntryHandle(FileHandle& handle, uint64_t size, Tag& tag, uint64_t& base, uint64_t& length) {
    tag1 = std::make_unique<ID3TagHeader>(0);
    fileHandle = &handle;
    fileSize = size;
    theTag = &tag;
    isMP3 = true;
    const bool ok = readID3Header(*tag1);
    if (ok) {
        base = audioBase;
        length = audioSize;
    }
    tagEndOffset = unsynchronizedAll ? totalTagSize : tag1->tagEndOffset;
    getFrames();
    fileHandle = nullptr;  // borrowed: never kept past the call
    return ok;
}

bool ID3Base::readID3Header(ID3TagHeader& h) {
    missingID3 = false;
    uint64_t pos = h.offset;
    if (!fileHandle || !fits(fileSize, pos, 10)) return false;

    std::optional<Bytes> head = fileHandle->readDataAtOffset(pos, 10);
    if (!head) {
        theTag->logError(kFile, pos, kReadError);
        return false;
    }
    buffer = std::move(*head);
    bytes = buffer.data();
    validateEndOfs = 10;
    const uint8_t* b = bytes;

    if (h.isFooter) {
        if (std::memcmp(b, "3DI", 3) != 0) return false;
    } else if (std::memcmp(b, "ID3", 3) != 0) {
        missingID3 = true;
        return false;
    }
    // The revision and flags bytes are tested for FF, not the version byte:
    // an FF version is caught by the version test with its message.
    if (b[4] == 0xFF || b[5] == 0xFF) return false;
    if ((b[6] | b[7] | b[8] | b[9]) & 0x80) return false;

    version = b[3];
    flags = b[5];
    revision = b[4];
    h.setVersion(version);
    h.setFlags(flags);
    h.revision = revision;

    if (version < 2 || version > 4 || (version != 2 && revision != 0)) {
        theTag->logError(kFraming, pos, fmt::format(kInvalidVersion, version, revision));
        return false;
    }
    if (version == 2 && revision == 1) theTag->logError(kTagProblem, pos, kNonStandardVersion);

    // Bits that must be clear, and the byte whose 0x20 bit is the experimental flag.
    uint64_t mustBeClear = 0, experimental = 0;
    if (h.isFooter) {
        if (version != 4) {
            theTag->logError(kFraming, pos, fmt::format(kInvalidFooterVersion, version));
            return false;
        }
        if (!(flags & kFlagFooter)) {
            theTag->logError(kFraming, pos, kFooterFlagMissing);
            return false;
        }
        mustBeClear = 0x0F;
        experimental = flags;
    } else if (version == 2) {
        if (flags & kFlagExtendedHeader) {
            theTag->logError(kFraming, pos, kCompressionV22);
            return false;
        }
        // v2.2.1 knows the experimental flag; plain v2.2 counts it as undefined.
        mustBeClear = revision == 1 ? 0x1F : 0x3F;
        experimental = revision == 1 ? flags : 0;
    } else {
        mustBeClear = version == 3 ? 0x1F : 0x0F;
        experimental = flags;
    }
    if (flags & mustBeClear) theTag->logError(kFraming, pos, kInvalidFlagBits);
    if (experimental & kFlagExperimental) theTag->logError(kTagProblem, pos, kExperimental);

    const uint64_t size = getSynchSafeSize(6);
    tagSize = size;
    if (size == 0) theTag->logError(kFraming, pos, kSizeZero);

    if (h.isFooter) {
        // The footer repeats the header: the tag starts size + 10 bytes before it.
        if (size + 10 > pos) {
            theTag->logError(kFraming, pos, kInvalidFooterSize);
            return false;
        }
        const uint64_t start = pos - size - 10;
        std::optional<Bytes> partner = fileHandle->readDataAtOffset(start, 10);
        if (!partner || std::memcmp(partner->data(), "ID3", 3) != 0 ||
            std::memcmp(partner->data() + 3, b + 3, 7) != 0)
            return false;
        h.offset = start;
        pos = start;
    }

    const uint64_t total = size + 10 + ((flags & kFlagFooter) ? 10 : 0);
    totalTagSize = total;
    if (!fits(fileSize, pos, total)) {
        theTag->logError(kFraming, pos, kOverflowsFile);
        return false;
    }
    if (isMP3) {
        // A tag away from the start was appended: the audio lies before it.
        if (pos != 0) {
            audioBase = 0;
            audioSize = pos;
        } else {
            audioBase = total;
            audioSize = fileSize - total;
        }
    }

    if (total > kMaxTagBytes) {
        theTag->logError(kFatal, pos, fmt::format(kTagTooLarge, total, kMaxTagBytes));
        tagTooLarge = true;
        return false;
    }
    std::optional<Bytes> whole = fileHandle->readDataAtOffset(pos, total);
    if (!whole) {
        theTag->logError(kFile, pos, kReadError);
        return false;
    }
    buffer = std::move(*whole);
    bytes = buffer.data();
    validateEndOfs = initialTotalTagSize = total;

    // Whole-tag unsynchronisation exists up to v2.3; v2.4 does it per frame.
    // The header and footer bytes pass through the same walk, and the buffer
    // keeps its length, so the header's own sizes still describe the tag as read.
    if ((version == 2 || version == 3) && (flags & kFlagUnsynchronised)) {
        const uint64_t compacted = resynchronise(buffer.data(), total);
        totalTagSize = validateEndOfs = compacted;
        tagSize = size - total + compacted;
        unsynchronizedAll = true;
    }

    auto accept = [&](uint64_t extendedHeaderSize) {
        firstTagBase = pos + extendedHeaderSize + 10;
        h.setExtendedHeaderSize(extendedHeaderSize);
        h.setData(std::move(buffer));
        buffer = Bytes();
        bytes = h.data.data();
        return true;
    };
    if (version == 2 || !(flags & kFlagExtendedHeader)) return accept(0);

    uint64_t extended = 0;
    if (version == 4) {
        // v2.4 counts the size field in the extended header's size.
        extended = getSynchSafeSize(10);
        if (extended <= 5) {
            theTag->logError(kFraming, pos, kInvalidExtendedHeader);
            return false;
        }
    } else {
        // v2.3 does not: the only sizes it defines are 6 and 10.
        const uint64_t declared = getNaturalSize(10);
        if (declared != 6 && declared != 10) {
            theTag->logError(kFraming, pos, kInvalidExtendedHeader);
            return accept(0);
        }
        extended = declared + 4;
    }
    if (extended + 10 < totalTagSize) return accept(extended);
    theTag->logError(kFraming, pos, kInvalidExtendedHeader);
    return false;
}

bool ID3Base::getFrames() {
    const uint64_t tagVersion = tag1 ? tag1->version : version;
    const uint64_t tagRevision = tag1 ? tag1->revision : revision;
    if (tagVersion == 2 && tagRevision == 1) return true;

    // The walk runs over the bytes of the tag being read (its header owns
    // them once accepted; a refused or dropped header leaves them in the
    // reader's buffer). Without a header, positions count from the buffer's
    // start and there is no frame header size: nothing is assumed.
    uint8_t* data = buffer.data();
    uint64_t dataLength = buffer.size();
    if (tag1 && !tag1->data.empty()) {
        data = tag1->data.data();
        dataLength = tag1->data.size();
    }
    bytes = data;
    const uint64_t h = tag1 ? tag1->frameHeaderSize : 0;
    const uint64_t base = tag1 ? tag1->offset : 0;
    // The caller's end can lie outside the buffer (a de-unsynchronised tag
    // that does not start the file ends at its compacted length, not at an
    // offset): the walk never goes past the bytes really held.
    const uint64_t end = std::min(tagEndOffset - base, dataLength);
    validateEndOfs = end;
    uint64_t p = tag1 ? tag1->firstFrameOffset - base : 0;
    uint64_t mode = tagVersion;
    uint64_t previous = 0;
    bool first = true;
    uint64_t frameCount = 0;

    for (;;) {
        if (p == end) {
            theTag->validateFields(false);
            return true;
        }
        if (p < dataLength && data[p] == 0) {
            // Padding: the rest is not inspected.
            paddingSize = p < end ? end - p : 0;
            theTag->validateFields(false);
            return true;
        }
        if (p > end || end - p < h + 1) {
            if (p > end || end - p < 4) {
                theTag->logError(kFraming, p, kFrameOverrun);
                return true;
            }
            if (get16(p) == kMPEGSync) {
                if (tag1) tag1->tagEndOffset = p;
                tagEndOffset = p;
                theTag->logError(kFraming, p, kOverflowsAudio);
                theTag->validateFields(false);
                return true;
            }
            theTag->logError(kFraming, p, kFrameOverrun);
            return true;
        }

        uint64_t z = 0;
        if (mode == 2) {
            z = getV2Size(p + 3);
        } else if (mode == 4) {
            int error = 0;
            z = getSynchSafeSizeWithErrors(p + 4, error);
            if (error == 1) {
                theTag->logError(kFraming, p, kFrameOverrun);
                return true;
            }
            if (error == 2) {
                // A size byte with bit 7 set: the writer used plain sizes.
                z = getNaturalSize(p + 4);
                mode = 3;
            } else if (z >= 128 && !isValidFrameID(p + h + z)) {
                // From 128 on the two readings differ: take the plain one
                // when only it leads to another frame (or the tag's end).
                const uint64_t plain = getNaturalSize(p + 4);
                if (isValidFrameID(p + h + plain)) {
                    z = plain;
                    mode = 3;
                }
            }
        } else {
            z = getNaturalSize(p + 4);
        }
        if (h + z > end - p) {
            theTag->logError(kFraming, p, kInvalidFrameSize);
            return true;
        }

        if (++frameCount > kMaxFrames) {
            theTag->logError(kFatal, base + p, fmt::format(kTooManyFrames, kMaxFrames));
            return true;
        }
        // A frame lives only while it is decoded: what it finds goes to the record.
        std::unique_ptr<ID3Frame> frame = ID3Frame::make(data + p, h + z, tagVersion, *theTag, base + p);
        if (!frame) {
            theTag->logError(kFraming, p,
                             first ? std::string(kInvalidFrame) : fmt::format(kInvalidFrameAfter, previous));
            return true;
        }
        const bool decoded = frame->decodeFrame();
        frame.reset();
        ++framesWalked;
        previous = p;
        first = false;
        p += h + z;
        if (!decoded) {
            theTag->validateFields(false);
            return false;
        }
    }
}

uint64_t ID3Base::readableEnd() const {
    if (!bytes) return 0;
    uint64_t real = validateEndOfs;
    if (bytes == buffer.data())
        real = buffer.size();
    else if (tag1 && bytes == tag1->data.data())
        real = tag1->data.size();
    return std::min(validateEndOfs, real);
}

uint64_t ID3Base::get16(uint64_t pos) const {
    if (!fits(readableEnd(), pos, 2)) return 0;
    return be16(bytes + pos);
}

uint64_t ID3Base::getV2Size(uint64_t pos) const {
    if (!fits(readableEnd(), pos, 3)) return 0;
    return be24(bytes + pos);
}

uint64_t ID3Base::getNaturalSize(uint64_t pos) const {
    if (!fits(readableEnd(), pos, 4)) return 0;
    return be32(bytes + pos);
}

uint64_t ID3Base::getSynchSafeSize(uint64_t pos) const {
    int error = 0;
    return getSynchSafeSizeWithErrors(pos, error);
}

uint64_t ID3Base::getSynchSafeSizeWithErrors(uint64_t pos, int& error) const {
    error = 0;
    if (!fits(readableEnd(), pos, 4)) {
        error = 1;
        return 0;
    }
    const uint8_t* b = bytes + pos;
    if ((b[0] | b[1] | b[2] | b[3]) & 0x80) {
        error = 2;
        return 0;
    }
    return (uint64_t(b[0]) << 21) | (uint64_t(b[1]) << 14) | (uint64_t(b[2]) << 7) | b[3];
}

// A frame may end flush with the tag; otherwise a whole 10-byte header must
// follow and its identifier be upper-case letters and digits (also asked in
// v2.2 tags, whose identifiers are shorter).
bool ID3Base::isValidFrameID(uint64_t pos) const {
    if (pos == validateEndOfs) return true;
    if (!fits(readableEnd(), pos, 10)) return false;
    for (int i = 0; i < 4; ++i) {
        const uint8_t c = bytes[pos + i];
        if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z'))) return false;
    }
    return true;
}

}  // namespace sondrel
