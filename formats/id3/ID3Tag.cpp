#include "formats/id3/ID3Tag.h"

#include <cstring>

#include <fmt/format.h>

#include "core/Settings.h"
#include "formats/id3/ID3Frame.h"
#include "formats/id3/MpegFrameScanner.h"

namespace sondrel {

namespace {

constexpr const char* kReadError = "Read error";
constexpr const char* kID3v1Present = "ID3 v1.0 tag present";
constexpr const char* kAPEPresent = "APE tag present";
constexpr const char* kOverlappingTags = "Overlapping multiple tags";
constexpr const char* kMultipleTags = "Has multiple ID3v2.x tags";
constexpr const char* kFooterTag = "The ID3 tag is a footer tag";
constexpr const char* kGarbageBeforeAudio =
    "{} bytes of garbage data before the actual start of the audio stream";
constexpr const char* kNoAudio = "No audio data located";

// An ID3v1 tag is the last 128 bytes of the file, starting with "TAG".
constexpr uint64_t kID3v1Size = 128;
// An APE tag ends with a 32-byte footer (and may start with a header of the
// same size) marked "APETAGEX"; all its numbers are little-endian.
constexpr uint64_t kAPEFooterSize = 32;
constexpr uint64_t kAPEVersion2 = 2000;
constexpr uint32_t kAPEHasHeader = 0x80000000u;
constexpr uint64_t kID3FooterSize = 10;

constexpr uint32_t kXing = fourcc("Xing");
constexpr uint32_t kInfo = fourcc("Info");
constexpr uint32_t kVBRI = fourcc("VBRI");
// Xing/Info flags: the frame count and the byte count fields are present.
constexpr uint32_t kXingFramesAndBytes = 0x3;
// VBRI stands after the 32 bytes of MPEG-1 stereo side information, whatever
// the stream; its byte and frame counts follow version, delay and quality.
constexpr uint64_t kVBRIOffset = 36;
constexpr uint64_t kVBRIBytes = 46;
constexpr uint64_t kVBRIFrames = 50;

}  // namespace

ID3Tag::ID3Tag(const std::string& path, Tag& tag) : ID3Base(path, tag) {
    isMP3 = true;
    isAIFF = isDSF = isDFF = isWAV = false;
    finishInit();
    closeTheFile();
}

void ID3Tag::finishInit() {
    if (!setupFileForReading()) return;

    bool readID3v2 = checkForID3V1Tag() && checkForAPE();
    bool endTagRead = false;
    if (readID3v2) {
        // A tag at the start of the file.
        tag1 = std::make_unique<ID3TagHeader>(0);
        size_t before = theTag->errorCount();
        bool searchEnd = true;
        if (!readID3Header(*tag1)) {
            tag1.reset();
            searchEnd = theTag->errorCount() == before;
        }
        // A v2.4 tag appended at the end, found through its footer just
        // before the ID3v1 tag if there is one. An APE tag is not allowed for.
        uint64_t footerDistance = kID3FooterSize + (hasID3V1Tag ? kID3v1Size : 0);
        if (searchEnd && fileSize >= footerDistance) {
            // Reading the end tag replaces the reader's state; the start
            // tag's is kept aside for its own walk.
            ReaderState startTagState = saveReaderState();
            tag2 = std::make_unique<ID3TagHeader>(fileSize - footerDistance);
            tag2->isFooter = true;
            if (readID3Header(*tag2)) {
                endTagRead = true;
                if (tag1) {
                    if (tag2->offset < tag1->tagEndOffset) {
                        theTag->logError(kFatal, tag2->offset, kOverlappingTags);
                        return;
                    }
                    // Reported at the ID3v1 position, as this program always has.
                    theTag->logError(kContainer, ID3V1Offset, kMultipleTags);
                    audioBase = 0;
                    multipleTags = true;
                    tag2.reset();
                    restoreReaderState(startTagState);
                }
            } else {
                tag2.reset();
                if (tag1) restoreReaderState(startTagState);
            }
        }
    }

    // The audio range: the whole file without tags, else what the tag reader
    // left, less the ID3v1 tag and the APE tag's items.
    if (!tag1 && !tag2 && !tagTooLarge) {
        audioBase = 0;
        audioSize = fileSize;
    }
    if (hasID3V1Tag) {
        haveValidTag = true;
        version = 1;
    }
    if (!endTagRead && hasID3V1Tag) audioSize -= kID3v1Size;
    audioSize -= ape_size;

    if (tag1 || tag2) {
        haveValidTag = true;
        bool footerFound = !tag1;
        if (footerFound) tag1 = std::move(tag2);
        tagEndOffset = unsynchronizedAll ? totalTagSize : tag1->tagEndOffset;
        getFrames();
        if (footerFound) theTag->logError(kContainer, tag1->offset, kFooterTag);
    }

    if (lookForXingInfoVbriHeader()) {
        frameTagOffset = audioBase;
        return;
    }
    getFrameHeader();
}

ID3Tag::ReaderState ID3Tag::saveReaderState() {
    return {version,
            revision,
            flags,
            bytes,
            std::move(buffer),
            tagSize,
            totalTagSize,
            initialTotalTagSize,
            firstTagBase,
            validateEndOfs,
            unsynchronizedAll,
            missingID3};
}

void ID3Tag::restoreReaderState(ReaderState& s) {
    version = s.version;
    revision = s.revision;
    flags = s.flags;
    bytes = s.bytes;
    buffer = std::move(s.buffer);
    tagSize = s.tagSize;
    totalTagSize = s.totalTagSize;
    initialTotalTagSize = s.initialTotalTagSize;
    firstTagBase = s.firstTagBase;
    validateEndOfs = s.validateEndOfs;
    unsynchronizedAll = s.unsynchronizedAll;
    missingID3 = s.missingID3;
}

bool ID3Tag::checkForID3V1Tag() {
    ID3V1Offset = fileSize;
    if (fileSize <= kID3v1Size) return true;
    ID3V1Offset = fileSize - kID3v1Size;
    uint8_t magic[3];
    if (!fileHandle->readInto(ID3V1Offset, magic, sizeof magic)) {
        theTag->logError(kFile, ID3V1Offset, kReadError);
        return false;
    }
    if (std::memcmp(magic, "TAG", 3) == 0) {
        hasID3V1Tag = true;
        if (theTag->settings().boolFromKey("LogID3v1"))
            theTag->logError(kContainer, ID3V1Offset, kID3v1Present);
    }
    return true;
}

bool ID3Tag::validateSignature(const uint8_t* b) {
    return std::memcmp(b, "APETAGEX", 8) == 0;
}

bool ID3Tag::checkForAPE() {
    uint64_t distance = kAPEFooterSize + (hasID3V1Tag ? kID3v1Size : 0);
    uint8_t footer[kAPEFooterSize];
    // A file too short to hold the footer cannot be read there either.
    if (fileSize < distance || !fileHandle->readInto(fileSize - distance, footer, sizeof footer)) {
        theTag->logError(kFile, ID3V1Offset, kReadError);
        return false;
    }
    if (!validateSignature(footer)) return true;
    uint64_t footerOffset = fileSize - distance;
    ape_version = APE_getData(footer + 8);
    // The size field counts the items and the footer, not a header. It is
    // taken as unsigned: a field below 32 wraps to a huge size and is accepted.
    ape_size = uint64_t(APE_getData(footer + 12)) - kAPEFooterSize;
    ape_count = APE_getData(footer + 16);
    ape_flags = APE_getData(footer + 20);
    if (ape_size < kAPEFooterSize) {
        ape_size = 0;
        ape_version = 0;
        return false;
    }
    ape_offset = footerOffset - ape_size;
    hasAPE = true;
    if (ape_version == kAPEVersion2) {
        ape_hasHeader = (ape_flags & kAPEHasHeader) != 0;
        if (ape_hasHeader) {
            uint8_t header[kAPEFooterSize];
            if (ape_offset < kAPEFooterSize ||
                !fileHandle->readInto(ape_offset - kAPEFooterSize, header, sizeof header))
                return false;
        }
    }
    if (theTag->settings().boolFromKey("LogID3v1")) theTag->logError(kContainer, ID3V1Offset, kAPEPresent);
    return true;
}

void ID3Tag::takeHeader(const MpegFrameHeader& h) {
    frameVersion = h.version;
    frameLayer = h.layer;
    frameSamplerate = h.samplerate;
    frameChannelmode = h.channelMode;
    bitrateIndex = h.bitrateIndex;
    foundAudioFrame = true;
}

bool ID3Tag::getVersionLayerScanrate(const uint8_t* b, uint64_t offset) {
    auto h = MpegFrameHeader::decode(b + offset);
    if (!h) return false;
    takeHeader(*h);
    return true;
}

namespace {

MpegFrameHeader headerOfFields(uint64_t version, uint64_t layer, uint64_t samplerate, uint64_t channelMode) {
    MpegFrameHeader h;
    h.version = version;
    h.layer = layer;
    h.samplerate = samplerate;
    h.channelMode = channelMode;
    return h;
}

}  // namespace

bool ID3Tag::lookForXingInfo(const uint8_t* frame) {
    MpegFrameHeader h = headerOfFields(frameVersion, frameLayer, frameSamplerate, frameChannelmode);
    uint64_t at = h.xingTagOffset();
    uint32_t tag = get4(frame, at);
    if (tag != kXing && tag != kInfo) return false;
    if ((get4(frame, at + 4) & kXingFramesAndBytes) != kXingFramesAndBytes) return false;
    uint64_t frameCount = get4(frame, at + 8);
    uint64_t byteCount = get4(frame, at + 12);
    double seconds = double(frameCount * h.samplesPerFrame()) / double(h.samplerate);
    frameDuration_ms = uint64_t(seconds * 1000);
    uint64_t wholeSeconds = uint64_t(seconds);
    if (wholeSeconds == 0) return false;
    frameBitrate = byteCount * 8 / wholeSeconds / 1000;
    frameTag = tag;
    frameVBR = tag == kXing;
    return true;
}

bool ID3Tag::lookForVbriInfo(const uint8_t* frame) {
    if (get4(frame, kVBRIOffset) != kVBRI) return false;
    uint64_t byteCount = get4(frame, kVBRIBytes);
    uint64_t frameCount = get4(frame, kVBRIFrames);
    if (byteCount == 0 || frameCount == 0) return false;
    MpegFrameHeader h = headerOfFields(frameVersion, frameLayer, frameSamplerate, frameChannelmode);
    double seconds = double(frameCount * h.samplesPerFrame()) / double(h.samplerate);
    if (!(seconds > 0)) return false;
    frameBitrate = uint64_t(double(byteCount) * 8 / seconds / 1000);
    frameDuration_ms = uint64_t(seconds * 1000);
    frameTag = kVBRI;
    frameVBR = true;
    return true;
}

bool ID3Tag::lookForXingInfoVbriHeaderAtOffset(uint64_t offset, const uint8_t* data) {
    return lookForXingInfo(data + offset) || lookForVbriInfo(data + offset);
}

bool ID3Tag::lookForXingInfoVbriHeader() {
    uint8_t first[MpegFrameScanner::kProbeLength];
    if (!fits(fileSize, audioBase, sizeof first) || !fileHandle->readInto(audioBase, first, sizeof first))
        return false;
    if (!getVersionLayerScanrate(first, 0)) return false;
    return lookForXingInfoVbriHeaderAtOffset(0, first);
}

bool ID3Tag::getFrameHeader() {
    actualAudioBase = audioBase;
    // A range that does not lie inside the file (sizes wrapped by the tag
    // arithmetic) cannot be read: no verdict on the audio at all.
    if (!fits(fileSize, audioBase, audioSize)) return false;
    const uint64_t base = audioBase;
    MpegFrameScanner scanner(
        [this, base](uint64_t position, uint8_t* out, uint64_t length) {
            return fileHandle->readInto(base + position, out, length);
        },
        audioSize);
    auto result = scanner.scan([this](const uint8_t* frame, const MpegFrameHeader& h) {
        takeHeader(h);
        return lookForXingInfoVbriHeaderAtOffset(0, frame);
    });
    if (result.readFailed) return false;
    if (result.foundHeader) {
        takeHeader(result.last);
        actualAudioBase = audioBase + result.firstHeader;
        if (result.probeAccepted) {
            frameTagOffset = actualAudioBase;
            return true;
        }
    }

    if (actualAudioBase != audioBase)
        theTag->logError(kContainer, actualAudioBase,
                         fmt::format(kGarbageBeforeAudio, actualAudioBase - audioBase));
    if (!foundAudioFrame) theTag->logError(kContainer, actualAudioBase, kNoAudio);

    if (result.frames == 0) return false;
    frameDuration_ms = uint64_t(result.seconds * 1000);
    frameVBR = result.vbr;
    frameBitrate = result.bitrateSum / result.frames;
    return true;
}

}  // namespace sondrel
