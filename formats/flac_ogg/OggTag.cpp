#include "formats/flac_ogg/OggTag.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "formats/flac_ogg/OggCRC.h"

namespace sondrel {

namespace {

constexpr const char* kPageHeaderError = "Error reading page header";
constexpr const char* kInvalidPageMarker = "Invalid page marker";
constexpr const char* kMultipleStreams = "Ogg files with multiple streams not supported";
constexpr const char* kSegmentListError = "Error reading page segment list";
constexpr const char* kPageFault = "Page fault";
constexpr const char* kBodyReadError = "Read error (packet data)";
constexpr const char* kCRCError = "CRC error";
constexpr const char* kShortIdentification = "Insufficient data for Ogg identification packet";
constexpr const char* kUnsupportedIdentification = "Missing or unsupported Ogg identification packet";
constexpr const char* kOpusHeadAlignment = "Invalid Opus identification packet alignment";
constexpr const char* kVorbisFrameBit = "Frame bit missing in Vorbis identification packet";
constexpr const char* kOpusTagsAlignment = "Invalid Opus tag packet alignment";
constexpr const char* kShortComment = "Insufficient data for comment block";
constexpr const char* kMissingComment = "Missing Ogg comment block";
constexpr const char* kNoIdentification =
    "Missing or incomplete Ogg identification packet or non handled stream type";
constexpr const char* kNoComment = "Missing or incomplete Ogg comment packet";

constexpr uint8_t kEndOfStream = 0x04;
constexpr size_t kCRCField = 22;

// Identification and comment packets: Vorbis packet type byte and "vorbis",
// or the Opus magic texts.
constexpr char kVorbisIdentification[] = "\x01vorbis";
constexpr char kVorbisComment[] = "\x03vorbis";
constexpr char kOpusHead[] = "OpusHead";
constexpr char kOpusTags[] = "OpusTags";
constexpr size_t kVorbisSignatureLength = 7;
constexpr size_t kOpusSignatureLength = 8;
// Smallest identification packets: Vorbis up to its framing byte, Opus up
// to its channel mapping family.
constexpr size_t kVorbisIdentificationSize = 30;
constexpr size_t kOpusIdentificationSize = 19;
constexpr size_t kMinimumCommentPacket = 11;

// Header packets are gathered in memory before they are checked. Encoders
// write identification packets of a few hundred bytes at most, and comment
// packets stay within a few megabytes even with embedded artwork; a packet
// beyond these sizes is not gathered further, so that no file can make the
// check hold an unbounded packet.
constexpr uint64_t kMaxIdentificationPacket = 64 * 1024;
constexpr uint64_t kMaxCommentPacket = 16 * 1024 * 1024;
std::string packetTooLarge(const char* which, uint64_t limit) {
    return "Ogg " + std::string(which) + " packet is larger than " + std::to_string(limit) +
           " bytes; it was not checked";
}

}  // namespace

OggTag::OggTag(const std::string& path, Tag& tag) : FlacTag(path, tag, NoCheck{}) {
    if (setupFileForReading()) {
        readPages();
        // Any problem at all, a single page fault or CRC error included,
        // leaves the comments unchecked.
        if (theTag->errorCount() == 0 && commentData.size() >= commentSize) {
            // The comment data comes from behind the packet's signature, yet
            // the reader is given the whole packet length; the copy is padded
            // with zeros so that reading up to that length stays inside it.
            errorDataOffset = 0;
            getTags(commentData.data(), commentSize);
        }
        commentData = Bytes();
    }
    closeFile();
}

// The pages are walked in a view of the whole file mapped into memory, so
// that no byte is copied before the CRC reads it. Where the file cannot be
// mapped, pages are read in large blocks instead: a page that straddles the
// end of a block is moved to the front of the buffer and the block is filled
// up behind it; a page is at most 27 + 255 + 255 * 255 bytes, far less than a
// block, so one refill always makes the whole page available when the file
// holds it.
class OggTag::PageBlocks {
  public:
    static constexpr size_t kBlockSize = 1024 * 1024;
    // The mapped view is walked in windows of this size: each is mapped in
    // one call, and let go from the resident set once walked, so that a
    // large file does not count in the program's memory.
    static constexpr uint64_t kWindowStep = 4 * 1024 * 1024;

    // A file of one block or less is read in one go: mapping it would cost
    // more than the copy. A file smaller than a block gets a buffer of its
    // own size. The buffer is not zeroed: only bytes read into it are ever
    // looked at.
    PageBlocks(FileHandle& file, uint64_t fileSize) : file_(file), fileSize_(fileSize) {
        if (fileSize > kBlockSize) view_ = file.mapWhole();
        if (!view_.empty()) file.moveViewWindow(0, kWindowStep + kBlockSize);
        if (view_.empty()) {
            size_ = size_t(std::min<uint64_t>(kBlockSize, fileSize));
            buffer_.reset(new uint8_t[size_]);
        }
    }

    // The `length` bytes at file offset `offset`, or null when the file
    // does not hold them or they cannot be read.
    const uint8_t* bytesAt(uint64_t offset, size_t length) {
        if (!view_.empty()) {
            if (!fits(fileSize_, offset, length) || !fits(view_.size(), offset, length)) return nullptr;
            if (offset - windowAt_ > kWindowStep) {
                file_.moveViewWindow(offset, kWindowStep + kBlockSize);
                windowAt_ = offset;
            }
            return view_.data() + offset;
        }
        if (offset >= start_ && offset - start_ <= filled_ && length <= filled_ - (offset - start_))
            return buffer_.get() + (offset - start_);
        if (!fits(fileSize_, offset, length) || length > size_) return nullptr;
        size_t kept = 0;
        if (offset >= start_ && offset - start_ < filled_) {
            kept = filled_ - size_t(offset - start_);
            std::memmove(buffer_.get(), buffer_.get() + (offset - start_), kept);
        }
        start_ = offset;
        filled_ = kept;
        const uint64_t want = std::min<uint64_t>(size_, fileSize_ - offset);
        if (want > kept && !file_.readInto(offset + kept, buffer_.get() + kept, want - kept)) return nullptr;
        filled_ = size_t(want);
        return buffer_.get();
    }

    // True when the file was cut shorter under the mapped view: the bytes
    // handed out since may be zeros in place of the lost ones. The guard
    // sees whole lost memory pages only; the tail of the page the file now
    // ends in reads as zeros without a fault. So before a problem is
    // reported for `length` bytes at `offset`, lostAt() also asks whether
    // the file still holds them.
    bool lost() const { return !view_.empty() && file_.viewLost(); }
    bool lostAt(uint64_t offset, uint64_t length) const {
        return lost() || (!view_.empty() && !fits(file_.length(), offset, length));
    }

  private:
    FileHandle& file_;
    uint64_t fileSize_;
    ByteSpan view_;
    uint64_t windowAt_ = 0;
    size_t size_ = 0;
    std::unique_ptr<uint8_t[]> buffer_;
    uint64_t start_ = 0;
    size_t filled_ = 0;
};

void OggTag::readPages() {
    uint64_t pos = 0;
    effectiveFileSize = fileSize;
    bool afterEnd = false;
    PageBlocks blocks(*fileHandle, fileSize);
    for (;;) {
        // A tail too short for a page header is ignored.
        if (!fits(fileSize, pos, OGGPage::kHeaderSize)) {
            effectiveFileSize = pos;
            break;
        }
        const uint8_t* header = blocks.bytesAt(pos, OGGPage::kHeaderSize);
        if (header == nullptr || blocks.lost()) {
            theTag->logError(kFatal, pos, kPageHeaderError);
            return;
        }
        if (std::memcmp(header, "OggS", 4) != 0) {
            if (afterEnd) break;  // data after the end of the stream is tolerated
            if (blocks.lostAt(pos, OGGPage::kHeaderSize)) {
                theTag->logError(kFatal, pos, kPageHeaderError);
                return;
            }
            theTag->logError(kFatal, pos, kInvalidPageMarker);
            return;
        }
        if (afterEnd) theTag->logError(kFatal, pos, kMultipleStreams);
        const uint8_t flags = header[5];
        const uint64_t granule = le64(header + 6);
        const uint32_t serial = le32(header + 14);
        if (!streamID) {
            streamID = serial;
        } else if (serial != *streamID) {
            theTag->logError(kFatal, pos, kMultipleStreams);
            return;
        }
        const uint32_t sequence = le32(header + 18);
        const uint32_t storedCRC = le32(header + kCRCField);
        const uint8_t segments = header[26];
        const uint8_t* page = blocks.bytesAt(pos, OGGPage::kHeaderSize + segments);
        if (page == nullptr) {
            theTag->logError(kFatal, pos, kSegmentListError);
            return;
        }
        const uint8_t* lacing = page + OGGPage::kHeaderSize;
        size_t bodySize = 0;
        for (size_t i = 0; i < segments; ++i) bodySize += lacing[i];
        if (sequence != expectedPageNum) theTag->logError(kContainer, pos, kPageFault);
        expectedPageNum = uint64_t(sequence) + 1;

        const size_t pageSize = OGGPage::kHeaderSize + segments + bodySize;
        page = blocks.bytesAt(pos, pageSize);
        if (page == nullptr) {
            theTag->logError(kFatal, pos, kBodyReadError);
            return;
        }
        // The header and lacing values may have moved in the buffer.
        lacing = page + OGGPage::kHeaderSize;
        const ByteSpan body(page + OGGPage::kHeaderSize + segments, bodySize);
        // The stored CRC is counted as zeros; the rest of the page is one run.
        static constexpr uint8_t kZeros[4] = {};
        uint32_t crc = oggcrc::update(0, page, kCRCField);
        crc = oggcrc::update(crc, kZeros, sizeof kZeros);
        crc = oggcrc::update(crc, page + kCRCField + 4, pageSize - kCRCField - 4);
        // A file cut shorter during the walk reads as it would have from
        // the disk: the page could not be read whole.
        if (blocks.lost() || (crc != storedCRC && blocks.lostAt(pos, pageSize))) {
            theTag->logError(kFatal, pos, kBodyReadError);
            return;
        }
        if (crc != storedCRC) theTag->logError(kContainer, pos, kCRCError);

        if (pageCount == 0) firstGP = granule;
        lastGP = granule;
        lastFlags = flags;
        const uint64_t index = pageCount++;
        // Only the header packets need the page's segments; the audio pages
        // behind them are checked without building one.
        bool goOn = true;
        if (status != kHeadersDone)
            goOn = collectHeaderPackets(OGGPage(pos, flags, std::vector<uint8_t>(lacing, lacing + segments)),
                                        index, body);
        pos += pageSize;
        lastPageEnd = pos;
        if (!goOn) break;
        if (flags & kEndOfStream) afterEnd = true;
        if (pos == fileSize) break;
    }
    if (!afterEnd) missingEOS = true;
    endChecks();
}

bool OggTag::collectHeaderPackets(const OGGPage& page, uint64_t pageIndex, ByteSpan body) {
    bool complete = false;
    uint64_t next = OGGPage::kNoIndex;
    if (status == kCollectingIdentification) {
        if (!p1) p1.emplace(pageIndex, 0, page.offset());
        page.availableDataForPacketStartingAtIndex(0, complete, next);
        p1->addPage(page, pageIndex, body, complete, next);
        if (!complete) return withinBudget(*p1, kMaxIdentificationPacket, "identification");
        if (!processv1()) return false;
        status = kCollectingComment;
        if (next == OGGPage::kNoIndex) return true;
        // The comment packet begins on the identification packet's page. It
        // is judged on this page alone: when it runs on into the next page
        // its end is never set and it counts as empty.
        p3.emplace(pageIndex, next, page.offset());
        page.availableDataForPacketStartingAtIndex(next, complete, next);
        p3->addPage(page, pageIndex, body, complete, next);
        status = kHeadersDone;
        return processv3();
    }
    if (status == kCollectingComment) {
        if (!p3) p3.emplace(pageIndex, 0, page.offset());
        page.availableDataForPacketStartingAtIndex(0, complete, next);
        p3->addPage(page, pageIndex, body, complete, next);
        if (!complete) return withinBudget(*p3, kMaxCommentPacket, "comment");
        status = kHeadersDone;
        return processv3();
    }
    return true;
}

// One line for a packet past its budget; the pages are still walked and
// checked, but the packet is dropped and draws no "missing packet" line.
bool OggTag::withinBudget(OGGPacket& packet, uint64_t limit, const char* which) {
    if (packet.mutableData().size() <= limit) return true;
    theTag->logError(kContainer, packet.offset(), packetTooLarge(which, limit));
    packet.mutableData() = Bytes();
    status = kHeadersDone;
    overBudget = true;
    return true;
}

bool OggTag::processv1() {
    ByteSpan d = p1->data();
    const uint64_t at = p1->offset();
    if (d.size() <= kVorbisSignatureLength) {
        theTag->logError(kFatal, at, kShortIdentification);
        return false;
    }
    if (testSignature(d, kVorbisIdentification, kVorbisSignatureLength)) {
        isVorbis = true;
        sigLength = kVorbisSignatureLength;
    } else if (testSignature(d, kOpusHead, kOpusSignatureLength)) {
        isOpus = true;
        sigLength = kOpusSignatureLength;
    } else {
        theTag->logError(kFatal, at, kUnsupportedIdentification);
        return false;
    }
    if (d.size() < (isVorbis ? kVorbisIdentificationSize : kOpusIdentificationSize)) {
        theTag->logError(kFatal, at, kShortIdentification);
        return false;
    }
    if (isOpus) {
        // OpusHead must be alone on the first page.
        if (p1->startPage() != 0 || p1->endPage() != 0 || p1->startSegment() != 0 ||
            p1->endSegment() != OGGPage::kNoIndex) {
            theTag->logError(kFatal, at, kOpusHeadAlignment);
            return false;
        }
        channels = d[9];
        preSkip = le16(d.data() + 10);
        p1_good = true;
        return true;
    }
    // Vorbis: version (4 bytes), channels, sample rate, three bitrates (kept
    // under these names in this order), block sizes, framing byte.
    channels = d[11];
    sampleRate = le32(d.data() + 12);
    bitRateMin = le32(d.data() + 16);
    bitRateNominal = le32(d.data() + 20);
    bitRateMax = le32(d.data() + 24);
    VBR = bitRateMin == 0 && bitRateMax == 0 && bitRateNominal != 0;
    if ((d[29] & 1) == 0) {
        theTag->logError(kFatal, at, kVorbisFrameBit);
        return false;
    }
    p1_good = true;
    return true;
}

bool OggTag::processv3() {
    const uint64_t at = p3->offset();
    // OpusTags must begin a page and end one.
    if (isOpus && (p3->startSegment() != 0 || p3->endSegment() != OGGPage::kNoIndex)) {
        theTag->logError(kFatal, at, kOpusTagsAlignment);
        return false;
    }
    ByteSpan d = p3->data();
    if (d.size() < kMinimumCommentPacket) {
        theTag->logError(kFatal, at, kShortComment);
        return false;
    }
    if (!testSignature(d, isVorbis ? kVorbisComment : kOpusTags, sigLength)) {
        theTag->logError(kFatal, at, kMissingComment);
        return false;
    }
    // The comment data is what follows the signature, but its size is taken
    // as the whole packet's; the bytes held are padded with zeros to it.
    commentSize = d.size();
    commentData = std::move(p3->mutableData());
    std::copy(commentData.begin() + sigLength, commentData.end(), commentData.begin());
    std::fill(commentData.end() - sigLength, commentData.end(), 0);
    p3_good = true;
    return true;
}

void OggTag::endChecks() {
    if (overBudget) return;
    if (!p1_good) {
        theTag->logError(kFatal, 0, kNoIdentification);
    } else if (!p3_good) {
        theTag->logError(kFatal, 0, kNoComment);
    } else if (lastPageEnd) {
        actualEOF = *lastPageEnd;
    }
}

bool OggTag::testSignature(ByteSpan bytes, const char* pattern, size_t patternLength) {
    return bytes.size() >= patternLength && std::memcmp(bytes.data(), pattern, patternLength) == 0;
}

}  // namespace sondrel
