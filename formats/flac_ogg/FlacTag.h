#pragma once
// Checks one FLAC file: finds the "fLaC" stream marker (also behind a leading
// ID3v2 tag), walks the chain of metadata blocks, decodes STREAMINFO and
// checks the VORBIS_COMMENT, PICTURE and APPLICATION blocks. Vorbis comments
// are validated only, never stored. The Ogg checker derives from this class
// to reuse the Vorbis comment reader.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/FileHandle.h"
#include "core/Tag.h"
#include "formats/flac_ogg/MetadataBlock.h"

namespace sondrel {

class FlacTag : public Checker {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    FlacTag(const std::string& path, Tag& tag);

  protected:
    // For a subclass that runs its own check: keeps path and record only.
    struct NoCheck {};
    FlacTag(const std::string& path, Tag& tag, NoCheck);

    // Opens the file; "Invalid file size for FLAC file" when it is too small
    // to hold a marker and a STREAMINFO block. False when the check cannot go on.
    bool setupFileForReading();
    bool closeFile();
    bool closeTheFile();

    // Reads a Vorbis comment structure of `length` bytes (the caller's buffer
    // holds at least that many), logging at errorDataOffset + the position of
    // each problem. False when the comment could not be decoded at all.
    bool getTags(const uint8_t* bytes, uint64_t length);
    void postField(const std::string& comment, uint64_t position);

    // The first `count` bytes read as a big-endian number.
    static uint64_t getData(const uint8_t* bytes, unsigned count);
    static uint32_t getLE32Bits(const uint8_t* bytes);
    // UTF-8 when the bytes are valid UTF-8, else ISO Latin-1 (which cannot fail).
    static std::string allocUTF8StrAt(const uint8_t* bytes, uint64_t start, uint64_t length);

    uint64_t fileSize = 0;
    std::unique_ptr<FileHandle> fileHandle;
    std::string theFile;
    Tag* theTag = nullptr;
    uint64_t errorDataOffset = 0;

  private:
    // Walks the block chain from `offset`, handing each block read to `visit`
    // until it returns false, a header fails or the last block is reached.
    void walkBlocks(const std::function<bool(const MetadataBlock&)>& visit);
    bool verifyMarker();
    bool checkForID3();
    bool spanForFlacMarker();
    // The block data, read whole; on failure "Read error" at its data offset.
    std::optional<Bytes> readBlockData(const MetadataBlock& block);
    bool decodeStreamInfo(const MetadataBlock& block);
    bool getTags(const MetadataBlock& block);
    bool getArt(const MetadataBlock& block);
    void handleApplicationData(const MetadataBlock& block);

    uint64_t offset = 0;      // where the first metadata block header starts
    uint64_t audioStart = 0;  // the end of the last metadata block read
    uint64_t realBase = 0, realSize = 0;

    // Audio properties from STREAMINFO. The channel field is kept raw (one
    // less than the channel count).
    uint64_t frameBitrate = 0;
    bool frameIsVBR = false;
    uint64_t frameBitsPerSample = 0, frameNumberOfChannels = 0, frameSampleRate = 0, frameDuration_ms = 0;
};

}  // namespace sondrel
