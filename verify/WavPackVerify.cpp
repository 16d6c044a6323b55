#include "verify/WavPackVerify.h"

#include <fmt/format.h>

#include <wavpack/wavpack.h>

extern "C" {
#include <libavutil/md5.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "core/ByteReader.h"
#include "core/FileHandle.h"
#include "core/Tag.h"
#include "verify/Messages.h"

namespace sondrel::verify {

namespace {

constexpr uint32_t kHeaderSize = 32;
// Blocks are at most about a megabyte; a larger size is a damaged header.
constexpr uint32_t kMaxBlock = 1 << 24;
constexpr uint32_t kInitialBlock = 0x800;
constexpr uint32_t kSampleRateShift = 23;
constexpr uint8_t kIdBlockChecksum = 0x2F;
constexpr uint8_t kIdLarge = 0x80, kIdOddSize = 0x40, kIdMask = 0x3F;
constexpr uint32_t kRates[15] = {6000,  8000,  9600,  11025, 12000, 16000, 22050, 24000,
                                 32000, 44100, 48000, 64000, 88200, 96000, 192000};

struct BlockHeader {
    uint32_t size = 0;  // whole block, header included
    uint64_t index = 0, samples = 0, total = 0;
    bool totalKnown = false;
    uint32_t flags = 0;
};

std::optional<BlockHeader> parseHeader(const uint8_t* p) {
    if (be32(p) != fourcc("wvpk")) return std::nullopt;
    const uint32_t ckSize = le32(p + 4), version = le16(p + 8);
    if (ckSize < kHeaderSize - 8 || ckSize > kMaxBlock || (ckSize & 1) || version < 0x402 || version > 0x410)
        return std::nullopt;
    BlockHeader h;
    h.size = ckSize + 8;
    // 40-bit counts: the low 32 bits, then a high byte.
    h.index = le32(p + 16) | (uint64_t(p[10]) << 32);
    const uint32_t total = le32(p + 12);
    h.totalKnown = total != 0xFFFFFFFF;
    h.total = total | (uint64_t(p[11]) << 32);
    h.samples = le32(p + 20);
    h.flags = le32(p + 24);
    return h;
}

// The checksum the encoder stores as the block's last metadata item: over
// the 16-bit words from the start of the block to that item.
uint32_t blockChecksum(const uint8_t* p, size_t bytes) {
    uint32_t sum = 0xFFFFFFFF;
    for (size_t i = 0; i + 1 < bytes; i += 2) sum = sum * 3 + p[i] + (uint32_t(p[i + 1]) << 8);
    return sum;
}

// nullopt when the block carries no checksum, else whether it matches.
std::optional<bool> checksumMatches(ByteSpan block) {
    ByteReader r(block);
    r.skip(kHeaderSize);
    while (!r.atEnd()) {
        const size_t itemStart = r.pos();
        auto id = r.u8();
        if (!id) return false;
        uint32_t words = 0;
        if (*id & kIdLarge) {
            auto w = r.le24();
            if (!w) return false;
            words = *w;
        } else {
            auto w = r.u8();
            if (!w) return false;
            words = *w;
        }
        const size_t dataStart = r.pos();
        if (!r.skip(uint64_t(words) * 2)) return false;
        if ((*id & kIdMask) != kIdBlockChecksum) continue;
        const size_t length = words * 2 - ((*id & kIdOddSize) ? 1 : 0);
        uint32_t sum = blockChecksum(block.data(), itemStart);
        if (length == 2) return ((sum ^ (sum >> 16)) & 0xFFFF) == le16(block.data() + dataStart);
        if (length == 4) return sum == le32(block.data() + dataStart);
        return std::nullopt;
    }
    return std::nullopt;
}

// The first "wvpk" with a sound header at or after `from`, or the end.
uint64_t findBlock(FileHandle& file, uint64_t from, uint64_t end) {
    static const uint8_t kMarker[4] = {'w', 'v', 'p', 'k'};
    for (uint64_t pos = from; pos < end;) {
        uint64_t at = file.spanForMarker(kMarker, 4, pos, end);
        if (at == FileHandle::kNotFound) return end;
        uint8_t h[kHeaderSize];
        if (end - at >= kHeaderSize && file.readInto(at, h, kHeaderSize) && parseHeader(h)) return at;
        pos = at + 1;
    }
    return end;
}

// An APE tag (with its header, as WavPack tools write it) and an ID3v1 tag
// may follow the audio; the format checker reads them. The length of the
// tag at `pos`, or 0.
uint64_t trailingTagLength(FileHandle& file, uint64_t pos, uint64_t end) {
    uint8_t m[32];
    if (end - pos >= 32 && file.readInto(pos, m, 32) &&
        std::string_view(reinterpret_cast<char*>(m), 8) == "APETAGEX") {
        const uint64_t length = 32 + uint64_t(le32(m + 12));
        return length <= end - pos ? length : 0;
    }
    if (end - pos == 128 && file.readInto(pos, m, 3) && m[0] == 'T' && m[1] == 'A' && m[2] == 'G') return 128;
    return 0;
}

// Follows the blocks without decoding them.
void checkBlocks(FileHandle& file, uint64_t end, Findings& findings) {
    uint64_t pos = findBlock(file, 0, end);
    if (pos >= end) return findings.add(0, msg::kWvNoBlock);

    uint32_t rate = 44100;
    std::optional<uint64_t> declared, expected;
    uint64_t samples = 0;
    bool resynced = false;
    Bytes block;
    auto time = [&](uint64_t s) { return formatTime(s, rate); };
    while (pos < end) {
        uint8_t head[kHeaderSize];
        std::optional<BlockHeader> h;
        if (end - pos >= kHeaderSize && file.readInto(pos, head, kHeaderSize)) h = parseHeader(head);
        if (!h) {
            if (uint64_t tagLength = trailingTagLength(file, pos, end)) {
                pos += tagLength;
                if (pos < end && !trailingTagLength(file, pos, end)) {
                    findings.add(pos, fmt::format(msg::kWvTrailing, end - pos));
                    break;
                }
                continue;
            }
            uint64_t next = findBlock(file, pos + 1, end);
            if (next >= end) {
                findings.add(pos, fmt::format(msg::kWvTrailing, end - pos));
                break;
            }
            findings.add(pos, fmt::format(msg::kWvLostSync, time(expected.value_or(0)), next - pos));
            pos = next;
            resynced = true;
            continue;
        }
        if (!declared && h->totalKnown) declared = h->total;
        const uint32_t rateCode = (h->flags >> kSampleRateShift) & 0xF;
        if (rateCode < 15) rate = kRates[rateCode];
        if (h->size > end - pos) {
            findings.add(pos, fmt::format(msg::kWvCutShort, time(h->index)));
            break;
        }
        block.resize(h->size);
        if (!file.readInto(pos, block.data(), h->size)) {
            findings.add(pos, msg::kReadFailed);
            break;
        }
        if (h->samples && (h->flags & kInitialBlock)) {
            // After lost sync the gap has been reported already.
            if (expected && h->index != *expected && !resynced)
                findings.add(pos, fmt::format(msg::kWvOutOfOrder, time(h->index), time(*expected)));
            expected = h->index + h->samples;
            resynced = false;
            samples += h->samples;
        }
        if (checksumMatches(block) == false) findings.add(pos, fmt::format(msg::kWvChecksum, time(h->index)));
        pos += h->size;
    }
    if (declared && samples != *declared)
        findings.add(0, fmt::format(msg::kWvTotalSamples, time(samples), time(*declared)));
}

// The file as a stream for the decoder, read through the project's file
// access; the decoder asks for one block at a time.
struct Stream {
    FileHandle& file;
    uint64_t size, pos = 0;
    int pushed = -1;  // a byte the decoder gave back, or -1
};

int32_t readBytes(void* id, void* data, int32_t count) {
    auto& s = *static_cast<Stream*>(id);
    auto* out = static_cast<uint8_t*>(data);
    int32_t done = 0;
    if (count > 0 && s.pushed >= 0) {
        *out++ = uint8_t(s.pushed);
        s.pushed = -1;
        ++done;
    }
    if (count <= done || s.pos >= s.size) return done;
    const size_t n = size_t(std::min<uint64_t>(uint64_t(count - done), s.size - s.pos));
    if (!s.file.readInto(s.pos, out, n)) return done;
    s.pos += n;
    return done + int32_t(n);
}
int64_t getPos(void* id) {
    auto& s = *static_cast<Stream*>(id);
    return int64_t(s.pos) - (s.pushed >= 0 ? 1 : 0);
}
int setPosAbs(void* id, int64_t pos) {
    auto& s = *static_cast<Stream*>(id);
    if (pos < 0 || uint64_t(pos) > s.size) return -1;
    s.pos = uint64_t(pos);
    s.pushed = -1;
    return 0;
}
int setPosRel(void* id, int64_t delta, int mode) {
    auto& s = *static_cast<Stream*>(id);
    const int64_t base = mode == SEEK_SET ? 0 : mode == SEEK_CUR ? getPos(id) : int64_t(s.size);
    if (delta < 0 ? 0 - uint64_t(delta) > uint64_t(base) : uint64_t(delta) > s.size - uint64_t(base))
        return -1;
    return setPosAbs(id, base + delta);
}
int pushBackByte(void* id, int c) {
    auto& s = *static_cast<Stream*>(id);
    if (s.pos == 0 || s.pushed >= 0) return EOF;
    s.pushed = c & 0xFF;
    return c;
}
int64_t getLength(void* id) {
    return int64_t(static_cast<Stream*>(id)->size);
}
int canSeek(void*) {
    return 1;
}

// Decodes every block with libwavpack, which checks each block's checksum
// and the CRC of its decoded samples, and compares the decoded length with
// the total in the header.
// The bytes of decoded samples as the encoder hashed them for the stored
// MD5: the source file's sample layout, little-endian unless it was
// big-endian, 8-bit samples unsigned unless they were signed.
void appendSamples(const int32_t* samples, size_t count, int bytes, int qmode, Bytes& out) {
    out.resize(count * size_t(bytes));
    uint8_t* p = out.data();
    const uint32_t flip =
        (bytes == 1 && !(qmode & QMODE_SIGNED_BYTES)) || (bytes > 1 && (qmode & QMODE_UNSIGNED_WORDS))
            ? uint32_t(1) << (bytes * 8 - 1)
            : 0;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t v = uint32_t(samples[i]) ^ flip;
        for (int b = 0; b < bytes; ++b) {
            const int shift = (qmode & QMODE_BIG_ENDIAN) ? (bytes - 1 - b) * 8 : b * 8;
            *p++ = uint8_t(v >> shift);
        }
    }
}

// Decodes every block with libwavpack, which checks each block's checksum
// and the CRC of its decoded samples, compares the decoded length with the
// total in the header and, when the encoder stored one, the MD5 of the
// decoded audio.
void decode(FileHandle& file, uint64_t size, Findings& findings) {
    Stream stream{file, size};
    WavpackStreamReader64 reader{&readBytes,    nullptr,    &getPos,  &setPosAbs, &setPosRel,
                                 &pushBackByte, &getLength, &canSeek, nullptr,    nullptr};
    char error[80] = {};
    std::unique_ptr<WavpackContext, decltype(&WavpackCloseFile)> wpc(
        WavpackOpenFileInputEx64(&reader, &stream, nullptr, error, OPEN_DSD_AS_PCM, 0), &WavpackCloseFile);
    if (!wpc) return findings.add(0, fmt::format(msg::kWvCannotDecode, error));
    const uint32_t rate = WavpackGetSampleRate(wpc.get());
    const int channels = std::max(WavpackGetNumChannels(wpc.get()), 1);
    // A fixed 256 KiB of samples, whatever the channel count.
    const uint32_t chunk = uint32_t(std::max(1, 65536 / channels));
    std::vector<int32_t> buffer(size_t(chunk) * size_t(channels));
    // DSD audio is hashed as DSD bytes, which decoding to PCM does not give;
    // a lossy (hybrid) file's signature is of the source, which only its
    // correction file restores.
    uint8_t stored[16] = {};
    const int qmode = WavpackGetQualifyMode(wpc.get()), bytes = WavpackGetBytesPerSample(wpc.get());
    std::unique_ptr<AVMD5, decltype(&av_free)> md5(nullptr, &av_free);
    if (WavpackGetMD5Sum(wpc.get(), stored) && !(qmode & QMODE_DSD_AUDIO) &&
        (WavpackGetMode(wpc.get()) & MODE_LOSSLESS) && bytes >= 1 && bytes <= 4) {
        md5.reset(av_md5_alloc());
        if (md5) av_md5_init(md5.get());
    }
    Bytes hashed;
    uint64_t decoded = 0;
    int errors = 0;
    for (;;) {
        const uint64_t at = uint64_t(std::max<int64_t>(WavpackGetSampleIndex64(wpc.get()), 0));
        const uint32_t n = WavpackUnpackSamples(wpc.get(), buffer.data(), chunk);
        if (const int now = WavpackGetNumErrors(wpc.get()); now > errors) {
            findings.add(stream.pos, fmt::format(msg::kWvDecodeCrc, formatTime(at, rate)));
            errors = now;
        }
        if (n == 0) break;
        decoded += n;
        if (md5) {
            appendSamples(buffer.data(), size_t(n) * size_t(channels), bytes, qmode, hashed);
            av_md5_update(md5.get(), hashed.data(), hashed.size());
        }
    }
    const int64_t declared = WavpackGetNumSamples64(wpc.get());
    if (declared >= 0 && decoded != uint64_t(declared))
        findings.add(stream.pos, fmt::format(msg::kWvDecodedLength, formatTime(decoded, rate),
                                             formatTime(uint64_t(declared), rate)));
    // After a block that failed, the mismatch says nothing new.
    if (md5 && errors == 0) {
        uint8_t sum[16];
        av_md5_final(md5.get(), sum);
        if (!std::equal(sum, sum + 16, stored)) findings.add(0, msg::kWvMd5Mismatch);
    }
}

}  // namespace

void verifyWavPack(Tag& tag, Tier tier, Findings& findings) {
    uint64_t size = 0;
    auto file = tag.setupFile(size);
    if (!file) return;
    checkBlocks(*file, size, findings);
    if (tier == Tier::Full) decode(*file, size, findings);
}

}  // namespace sondrel::verify
