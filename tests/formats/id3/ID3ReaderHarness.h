#pragma once
// Reads an ID3v2 tag held in memory the way the audio checkers do (header,
// then the frame walk) and gives back the problem lines and the record.
#include <memory>
#include <string>
#include <string_view>

#include "core/FieldTable.h"
#include "core/FileHandle.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/id3/ID3Base.h"
#include "tests/fixtures/LogCases.h"

namespace sondrel::testing {

// Exposes the calling protocol of the audio checkers and the reader's state.
class TagReader : public ID3Base {
  public:
    explicit TagReader(Tag& tag) : ID3Base(tag) {}

    // Reads the tag at `offset` (through its footer when `footer`), then walks it.
    bool read(FileHandle& handle, uint64_t size, uint64_t offset, bool footer) {
        fileHandle = &handle;
        fileSize = size;
        return readEmbeddedTag(offset, footer);
    }
    // Walks again with no header and an end chosen by the caller (the WAV
    // case where a refused tag leaves only the reader's buffer).
    void walkWithoutHeader(uint64_t end) {
        tag1.reset();
        tagEndOffset = end;
        getFrames();
    }

    const ID3TagHeader* header() const { return tag1.get(); }
    uint64_t padding() const { return paddingSize; }
    uint64_t walkEnd() const { return tagEndOffset; }
    uint64_t sizeOfTag() const { return tagSize; }
};

struct ReadResult {
    std::unique_ptr<Tag> tag;
    std::unique_ptr<TagReader> reader;
    std::string log;

    const TagItem* item(int64_t index) const { return tag->item(index); }
};

inline std::string framing(uint64_t offset, std::string_view message) {
    return fixtures::line(offset, "Framing", message);
}

inline ReadResult readTag(const Bytes& file, uint64_t offset = 0, bool footer = false) {
    static const Settings settings = fixtures::settingsWith({{"LogDups", "1"}});
    ReadResult r;
    r.tag = std::make_unique<Tag>("/memory/a.mp3", settings, Tag::NoAnalysis{});
    r.reader = std::make_unique<TagReader>(*r.tag);
    auto handle = FileHandle::fromMemory(file);
    r.reader->read(*handle, file.size(), offset, footer);
    r.log = fixtures::problemLines(*r.tag);
    return r;
}

}  // namespace sondrel::testing
