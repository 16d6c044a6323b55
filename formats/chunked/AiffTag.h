#pragma once
// Checks one AIFF or AIFF-C file: the FORM header and its declared size, the
// form type, the top-level chunk walk with its overflow rules, the COMM chunk
// (sample rate) and at most one "ID3 " chunk, whose tag goes to the ID3 reader.
#include <cstdint>
#include <string>

#include "core/Tag.h"
#include "formats/id3/ID3Base.h"

namespace sondrel {

class AiffTag : public ID3Base {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    AiffTag(const std::string& path, Tag& tag);

    // The value of an 80-bit IEEE 754 extended-precision number (big-endian:
    // sign and 15-bit exponent, then a 64-bit mantissa with an explicit
    // integer bit), decoded field by field so that it does not depend on how
    // the compiler lays out long double.
    static double extendedToDouble(const uint8_t* p);

  private:
    void finishInit();
    bool spanFile();
    bool decodeCOMM(uint64_t offset, uint64_t size);
    bool decodeID3(uint64_t offset, uint64_t size);

    uint64_t get2b(uint64_t index) const { return be16(dbytes + index); }
    uint64_t get4b(uint64_t index) const { return be32(dbytes + index); }

    // The latest read: a chunk header, the file header or the COMM fields.
    uint8_t dbuf[18] = {};
    const uint8_t* dbytes = dbuf;
    uint64_t effectiveSize = 0;  // the file size used as the end of the walk
    // The decoded ID3 chunk: its offset, its end with the pad byte, its size
    // rounded up to even and as declared. Kept for the region model.
    uint64_t ID3ChunkOffset = 0;
    uint64_t ID3EndOffset = 0;
    uint64_t InPlaceSize = 0;
    uint64_t unadjustedSize = 0;
    uint64_t globalChunkSize = 0;  // the FORM size
    uint64_t calculatedSize = 0;   // where the walk found the content to end
};

}  // namespace sondrel
