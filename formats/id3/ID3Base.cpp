#include "formats/id3/ID3Base.h"

#include "formats/id3/ID3Frame.h"

namespace sondrel {

ID3Base::ID3Base(const std::string& path, Tag& tag) : theTag(&tag), theFile(path) {}
ID3Base::ID3Base(Tag& tag) : theTag(&tag) {}
ID3Base::~ID3Base() = default;

bool ID3Base::setupFileForReading() {
    ownedHandle = theTag->setupFile(fileSize);
    fileHandle = ownedHandle.get();
    if (!fileHandle) return false;
    if (fileSize <= 10) {
        theTag->logError(kFatal, 0, "Invalid file size");
        return false;
    }
    return true;
}

bool ID3Base::closeTheFile() {
    bool ok = true;
    if (ownedHandle) {
        ok = ownedHandle->closeTheFile();
        if (!ok) theTag->logError(kFile, 0, "Error closing the file");
        ownedHandle.reset();
    }
    fileHandle = nullptr;
    return ok;
}

// Placeholder until the tag reader exists: no tag is ever found.
bool ID3Base::readID3Header(ID3TagHeader&) { return false; }
bool ID3Base::getFrames() { return true; }
bool ID3Base::flacEntryHandle(FileHandle&, uint64_t, Tag&, uint64_t&, uint64_t&) { return false; }
uint64_t ID3Base::get16(uint64_t) const { return 0; }
uint64_t ID3Base::getV2Size(uint64_t) const { return 0; }
uint64_t ID3Base::getNaturalSize(uint64_t) const { return 0; }
uint64_t ID3Base::getSynchSafeSize(uint64_t) const { return 0; }
uint64_t ID3Base::getSynchSafeSizeWithErrors(uint64_t, int& error) const {
    error = 1;
    return 0;
}
bool ID3Base::isValidFrameID(uint64_t) const { return false; }

void ID3TagHeader::setFlags(uint64_t f) {
    flags = f;
    if (f & 0x10) hasFooter = true;
    if (f & 0x80) unsynchronized = true;
}

void ID3TagHeader::setData(Bytes d) {
    data = std::move(d);
    totalTagSize = data.size();
    tagSize = totalTagSize - extendedHeaderSize - 10 - (hasFooter ? 10 : 0);
    firstFrameOffset = offset + extendedHeaderSize + 10;
    tagEndOffset = firstFrameOffset + tagSize;
    frameHeaderSize = version == 2 ? 6 : 10;
}

}  // namespace sondrel
