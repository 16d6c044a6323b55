#include "verify/FlacVerify.h"

#include <FLAC/stream_decoder.h>
#include <fmt/format.h>

#include <array>
#include <cstring>
#include <memory>
#include <optional>

#include "core/ByteReader.h"
#include "core/Tag.h"
#include "verify/Messages.h"
#include "verify/SequentialReader.h"

namespace sondrel::verify {

namespace {

struct StreamInfo {
    uint32_t minBlockSize = 0, maxBlockSize = 0;
    uint32_t sampleRate = 0, channels = 0, bitsPerSample = 0;
    uint64_t totalSamples = 0;  // 0: unknown
    std::array<uint8_t, 16> md5{};
    uint64_t offset = 0;      // of the STREAMINFO block header
    uint64_t audioStart = 0;  // first byte after the metadata blocks
};

// The metadata blocks after an optional ID3v2 tag and the "fLaC" marker; the
// format checker reports their faults, here they only locate the audio.
std::optional<StreamInfo> readStreamInfo(FileHandle& file, uint64_t size) {
    uint64_t pos = 0;
    uint8_t head[10];
    if (file.readInto(0, head, 10) && head[0] == 'I' && head[1] == 'D' && head[2] == '3') {
        uint64_t tagSize = (uint64_t(head[6] & 0x7F) << 21) | ((head[7] & 0x7F) << 14) |
                           ((head[8] & 0x7F) << 7) | (head[9] & 0x7F);
        pos = 10 + tagSize + ((head[5] & 0x10) ? 10 : 0);
    }
    uint8_t marker[4];
    if (!file.readInto(pos, marker, 4) || be32(marker) != fourcc("fLaC")) return std::nullopt;
    pos += 4;
    std::optional<StreamInfo> info;
    for (bool last = false; !last;) {
        uint8_t block[4];
        if (size - pos < 4 || !file.readInto(pos, block, 4)) return std::nullopt;
        last = block[0] & 0x80;
        uint32_t length = be24(block + 1);
        if ((block[0] & 0x7F) == 0 && length >= 34 && !info) {
            uint8_t si[34];
            if (!file.readInto(pos + 4, si, 34)) return std::nullopt;
            StreamInfo s;
            s.offset = pos;
            s.minBlockSize = be16(si);
            s.maxBlockSize = be16(si + 2);
            s.sampleRate = be24(si + 10) >> 4;
            s.channels = ((si[12] >> 1) & 7) + 1;
            s.bitsPerSample = (((si[12] & 1) << 4) | (si[13] >> 4)) + 1;
            s.totalSamples = (uint64_t(si[13] & 0x0F) << 32) | be32(si + 14);
            std::copy(si + 18, si + 34, s.md5.begin());
            info = s;
        }
        if (length > size - pos - 4) return std::nullopt;
        pos += 4 + length;
    }
    if (!info || info->sampleRate == 0) return std::nullopt;
    info->audioStart = pos;
    return info;
}

constexpr std::array<uint8_t, 256> makeCrc8() {
    std::array<uint8_t, 256> t{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned c = i;
        for (int b = 0; b < 8; ++b) c = (c & 0x80) ? ((c << 1) ^ 0x07) : (c << 1);
        t[i] = uint8_t(c);
    }
    return t;
}
constexpr std::array<uint16_t, 256> makeCrc16() {
    std::array<uint16_t, 256> t{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned c = i << 8;
        for (int b = 0; b < 8; ++b) c = (c & 0x8000) ? ((c << 1) ^ 0x8005) : (c << 1);
        t[i] = uint16_t(c);
    }
    return t;
}
constexpr auto kCrc8 = makeCrc8();
// Eight tables for the CRC-16 eight bytes at a time: table k gives the CRC
// contribution of a byte followed by k zero bytes.
constexpr std::array<std::array<uint16_t, 256>, 8> makeCrc16Slices() {
    std::array<std::array<uint16_t, 256>, 8> t{};
    t[0] = makeCrc16();
    for (size_t k = 1; k < 8; ++k)
        for (unsigned b = 0; b < 256; ++b) t[k][b] = uint16_t((t[k - 1][b] << 8) ^ t[0][t[k - 1][b] >> 8]);
    return t;
}
constexpr auto kCrc16 = makeCrc16Slices();

uint16_t crc16(uint16_t c, const uint8_t* p, size_t n) {
    for (; n >= 8; p += 8, n -= 8) {
        const uint16_t x = uint16_t(c ^ ((p[0] << 8) | p[1]));
        c = uint16_t(kCrc16[7][x >> 8] ^ kCrc16[6][x & 0xFF] ^ kCrc16[5][p[2]] ^ kCrc16[4][p[3]] ^
                     kCrc16[3][p[4]] ^ kCrc16[2][p[5]] ^ kCrc16[1][p[6]] ^ kCrc16[0][p[7]]);
    }
    for (; n; ++p, --n) c = uint16_t((c << 8) ^ kCrc16[0][(c >> 8) ^ *p]);
    return c;
}

// The longest frame header: sync and codes (4), a 7-byte coded number, a
// 16-bit block size, a 16-bit rate and the CRC-8.
constexpr size_t kMaxHeader = 16;

struct FrameHeader {
    bool variable = false;  // the number counts samples, not frames
    uint32_t blockSize = 0;
    uint64_t number = 0;
    size_t length = 0;
};

// A frame header at `p` that is well formed, carries a matching CRC-8 and
// agrees with STREAMINFO (so that a chance sync pattern inside compressed
// audio is not taken for a frame).
std::optional<FrameHeader> parseHeader(ByteSpan bytes, const StreamInfo& si) {
    ByteReader r(bytes);
    auto b0 = r.u8(), b1 = r.u8(), b2 = r.u8(), b3 = r.u8(), first = r.u8();
    if (!first || *b0 != 0xFF || (*b1 & 0xFE) != 0xF8) return std::nullopt;
    FrameHeader h;
    h.variable = *b1 & 1;
    const unsigned sizeCode = *b2 >> 4, rateCode = *b2 & 0x0F, channelCode = *b3 >> 4,
                   bitsCode = (*b3 >> 1) & 7;
    if (sizeCode == 0 || rateCode == 15 || channelCode > 10 || bitsCode == 3 || (*b3 & 1))
        return std::nullopt;
    const uint32_t channels = channelCode < 8 ? channelCode + 1 : 2;
    if (channels != si.channels) return std::nullopt;
    static constexpr uint32_t kBits[8] = {0, 8, 12, 0, 16, 20, 24, 32};
    if (bitsCode != 0 && kBits[bitsCode] != si.bitsPerSample) return std::nullopt;

    // The frame or sample number, coded like UTF-8 (up to 36 bits in 7 bytes).
    unsigned extra = 0;
    uint64_t number = *first;
    if (*first >= 0x80) {
        if (*first < 0xC0 || *first == 0xFF) return std::nullopt;
        while (*first & (0x40 >> extra)) ++extra;
        number = *first & (0x3F >> extra);
        for (unsigned i = 0; i < extra; ++i) {
            auto c = r.u8();
            if (!c || (*c & 0xC0) != 0x80) return std::nullopt;
            number = (number << 6) | (*c & 0x3F);
        }
    }
    h.number = number;
    if (sizeCode == 1)
        h.blockSize = 192;
    else if (sizeCode <= 5)
        h.blockSize = 576u << (sizeCode - 2);
    else if (sizeCode == 6) {
        auto v = r.u8();
        if (!v) return std::nullopt;
        h.blockSize = *v + 1u;
    } else if (sizeCode == 7) {
        auto v = r.be16();
        if (!v) return std::nullopt;
        h.blockSize = *v + 1u;
    } else
        h.blockSize = 256u << (sizeCode - 8);
    static constexpr uint32_t kRates[12] = {0,     88200, 176400, 192000, 8000,  16000,
                                            22050, 24000, 32000,  44100,  48000, 96000};
    uint32_t rate = rateCode < 12 ? kRates[rateCode] : 0;
    if (rateCode == 12) {
        auto v = r.u8();
        if (!v) return std::nullopt;
        rate = *v * 1000u;
    } else if (rateCode >= 13) {
        auto v = r.be16();
        if (!v) return std::nullopt;
        rate = rateCode == 13 ? *v : *v * 10u;
    }
    if (rateCode != 0 && rate != si.sampleRate) return std::nullopt;
    const size_t crcAt = r.pos();
    auto crc = r.u8();
    if (!crc) return std::nullopt;
    uint8_t c = 0;
    for (size_t i = 0; i < crcAt; ++i) c = kCrc8[c ^ bytes[i]];
    if (c != *crc) return std::nullopt;
    h.length = r.pos();
    return h;
}

class FrameWalk {
  public:
    FrameWalk(FileHandle& file, uint64_t end, const StreamInfo& si, Findings& findings)
        : reader_(file, end), si_(si), findings_(findings) {}

    void run() {
        const uint64_t end = reader_.end();
        uint64_t start = si_.audioStart;
        if (start >= end) {
            if (si_.totalSamples)
                findings_.add(start, fmt::format(msg::kFlacNoFrames, time(si_.totalSamples)));
            return;
        }
        // The audio must begin with a frame; otherwise find the first one.
        auto header = headerAt(start);
        if (!header) {
            uint64_t found = scanFor(start + 1, nullptr);
            if (reader_.failed()) return findings_.add(start, msg::kReadFailed);
            findings_.add(start, fmt::format(msg::kFlacNoFirstFrame, found - start));
            if (found >= end) return;
            start = found;
            header = headerAt(start);
        }
        blockSize_ = header->blockSize;
        variable_ = header->variable;
        for (;;) {
            const uint64_t position = samplePosition(*header);
            samples_ += header->blockSize;
            uint16_t crc = 0;
            std::optional<FrameHeader> next;
            uint64_t at = scanFor(start + header->length + 2, &next, start, &crc);
            if (reader_.failed()) return findings_.add(start, msg::kReadFailed);
            if (!next) {
                if (crc != 0) findings_.add(start, fmt::format(msg::kFlacLastFrame, time(position)));
                break;
            }
            if (crc != 0) findings_.add(start, fmt::format(msg::kFlacFrameCrc, time(position)));
            const uint64_t expected = variable_ ? position + header->blockSize : header->number + 1;
            const uint64_t nextPosition = samplePosition(*next);
            if (next->number > expected)
                findings_.add(at, fmt::format(msg::kFlacLostSync, time(position + header->blockSize),
                                              time(nextPosition)));
            else if (next->number < expected)
                findings_.add(at, fmt::format(msg::kFlacOutOfOrder, time(nextPosition)));
            start = at;
            header = next;
        }
        if (si_.totalSamples && samples_ != si_.totalSamples)
            findings_.add(si_.offset,
                          fmt::format(msg::kFlacTotalSamples, time(samples_), time(si_.totalSamples)));
    }

  private:
    std::string time(uint64_t samples) const { return formatTime(samples, si_.sampleRate); }
    uint64_t samplePosition(const FrameHeader& h) const {
        return variable_ ? h.number : h.number * blockSize_;
    }

    std::optional<FrameHeader> headerAt(uint64_t pos) {
        ByteSpan w = reader_.window(pos, kMaxHeader);
        return parseHeader(w.first(std::min(w.size(), kMaxHeader)), si_);
    }

    // The offset of the next valid frame header at or after `from` (the end
    // of the audio when there is none, `next` then stays empty). With `crc`,
    // the CRC-16 of every byte from `crcFrom` to that offset.
    uint64_t scanFor(uint64_t from, std::optional<FrameHeader>* next, uint64_t crcFrom = 0,
                     uint16_t* crc = nullptr) {
        const uint64_t end = reader_.end();
        uint64_t pos = crc ? crcFrom : from;
        uint16_t c = 0;
        while (pos < end) {
            ByteSpan w = reader_.window(pos, kMaxHeader);
            if (w.empty()) break;
            // Near the end of the buffer a header may straddle it: stop short
            // there and refill, unless this is the end of the audio.
            size_t run = w.size();
            if (pos + run < end) run = run > kMaxHeader ? run - kMaxHeader : 1;
            // From one 0xFF (the first byte of a sync code) to the next, the
            // CRC runs over whole stretches.
            for (size_t i = 0; i < run;) {
                const void* ff = std::memchr(w.data() + i, 0xFF, run - i);
                const size_t at = ff ? size_t(static_cast<const uint8_t*>(ff) - w.data()) : run;
                c = crc16(c, w.data() + i, at - i);
                if (at == run) break;
                if (pos + at >= from && at + 1 < w.size() && (w[at + 1] & 0xFE) == 0xF8) {
                    if (auto h = parseHeader(w.subspan(at, std::min(w.size() - at, kMaxHeader)), si_)) {
                        if (next) *next = h;
                        if (crc) *crc = c;
                        return pos + at;
                    }
                }
                c = crc16(c, w.data() + at, 1);
                i = at + 1;
            }
            pos += run;
        }
        if (crc) *crc = c;
        return end;
    }

    SequentialReader reader_;
    const StreamInfo& si_;
    Findings& findings_;
    uint32_t blockSize_ = 0;
    bool variable_ = false;
    uint64_t samples_ = 0;
};

// libFLAC reads through the project's file handle, front to back.
struct DecodeState {
    FileHandle* file = nullptr;
    uint64_t end = 0;
    uint64_t pos = 0;
    uint64_t samples = 0;
    uint32_t rate = 0;
    std::optional<std::pair<uint64_t, std::string>> firstError;
    uint64_t errors = 0;
};

FLAC__StreamDecoderReadStatus onRead(const FLAC__StreamDecoder*, FLAC__byte buffer[], size_t* bytes,
                                     void* data) {
    auto& s = *static_cast<DecodeState*>(data);
    if (s.pos >= s.end) {
        *bytes = 0;
        return FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM;
    }
    size_t n = size_t(std::min<uint64_t>(*bytes, s.end - s.pos));
    if (!s.file->readInto(s.pos, buffer, n)) return FLAC__STREAM_DECODER_READ_STATUS_ABORT;
    s.pos += n;
    *bytes = n;
    return FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
}

FLAC__StreamDecoderWriteStatus onWrite(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                       const FLAC__int32* const[], void* data) {
    static_cast<DecodeState*>(data)->samples += frame->header.blocksize;
    return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}

void onError(const FLAC__StreamDecoder* decoder, FLAC__StreamDecoderErrorStatus status, void* data) {
    auto& s = *static_cast<DecodeState*>(data);
    ++s.errors;
    if (s.firstError) return;
    FLAC__uint64 at = 0;
    if (!FLAC__stream_decoder_get_decode_position(decoder, &at)) at = 0;
    s.firstError.emplace(at, fmt::format(msg::kFlacDecodeError, formatTime(s.samples, s.rate),
                                         FLAC__StreamDecoderErrorStatusString[status]));
}

void decode(FileHandle& file, uint64_t end, const StreamInfo& si, bool reportFrameErrors,
            Findings& findings) {
    std::unique_ptr<FLAC__StreamDecoder, void (*)(FLAC__StreamDecoder*)> decoder(FLAC__stream_decoder_new(),
                                                                                 FLAC__stream_decoder_delete);
    if (!decoder) return;
    DecodeState state;
    state.file = &file;
    state.end = end;
    state.rate = si.sampleRate;
    FLAC__stream_decoder_set_md5_checking(decoder.get(), true);
    if (FLAC__stream_decoder_init_stream(decoder.get(), onRead, nullptr, nullptr, nullptr, nullptr, onWrite,
                                         nullptr, onError, &state) != FLAC__STREAM_DECODER_INIT_STATUS_OK)
        return;
    const bool decoded = FLAC__stream_decoder_process_until_end_of_stream(decoder.get());
    const bool md5Matches = FLAC__stream_decoder_finish(decoder.get());
    const bool md5Set = si.md5 != std::array<uint8_t, 16>{};
    if (reportFrameErrors && state.firstError)
        findings.add(state.firstError->first, state.firstError->second);
    if (!decoded && !state.firstError) findings.add(state.pos, msg::kReadFailed);
    if (!md5Set)
        findings.add(si.offset, msg::kFlacMd5Unset);
    else if (!md5Matches)
        findings.add(si.offset, msg::kFlacMd5Mismatch);
    if (reportFrameErrors && si.totalSamples && state.samples != si.totalSamples)
        findings.add(si.offset, fmt::format(msg::kFlacDecodedLength, formatTime(state.samples, si.sampleRate),
                                            formatTime(si.totalSamples, si.sampleRate)));
}

}  // namespace

void verifyFlac(Tag& tag, Tier tier, Findings& findings) {
    uint64_t size = 0;
    auto file = tag.setupFile(size);
    if (!file) return;
    auto si = readStreamInfo(*file, size);
    if (!si) return findings.add(0, msg::kFlacNoStreamInfo);
    // An ID3v1 tag may follow the audio.
    uint64_t end = size;
    uint8_t tail[3];
    if (size - si->audioStart >= 128 && file->readInto(size - 128, tail, 3) && tail[0] == 'T' &&
        tail[1] == 'A' && tail[2] == 'G')
        end = size - 128;
    const uint64_t before = findings.count();
    FrameWalk(*file, end, *si, findings).run();
    if (tier == Tier::Full) decode(*file, end, *si, findings.count() == before, findings);
}

}  // namespace sondrel::verify
