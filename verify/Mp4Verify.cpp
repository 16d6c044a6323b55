#include "verify/Mp4Verify.h"

#include <fmt/format.h>

#include <optional>
#include <vector>

#include "core/Tag.h"
#include "verify/FfmpegDecode.h"
#include "verify/Messages.h"
#include "verify/SequentialReader.h"

namespace sondrel::verify {

namespace {

struct Box {
    uint64_t start = 0, size = 0, header = 0;
    uint32_t type = 0;
    uint64_t payload() const { return start + header; }
    uint64_t end() const { return start + size; }
};

// The box at `pos`, lying wholly before `end`; a size of 0 runs to `end`.
std::optional<Box> readBox(FileHandle& file, uint64_t pos, uint64_t end) {
    uint8_t h[16];
    if (end - pos < 8 || !file.readInto(pos, h, 8)) return std::nullopt;
    Box b{pos, be32(h), 8, be32(h + 4)};
    if (b.size == 1) {
        if (end - pos < 16 || !file.readInto(pos + 8, h + 8, 8)) return std::nullopt;
        b.size = be64(h + 8);
        b.header = 16;
    } else if (b.size == 0)
        b.size = end - pos;
    if (b.size < b.header || b.size > end - pos) return std::nullopt;
    return b;
}

std::optional<Box> child(FileHandle& file, const Box& parent, uint32_t type) {
    for (uint64_t pos = parent.payload(); pos < parent.end();) {
        auto b = readBox(file, pos, parent.end());
        if (!b) return std::nullopt;
        if (b->type == type) return b;
        pos = b->end();
    }
    return std::nullopt;
}

// Reads the big-endian 32- or 64-bit entries of a table front to back.
class Entries {
  public:
    Entries(FileHandle& file, uint64_t start, uint64_t count, unsigned width)
        : reader_(file, start + count * width), pos_(start), width_(width) {}
    std::optional<uint64_t> next() {
        ByteSpan w = reader_.window(pos_, width_);
        if (w.size() < width_) return std::nullopt;
        pos_ += width_;
        return width_ == 8 ? be64(w.data()) : be32(w.data());
    }

  private:
    SequentialReader reader_;
    uint64_t pos_;
    unsigned width_;
};

struct Table {
    uint64_t start = 0, count = 0;
};

// The entry count of a full box's table and where the entries begin, when
// `count` entries of `width` bytes fit inside the box.
std::optional<Table> table(FileHandle& file, const Box& box, uint64_t skip, unsigned width) {
    uint8_t h[4];
    const uint64_t at = box.payload() + 4 + skip;
    if (box.end() - box.payload() < 8 + skip || !file.readInto(at, h, 4)) return std::nullopt;
    const uint64_t count = be32(h);
    // A width of 0: the count alone (a uniform sample size lists no entries).
    if (width && count > (box.end() - at - 4) / width) return std::nullopt;
    return Table{at + 4, count};
}

// What the FFmpeg demuxer will hold in memory: the sample tables, and an
// index entry per sample.
struct Shape {
    uint64_t moovBytes = 0, tracks = 0, samples = 0;
};
// Beyond these (about six hours of AAC) the file's tables are checked, its
// audio not decoded: the demuxer's index would outgrow a worker's memory.
constexpr uint64_t kMaxMoovBytes = 16 << 20, kMaxTracks = 64, kMaxSamples = 1000000;

void checkTrack(FileHandle& file, const Box& trak, unsigned number, uint64_t fileSize,
                const std::vector<std::pair<uint64_t, uint64_t>>& mdats, Findings& findings, Shape& shape) {
    std::optional<Box> stbl;
    if (auto mdia = child(file, trak, fourcc("mdia")))
        if (auto minf = child(file, *mdia, fourcc("minf"))) stbl = child(file, *minf, fourcc("stbl"));
    if (!stbl) return;
    auto stco = child(file, *stbl, fourcc("stco"));
    auto co64 = child(file, *stbl, fourcc("co64"));
    auto stsc = child(file, *stbl, fourcc("stsc"));
    auto stsz = child(file, *stbl, fourcc("stsz"));
    if (!stco && !co64) return;  // fragmented: the samples are described elsewhere
    const unsigned width = stco ? 4 : 8;
    std::optional<Table> chunks = table(file, stco ? *stco : *co64, 0, width);
    std::optional<Table> perChunk = stsc ? table(file, *stsc, 0, 12) : std::nullopt;
    std::optional<Table> sizes;
    uint8_t uniform[4] = {};
    if (stsz && stsz->end() - stsz->payload() >= 12 && file.readInto(stsz->payload() + 4, uniform, 4))
        sizes = be32(uniform) ? table(file, *stsz, 4, 0) : table(file, *stsz, 4, 4);
    if (!chunks || !perChunk || !sizes || perChunk->count == 0)
        return findings.add(trak.start, fmt::format(msg::kMp4BadTable, number));
    if (be32(uniform)) sizes->start = 0;  // no per-sample entries follow
    shape.samples += sizes->count;

    Entries offsets(file, chunks->start, chunks->count, width);
    Entries sampleSizes(file, sizes->start, sizes->start ? sizes->count : 0, 4);
    // The samples-per-chunk runs, read as they are reached.
    auto run = [&](uint64_t i) -> std::optional<std::pair<uint64_t, uint64_t>> {
        uint8_t e[8];
        if (i >= perChunk->count || !file.readInto(perChunk->start + i * 12, e, 8)) return std::nullopt;
        return std::pair<uint64_t, uint64_t>{be32(e), be32(e + 4)};
    };
    uint64_t runIndex = 0, samples = 0, inChunks = 0;
    auto current = run(0), following = run(1);
    for (uint64_t chunk = 1; chunk <= chunks->count; ++chunk) {
        while (following && following->first <= chunk) {
            current = following;
            following = run(++runIndex + 1);
        }
        auto offset = offsets.next();
        if (!offset || !current) return findings.add(trak.start, fmt::format(msg::kMp4BadTable, number));
        // The chunk's samples, never more than the size table lists.
        const uint64_t inChunk = std::min<uint64_t>(current->second, sizes->count - samples);
        uint64_t bytes = inChunk * be32(uniform);
        for (uint64_t s = 0; !be32(uniform) && s < inChunk; ++s) {
            auto size = sampleSizes.next();
            if (!size) return findings.add(trak.start, fmt::format(msg::kMp4BadTable, number));
            bytes += *size;
        }
        samples += inChunk;
        inChunks += current->second;
        if (*offset > fileSize || bytes > fileSize - *offset) {
            findings.add(*offset, fmt::format(msg::kMp4ChunkOutsideFile, number, chunk, bytes));
            continue;
        }
        bool inside = mdats.empty();
        for (const auto& [start, end] : mdats)
            inside = inside || (*offset >= start && bytes <= end - *offset);
        if (!inside) findings.add(*offset, fmt::format(msg::kMp4ChunkOutsideMdat, number, chunk, bytes));
    }
    if (inChunks != sizes->count)
        findings.add(stbl->start, fmt::format(msg::kMp4SampleCount, number, inChunks, sizes->count));
}

void checkTables(FileHandle& file0, uint64_t size, Findings& findings, Shape& shape) {
    FileHandle* file = &file0;
    std::vector<std::pair<uint64_t, uint64_t>> mdats;
    std::optional<Box> moov;
    for (uint64_t pos = 0; pos < size;) {
        auto b = readBox(*file, pos, size);
        if (!b) break;
        if (b->type == fourcc("mdat")) mdats.emplace_back(b->payload(), b->end());
        if (b->type == fourcc("moov") && !moov) moov = b;
        pos = b->end();
    }
    if (!moov) return;
    shape.moovBytes = moov->size;
    unsigned number = 0;
    for (uint64_t pos = moov->payload(); pos < moov->end();) {
        auto b = readBox(*file, pos, moov->end());
        if (!b) break;
        if (b->type == fourcc("trak")) checkTrack(*file, *b, ++number, size, mdats, findings, shape);
        pos = b->end();
    }
    shape.tracks = number;
}

}  // namespace

void verifyMp4(Tag& tag, Tier tier, Findings& findings) {
    uint64_t size = 0;
    auto file = tag.setupFile(size);
    if (!file) return;
    Shape shape;
    checkTables(*file, size, findings, shape);
    if (tier != Tier::Full) return;
    if (shape.moovBytes > kMaxMoovBytes || shape.tracks > kMaxTracks || shape.samples > kMaxSamples)
        return findings.add(
            0, fmt::format(msg::kNotDecoded, shape.moovBytes > kMaxMoovBytes
                                                 ? fmt::format("{} bytes of sample tables", shape.moovBytes)
                                             : shape.tracks > kMaxTracks
                                                 ? fmt::format("{} tracks", shape.tracks)
                                                 : fmt::format("{} samples", shape.samples)));
    decodeWithFfmpeg(
        *file, size, "mov",
        {msg::kMp4CannotDecode, msg::kMp4DecodeError, msg::kMp4ReadError, msg::kMp4DecodedLength}, findings);
}

}  // namespace sondrel::verify
