#pragma once
// Checks one MPEG audio file (MP3, MP2): an ID3v1 tag and an APE tag at the
// end, an ID3v2 tag at the start and/or a v2.4 tag appended at the end (found
// through its footer), the tag's frames, and then the MPEG audio stream,
// measured from a Xing/Info or VBRI summary in its first frame or else frame
// by frame. The stream's properties stay in the base's fields.
#include <cstdint>
#include <memory>
#include <string>

#include "formats/id3/ID3Base.h"
#include "formats/id3/MpegFrameHeader.h"

namespace sondrel {

class ID3Tag : public ID3Base {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    ID3Tag(const std::string& path, Tag& tag);

    // Measured stream properties, for callers that present them.
    uint64_t getFrameVersion() const { return frameVersion; }
    uint64_t getFrameLayer() const { return frameLayer; }
    uint64_t getFrameSamplerate() const { return frameSamplerate; }
    uint64_t getFrameBitrate() const { return frameBitrate; }
    uint64_t getFrameDurationMs() const { return frameDuration_ms; }
    bool getFrameVBR() const { return frameVBR; }
    uint32_t getFrameTag() const { return frameTag; }
    uint64_t getActualAudioBase() const { return actualAudioBase; }

  private:
    // The tag reader's state for one tag, kept aside while another is read.
    struct ReaderState {
        uint64_t version, revision, flags;
        const uint8_t* bytes;
        Bytes buffer;
        uint64_t tagSize, totalTagSize, initialTotalTagSize, firstTagBase, validateEndOfs;
        bool unsynchronizedAll, missingID3;
    };
    ReaderState saveReaderState();
    void restoreReaderState(ReaderState& s);

    void finishInit();
    // Both answer false when the ID3v2 tags must not be read.
    bool checkForID3V1Tag();
    bool checkForAPE();
    static bool validateSignature(const uint8_t* b);
    static uint32_t APE_getData(const uint8_t* b) { return le32(b); }
    static uint32_t get4(const uint8_t* b, uint64_t offset) { return be32(b + offset); }
    static bool isValidHeader(const uint8_t* b) { return MpegFrameHeader::isValidHeader(b); }
    // Takes a measurable header's properties into the stream fields.
    bool getVersionLayerScanrate(const uint8_t* b, uint64_t offset);
    void takeHeader(const MpegFrameHeader& h);
    // Summary headers in a first frame of at least 58 bytes.
    bool lookForXingInfo(const uint8_t* frame);
    bool lookForVbriInfo(const uint8_t* frame);
    bool lookForXingInfoVbriHeader();
    bool lookForXingInfoVbriHeaderAtOffset(uint64_t offset, const uint8_t* data);
    // The frame-by-frame scan of the audio range.
    bool getFrameHeader();

    std::unique_ptr<ID3TagHeader> tag2;
    bool foundAudioFrame = false;
    bool multipleTags = false;
    uint64_t ape_size = 0;
    uint64_t ape_offset = 0;
    uint64_t ape_version = 0;
    bool ape_hasHeader = false;
    bool hasAPE = false;
    uint64_t ape_count = 0;
    uint64_t ape_flags = 0;
};

}  // namespace sondrel
