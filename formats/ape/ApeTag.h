#pragma once
// Checks one Monkey's Audio file: finds the "MAC " stream header (at the
// start, behind a leading ID3v2 tag, or by searching), notes a trailing ID3v1
// tag, reads the stream header far enough to know its properties can be
// extracted (old and new layouts), and walks the APE tag (APEv1 or APEv2) at
// the end of the file item by item. Item values are decoded only to prove
// that they are readable; nothing is stored as metadata. WVTag reuses the
// file access and the APE tag reading.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "core/Bytes.h"
#include "core/FileHandle.h"
#include "core/Tag.h"

namespace sondrel {

class ApeTag : public Checker {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    ApeTag(const std::string& path, Tag& tag);
    ~ApeTag() override;

  protected:
    // For a subclass that runs its own sequence of steps: nothing is read yet.
    struct NoCheck {};
    ApeTag(const std::string& path, Tag& tag, NoCheck);

    // Opens the file through the record; a file of 41 bytes or less is too
    // small for any APE-tagged format (the handle stays open all the same).
    bool setupFileForReading();
    // Closes the handle; "Error closing the file" when that fails.
    bool closeFile();
    // True when the first `count` bytes equal `pattern` (count 0 is true).
    static bool validateSignature(const uint8_t* bytes, size_t count, const char* pattern);
    // A read of exactly `length` bytes inside the file, or none (also when
    // there is no open handle or the range lies outside the file, so that a
    // wrapped offset or a huge declared length never allocates).
    std::optional<Bytes> readAt(uint64_t offset, uint64_t length);

    // Finds the "MAC " header; false when the file cannot be checked further.
    bool verifyMarker();
    bool spanForApeMarker();
    bool checkForID3();
    void checkForID3V1Tag();
    // Reads the APE tag footer (and header probe) and makes sure the item
    // area lies inside the file.
    bool checkForAPE();
    void validateFile();
    bool validateOld();
    bool validateNew();
    // Walks the items of the tag read by checkForAPE.
    void getAPETags();

    uint64_t fileSize = 0;
    std::unique_ptr<FileHandle> fileHandle;
    std::string theFile;
    bool haveValidTag = false;
    Tag* theTag = nullptr;
    uint64_t revision = 0;
    uint64_t version = 0;
    bool hasAPE = false;
    uint64_t macStart = 0;
    uint64_t macSize = 0;
    uint64_t macVersion = 0;
    uint64_t ape_base = 0;
    uint64_t ape_size = 0;
    uint64_t ape_count = 0;
    uint64_t ape_flags = 0;
    uint64_t ape_version = 0;
    bool ape_hasHeader = false;
    uint64_t sampleFrames = 0;
    bool forceNonSimple = false;
    uint64_t itemCursor = 0;
    bool hasID3V1 = false;
    bool isWavPack = false;
};

}  // namespace sondrel
