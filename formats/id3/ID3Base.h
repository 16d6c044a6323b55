#pragma once
// Common base of every checker whose file can carry an ID3v2 tag (MP3, WAV,
// AIFF, DSF, DFF). It owns the file handle for the check, reads and validates
// one ID3v2 tag header (v2.2, v2.3, v2.4, header or v2.4 footer), undoes
// whole-tag unsynchronisation, and walks the frames, handing each to an
// ID3Frame to decode. The FLAC and Monkey's Audio checkers borrow it through
// flacEntryHandle() to read a tag at the start of their files.
//
// Calling protocol of a subclass reading a tag at a file offset:
//   tag1 = std::make_unique<ID3TagHeader>(offset);  (set tag1->isFooter when following a footer)
//   size_t before = theTag->errorCount();
//   if (!readID3Header(*tag1)) { tag1.reset(); if (theTag->errorCount() != before) give up the tag; }
//   haveValidTag = true;
//   tagEndOffset = unsynchronizedAll ? totalTagSize : (tag1 ? tag1->tagEndOffset : 0);
//   getFrames();
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/Bytes.h"
#include "core/FileHandle.h"
#include "core/Tag.h"
#include "formats/id3/ID3TagHeader.h"

namespace sondrel {

class ID3Base : public Checker {
  public:
    // A base for a subclass's check of the file at `path`; no file is opened yet.
    ID3Base(const std::string& path, Tag& tag);
    // A reader with no file of its own, for flacEntryHandle().
    explicit ID3Base(Tag& tag);
    ~ID3Base() override;

    // Reads the ID3v2 tag at offset 0 of an already open file (not owned),
    // walks its frames into `tag`, and on success gives back the audio range
    // after the tag. Returns the header reader's result.
    bool flacEntryHandle(FileHandle& handle, uint64_t fileSize, Tag& tag, uint64_t& audioBase,
                         uint64_t& audioSize);

    uint64_t getVersion() const { return version; }
    uint64_t getRevision() const { return revision; }
    bool getHaveValidTag() const { return haveValidTag; }
    bool getHasID3V1Tag() const { return hasID3V1Tag; }
    // Frames handed to a decoder so far (the frames themselves are not kept).
    uint64_t getFrameCount() const { return framesWalked; }

  protected:
    // Opens the file through the record; "Invalid file size" (Fatal, 0) when
    // it is not larger than 10 bytes. False when the check cannot go on.
    bool setupFileForReading();
    // Closes an owned handle; "Error closing the file" (File, 0) on failure.
    bool closeTheFile();
    bool readID3Header(ID3TagHeader& h);
    bool getFrames();
    // The calling protocol for a tag embedded at `tagOffset` (the first byte
    // of "ID3" inside a container chunk): read the header; a refusal that
    // logged something gives up the tag (false); a silent one walks on
    // without a header; then the frames are walked and their items stored.
    // With `isFooter` the tag is found through a v2.4 footer at `tagOffset`.
    bool readEmbeddedTag(uint64_t tagOffset, bool isFooter = false);

    // Big-endian readers on `bytes`, bounded by validateEndOfs (0 when out of range).
    uint64_t get16(uint64_t pos) const;
    uint64_t getV2Size(uint64_t pos) const;
    uint64_t getNaturalSize(uint64_t pos) const;
    uint64_t getSynchSafeSize(uint64_t pos) const;
    uint64_t getSynchSafeSizeWithErrors(uint64_t pos, int& error) const;
    bool isValidFrameID(uint64_t pos) const;
    // How many bytes at `bytes` the readers may touch: validateEndOfs, and
    // never more than the buffer that `bytes` points into really holds.
    uint64_t readableEnd() const;

    // --- state of the tag reader
    uint64_t textFrameEncoding = 0;
    Bytes newdata;
    Tag* theTag = nullptr;
    FileHandle* fileHandle = nullptr;         // the open file (owned or borrowed)
    std::unique_ptr<FileHandle> ownedHandle;  // set when this checker opened the file
    uint64_t fileSize = 0;
    std::string theFile;
    std::unique_ptr<ID3TagHeader> tag1;
    uint64_t tagEndOffset = 0;
    uint64_t version = 0, revision = 0, flags = 0;
    const uint8_t* bytes = nullptr;  // the buffer all byte readers index
    Bytes buffer;                    // owns what `bytes` points into
    uint64_t paddingSize = 0;
    uint64_t framesWalked = 0;
    uint64_t tagSize = 0;
    bool haveValidTag = false;
    uint64_t totalTagSize = 0;
    bool unsynchronizedAll = false;
    uint64_t firstTagBase = 0;
    bool isMP3 = false, isAIFF = false, isDSF = false, isDFF = false, isWAV = false;
    // --- fields of the audio checkers (MP3 stream properties, DSF/WAV/AIFF properties)
    bool hasID3V1Tag = false;
    uint64_t ID3V1Offset = 0;
    uint64_t initialTotalTagSize = 0;
    uint64_t audioBase = 0, audioSize = 0;
    uint64_t actualAudioBase = 0;
    uint64_t frameVersion = 0, frameLayer = 0, frameSamplerate = 0, frameChannelmode = 0;
    uint64_t bitrateIndex = 0, frameBitrate = 0, frameDuration_ms = 0, frameSampleSize = 0;
    bool frameVBR = false;
    uint32_t frameTag = 0;
    uint64_t frameTagOffset = 0;
    uint64_t validateEndOfs = 0;
    bool missingID3 = false;
    // A tag larger than the checker reads was passed over; the audio range
    // set from its header still holds.
    bool tagTooLarge = false;
};

}  // namespace sondrel
