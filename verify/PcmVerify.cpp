#include "verify/PcmVerify.h"

#include <fmt/format.h>

#include <optional>

#include "core/Bytes.h"
#include "core/FileHandle.h"
#include "core/Tag.h"
#include "verify/Messages.h"

namespace sondrel::verify {

namespace {

struct Chunk {
    uint32_t id = 0;
    uint64_t offset = 0;  // of the chunk's data
    uint64_t size = 0;    // as declared
};

// Walks the chunks of a RIFF or IFF file from `pos` to `end`, calling
// `visit` for each; sizes are padded to an even length. Stops at the first
// header that does not fit or when `visit` returns false.
template <typename Visit>
void walkChunks(FileHandle& file, uint64_t pos, uint64_t end, bool bigEndian, Visit visit) {
    uint8_t h[8];
    while (end - pos >= 8 && file.readInto(pos, h, 8)) {
        Chunk c{be32(h), pos + 8, bigEndian ? be32(h + 4) : le32(h + 4)};
        if (!visit(c)) return;
        const uint64_t padded = c.size + (c.size & 1);
        if (padded > end - c.offset) return;
        pos = c.offset + padded;
    }
}

// Reads up to `n` bytes of a chunk's data into `out`; false if fewer are there.
bool readChunk(FileHandle& file, const Chunk& c, uint64_t end, uint8_t* out, size_t n) {
    return c.size >= n && n <= end - c.offset && file.readInto(c.offset, out, n);
}

}  // namespace

void verifyWav(Tag& tag, Findings& findings) {
    uint64_t end = 0;
    auto file = tag.setupFile(end);
    if (!file || end < 12) return;
    uint8_t head[12];
    if (!file->readInto(0, head, 12) || be32(head + 8) != fourcc("WAVE")) return;
    const bool rf64 = be32(head) == fourcc("RF64");
    if (!rf64 && be32(head) != fourcc("RIFF")) return;

    std::optional<uint16_t> blockAlign;
    bool plain = false;  // PCM, float, A-law or mu-law: one frame per block
    std::optional<uint64_t> declared, ds64Data;
    std::optional<Chunk> data;
    walkChunks(*file, 12, end, false, [&](const Chunk& c) {
        uint8_t b[26] = {};
        if (c.id == fourcc("fmt ") && readChunk(*file, c, end, b, 16)) {
            uint16_t format = le16(b);
            if (format == 0xFFFE && readChunk(*file, c, end, b, 26)) format = le16(b + 24);
            plain = format == 1 || format == 3 || format == 6 || format == 7;
            blockAlign = le16(b + 12);
        } else if (c.id == fourcc("fact") && readChunk(*file, c, end, b, 4)) {
            if (!declared) declared = le32(b);
        } else if (rf64 && c.id == fourcc("ds64") && readChunk(*file, c, end, b, 24)) {
            ds64Data = le64(b + 8);
            if (le64(b + 16)) declared = le64(b + 16);
        } else if (c.id == fourcc("data")) {
            data = c;
            if (rf64 && c.size == 0xFFFFFFFF && ds64Data) data->size = *ds64Data;
            return false;  // the sound data is the last chunk that matters here
        }
        return true;
    });
    // A format chunk without sound data: the data chunk was lost or its name damaged.
    if (!data && blockAlign) findings.add(12, msg::kWavNoData);
    if (!data || !blockAlign || *blockAlign == 0 || !plain) return;
    // What is there of the sound data; a cut file is the checker's finding.
    const uint64_t bytes = std::min(data->size, end - data->offset);
    if (bytes % *blockAlign)
        findings.add(data->offset, fmt::format(msg::kWavPartialFrame, bytes, *blockAlign));
    if (declared && bytes / *blockAlign != *declared)
        findings.add(data->offset, fmt::format(msg::kWavSampleCount, bytes / *blockAlign, *declared));
}

void verifyAiff(Tag& tag, Findings& findings) {
    uint64_t end = 0;
    auto file = tag.setupFile(end);
    if (!file || end < 12) return;
    uint8_t head[12];
    if (!file->readInto(0, head, 12) || be32(head) != fourcc("FORM")) return;
    const bool aifc = be32(head + 8) == fourcc("AIFC");
    if (!aifc && be32(head + 8) != fourcc("AIFF")) return;

    std::optional<uint64_t> frameBytes, declared;
    std::optional<Chunk> sound;
    uint64_t soundStart = 0;
    walkChunks(*file, 12, end, true, [&](const Chunk& c) {
        uint8_t b[22] = {};
        if (c.id == fourcc("COMM") && !declared && readChunk(*file, c, end, b, 18)) {
            const uint32_t channels = be16(b), bits = be16(b + 6);
            declared = be32(b + 2);
            uint32_t sampleBytes = (bits + 7) / 8;
            // Compressed AIFC audio cannot be measured without decoding.
            if (aifc) {
                if (!readChunk(*file, c, end, b, 22)) return true;
                const uint32_t type = be32(b + 18);
                if (type == fourcc("fl32") || type == fourcc("FL32") || type == fourcc("in32"))
                    sampleBytes = 4;
                else if (type == fourcc("fl64") || type == fourcc("FL64"))
                    sampleBytes = 8;
                else if (type == fourcc("in24"))
                    sampleBytes = 3;
                else if (type != fourcc("NONE") && type != fourcc("sowt") && type != fourcc("twos") &&
                         type != fourcc("raw "))
                    sampleBytes = 0;
            }
            if (channels && sampleBytes) frameBytes = uint64_t(channels) * sampleBytes;
        } else if (c.id == fourcc("SSND") && !sound && readChunk(*file, c, end, b, 8)) {
            const uint64_t skip = 8 + uint64_t(be32(b));  // offset and block size, then the offset
            if (skip <= c.size) {
                sound = c;
                soundStart = c.offset + skip;
                sound->size = c.size - skip;
            }
        }
        return true;
    });
    // Sound data may be left out only when there is none to hold.
    if (!sound && frameBytes && declared && *declared > 0)
        findings.add(12, fmt::format(msg::kAiffSampleCount, 0, *declared));
    if (!sound || !frameBytes || !declared || soundStart > end) return;
    const uint64_t bytes = std::min(sound->size, end - soundStart);
    if (bytes % *frameBytes)
        findings.add(soundStart, fmt::format(msg::kAiffPartialFrame, bytes, *frameBytes));
    if (bytes / *frameBytes != *declared)
        findings.add(soundStart, fmt::format(msg::kAiffSampleCount, bytes / *frameBytes, *declared));
}

void verifyDsf(Tag& tag, Findings& findings) {
    uint64_t end = 0;
    auto file = tag.setupFile(end);
    // The "DSD " chunk (28 bytes), the "fmt " chunk (52) and the "data" chunk's header (12).
    constexpr uint64_t kAudio = 28 + 52 + 12;
    uint8_t h[kAudio];
    if (!file || end < kAudio || !file->readInto(0, h, kAudio)) return;
    if (be32(h) != fourcc("DSD ") || be32(h + 28) != fourcc("fmt ") || be32(h + 80) != fourcc("data")) return;
    const uint32_t channels = le32(h + 52), bits = le32(h + 60), blockSize = le32(h + 72);
    const uint64_t samples = le64(h + 64), dataSize = le64(h + 84);
    if (channels == 0 || blockSize == 0 || (bits != 1 && bits != 8) || dataSize < 12) return;
    // Each channel's samples fill whole blocks, the last one padded.
    const uint64_t perChannel = bits == 1 ? samples / 8 + (samples % 8 ? 1 : 0) : samples;
    const uint64_t needed = perChannel / blockSize + (perChannel % blockSize ? 1 : 0);
    const uint64_t group = uint64_t(channels) * blockSize;
    const uint64_t bytes = std::min(dataSize - 12, end - kAudio);
    if (bytes % group) findings.add(kAudio, fmt::format(msg::kDsfPartialBlock, bytes, group));
    if (bytes / group != needed)
        findings.add(kAudio, fmt::format(msg::kDsfBlockCount, bytes / group, needed));
}

namespace {

// DSDIFF chunks: a four-byte id and a 64-bit big-endian size, padded to an
// even length. Calls `visit` for each chunk between `pos` and `end`.
template <typename Visit>
void walkDffChunks(FileHandle& file, uint64_t pos, uint64_t end, Visit visit) {
    uint8_t h[12];
    while (end - pos >= 12 && file.readInto(pos, h, 12)) {
        const Chunk c{be32(h), pos + 12, be64(h + 4)};
        if (!visit(c)) return;
        const uint64_t padded = c.size + (c.size & 1);
        if (c.size > end - c.offset || padded > end - c.offset) return;
        pos = c.offset + padded;
    }
}

}  // namespace

void verifyDff(Tag& tag, Findings& findings) {
    uint64_t end = 0;
    auto file = tag.setupFile(end);
    uint8_t head[16];
    if (!file || end < 16 || !file->readInto(0, head, 16) || be32(head) != fourcc("FRM8") ||
        be32(head + 12) != fourcc("DSD "))
        return;
    uint32_t channels = 0;
    walkDffChunks(*file, 16, end, [&](const Chunk& c) {
        const uint64_t present = std::min(c.size, end - c.offset);
        if (c.id == fourcc("PROP") && present >= 4) {
            walkDffChunks(*file, c.offset + 4, c.offset + present, [&](const Chunk& p) {
                uint8_t b[2];
                if (p.id == fourcc("CHNL") && readChunk(*file, p, end, b, 2)) channels = be16(b);
                return true;
            });
        } else if (c.id == fourcc("DSD ")) {
            if (present < c.size) findings.add(c.offset, fmt::format(msg::kDffCutShort, present, c.size));
            if (channels && present % channels)
                findings.add(c.offset, fmt::format(msg::kDffPartialFrame, present, channels));
            return false;
        } else if (c.id == fourcc("DST ")) {
            if (present < c.size) findings.add(c.offset, fmt::format(msg::kDffCutShort, present, c.size));
            std::optional<uint32_t> declared;
            uint64_t frames = 0;
            walkDffChunks(*file, c.offset, c.offset + present, [&](const Chunk& f) {
                uint8_t b[4];
                if (f.id == fourcc("FRTE") && readChunk(*file, f, end, b, 4)) declared = be32(b);
                // A frame cut by the end of the file is not whole.
                if (f.id == fourcc("DSTF") && f.size <= c.offset + present - f.offset) ++frames;
                return true;
            });
            if (declared && frames != *declared)
                findings.add(c.offset, fmt::format(msg::kDffDstFrames, frames, *declared));
            return false;
        }
        return true;
    });
}

}  // namespace sondrel::verify
