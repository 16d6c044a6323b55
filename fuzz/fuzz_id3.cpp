// Feeds arbitrary bytes to the ID3v2 tag reader on a memory handle. The first
// byte chooses the road: a tag at the start through the FLAC entry point, a
// tag found through a footer at the end, or a tag inside a container at an
// offset whose frame walk runs with whatever end the container computed.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/FileHandle.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/id3/ID3Base.h"

namespace {

using namespace sondrel;

class FuzzReader : public ID3Base {
  public:
    explicit FuzzReader(Tag& tag) : ID3Base(tag) {}

    void readAt(FileHandle& handle, uint64_t size, uint64_t offset, bool footer, bool keepRefused) {
        fileHandle = &handle;
        fileSize = size;
        tag1 = std::make_unique<ID3TagHeader>(offset);
        tag1->isFooter = footer;
        if (!readID3Header(*tag1) && !keepRefused) tag1.reset();
        tagEndOffset = unsynchronizedAll ? totalTagSize : (tag1 ? tag1->tagEndOffset : 0);
        getFrames();
        fileHandle = nullptr;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Settings settings = [] {
        Settings s;
        s.overrideValue("LogDups", "1");
        return s;
    }();
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    Bytes contents(data + 1, data + size);
    const uint64_t length = contents.size();
    auto handle = FileHandle::fromMemory(std::move(contents));
    Tag tag("/fuzz/x.mp3", settings, Tag::NoAnalysis{});
    switch (mode % 4) {
        case 0: {
            ID3Base reader(tag);
            uint64_t base = 0, audio = 0;
            reader.flacEntryHandle(*handle, length, tag, base, audio);
            break;
        }
        case 1: {
            FuzzReader reader(tag);
            if (length >= 10) reader.readAt(*handle, length, length - 10, true, false);
            break;
        }
        default: {
            FuzzReader reader(tag);
            reader.readAt(*handle, length, (mode >> 2) % 64, false, mode % 4 == 3);
            break;
        }
    }
    return 0;
}
