#include "verify/MpegVerify.h"

#include <fmt/format.h>

#include <mpg123.h>

#include <array>
#include <memory>
#include <optional>

#include "core/FileHandle.h"
#include "core/Tag.h"
#include "verify/Messages.h"
#include "verify/SequentialReader.h"

namespace sondrel::verify {

namespace {

struct Frame {
    unsigned version = 0;  // 1 MPEG-1, 2 MPEG-2, 3 MPEG-2.5
    unsigned layer = 0;
    uint32_t rate = 0;
    uint32_t length = 0;
    uint32_t samples = 0;
    bool mono = false;
};

// A frame header with a known length (free format cannot be followed).
// Unlike the checker's measurement, MPEG-2 and 2.5 Layer III frames are
// stepped by their true length (72 rather than 144 bytes per kbit/s).
std::optional<Frame> parseFrame(const uint8_t* b) {
    if (b[0] != 0xFF || (b[1] & 0xE0) != 0xE0) return std::nullopt;
    const unsigned v = (b[1] >> 3) & 3, l = (b[1] >> 1) & 3, br = b[2] >> 4, sr = (b[2] >> 2) & 3;
    if (v == 1 || l == 0 || br == 0 || br == 15 || sr == 3 || (b[3] & 3) == 2) return std::nullopt;
    static constexpr uint16_t kBitrates[2][3][15] = {
        {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
         {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
         {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
        {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
         {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
         {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};
    static constexpr uint32_t kRates[3] = {44100, 48000, 32000};
    Frame f;
    f.version = v == 3 ? 1 : v == 2 ? 2 : 3;
    f.layer = 4 - l;
    f.rate = kRates[sr] >> (f.version - 1);
    f.mono = (b[3] >> 6) == 3;
    const uint32_t kbps = kBitrates[f.version == 1 ? 0 : 1][f.layer - 1][br];
    const uint32_t pad = (b[2] >> 1) & 1;
    if (f.layer == 1) {
        f.length = (12000 * kbps / f.rate + pad) * 4;
        f.samples = 384;
    } else {
        const bool half = f.layer == 3 && f.version != 1;
        f.samples = half ? 576 : 1152;
        f.length = (half ? 72000 : 144000) * kbps / f.rate + pad;
    }
    return f;
}

// CRC-16 with the reflected polynomial 0x8005 (0xA001), as the LAME tag uses.
constexpr std::array<uint16_t, 256> makeCrc() {
    std::array<uint16_t, 256> t{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned c = i;
        for (int b = 0; b < 8; ++b) c = (c & 1) ? ((c >> 1) ^ 0xA001) : (c >> 1);
        t[i] = uint16_t(c);
    }
    return t;
}
constexpr auto kCrc = makeCrc();
uint16_t crc16(uint16_t c, ByteSpan bytes) {
    for (uint8_t b : bytes) c = uint16_t((c >> 8) ^ kCrc[(c ^ b) & 0xFF]);
    return c;
}

// What the first frame's summary header declares.
struct Summary {
    const char* name = nullptr;  // "Xing", "Info", "VBRI"
    std::optional<uint64_t> frames, bytes;
    // LAME tag: CRC of the header frame up to the CRC field, and CRC and
    // length of the audio from the header frame's start.
    std::optional<uint16_t> tagCrc, musicCrc;
    uint32_t tagCrcAt = 0;
    uint64_t musicLength = 0;
};

Summary readSummary(ByteSpan frame, const Frame& f) {
    Summary s;
    const size_t side = f.version == 1 ? (f.mono ? 17 : 32) : (f.mono ? 9 : 17);
    const size_t x = 4 + side;
    if (frame.size() >= x + 8 && (be32(&frame[x]) == fourcc("Xing") || be32(&frame[x]) == fourcc("Info"))) {
        s.name = be32(&frame[x]) == fourcc("Xing") ? "Xing" : "Info";
        const uint32_t flags = be32(&frame[x + 4]);
        size_t at = x + 8;
        auto field = [&](uint32_t bit, size_t size) -> std::optional<uint64_t> {
            if (!(flags & bit)) return std::nullopt;
            std::optional<uint64_t> v;
            if (at <= frame.size() && frame.size() - at >= 4) v = be32(&frame[at]);
            at += size;
            return v;
        };
        s.frames = field(1, 4);
        s.bytes = field(2, 4);
        field(4, 100);
        field(8, 4);
        // The LAME tag: 36 bytes whose last four are the two CRCs.
        if (at <= frame.size() && frame.size() - at >= 36 &&
            std::string_view(reinterpret_cast<const char*>(&frame[at]), 4) == "LAME") {
            s.musicLength = be32(&frame[at + 28]);
            s.musicCrc = be16(&frame[at + 32]);
            s.tagCrcAt = uint32_t(at + 34);
            s.tagCrc = be16(&frame[at + 34]);
        }
    } else if (frame.size() >= 4 + 32 + 18 && be32(&frame[36]) == fourcc("VBRI")) {
        s.name = "VBRI";
        s.bytes = be32(&frame[36 + 10]);
        s.frames = be32(&frame[36 + 14]);
    }
    return s;
}

// The audio range: after an ID3v2 tag, before an ID3v1 tag and an APE tag.
std::pair<uint64_t, uint64_t> audioRange(FileHandle& file, uint64_t size) {
    uint64_t start = 0, end = size;
    uint8_t h[10];
    if (file.readInto(0, h, 10) && h[0] == 'I' && h[1] == 'D' && h[2] == '3') {
        uint64_t tag =
            (uint64_t(h[6] & 0x7F) << 21) | ((h[7] & 0x7F) << 14) | ((h[8] & 0x7F) << 7) | (h[9] & 0x7F);
        start = std::min<uint64_t>(size, 10 + tag + ((h[5] & 0x10) ? 10 : 0));
    }
    if (end - start >= 128 && file.readInto(end - 128, h, 3) && h[0] == 'T' && h[1] == 'A' && h[2] == 'G')
        end -= 128;
    uint8_t footer[32];
    if (end - start >= 32 && file.readInto(end - 32, footer, 32) &&
        std::string_view(reinterpret_cast<char*>(footer), 8) == "APETAGEX") {
        const uint64_t tagSize = le32(footer + 12) + ((footer[23] & 0x80) ? 32 : 0);
        if (tagSize <= end - start) end -= tagSize;
    }
    return {start, end};
}

// The audio range as a stream for the decoder, read through the project's
// file access so that nothing but the decoder's own buffer is held.
struct RangeStream {
    FileHandle& file;
    uint64_t start, end, pos = 0;
};

mpg123_ssize_t readRange(void* handle, void* buffer, size_t size) {
    auto& s = *static_cast<RangeStream*>(handle);
    const uint64_t length = s.end - s.start;
    if (s.pos >= length) return 0;
    const size_t n = size_t(std::min<uint64_t>(size, length - s.pos));
    if (!s.file.readInto(s.start + s.pos, static_cast<uint8_t*>(buffer), n)) return -1;
    s.pos += n;
    return mpg123_ssize_t(n);
}

off_t seekRange(void* handle, off_t offset, int whence) {
    auto& s = *static_cast<RangeStream*>(handle);
    const uint64_t length = s.end - s.start;
    int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? int64_t(s.pos) : int64_t(length);
    if (offset < 0 ? 0 - uint64_t(offset) > uint64_t(base) : uint64_t(offset) > length - uint64_t(base))
        return -1;
    s.pos = uint64_t(base + offset);
    return off_t(s.pos);
}

// Decodes every frame with libmpg123. The decoder resynchronises by itself
// after damage; a frame that does not begin where the one before it ended
// shows where bytes were skipped.
void decode(FileHandle& file, uint64_t start, uint64_t end, Findings& findings) {
    std::unique_ptr<mpg123_handle, decltype(&mpg123_delete)> mh(mpg123_new(nullptr, nullptr), &mpg123_delete);
    if (!mh) return;
    mpg123_param(mh.get(), MPG123_ADD_FLAGS, MPG123_QUIET, 0);
    mpg123_param(mh.get(), MPG123_RESYNC_LIMIT, -1, 0);
    RangeStream stream{file, start, end};
    if (mpg123_replace_reader_handle(mh.get(), &readRange, &seekRange, nullptr) != MPG123_OK ||
        mpg123_open_handle(mh.get(), &stream) != MPG123_OK)
        return;
    uint64_t samples = 0, expected = 0;
    uint32_t rate = 0;
    size_t frameBytes = 0;  // bytes of decoded output per sample frame
    bool first = true;
    for (;;) {
        off_t num = 0;
        unsigned char* audio = nullptr;
        size_t bytes = 0;
        const int rc = mpg123_decode_frame(mh.get(), &num, &audio, &bytes);
        if (rc == MPG123_DONE) break;
        const off_t at = mpg123_framepos(mh.get());
        const uint64_t pos = at < 0 ? 0 : uint64_t(at);
        if (rc == MPG123_NEW_FORMAT) {
            long r = 0;
            int channels = 0, encoding = 0;
            if (mpg123_getformat(mh.get(), &r, &channels, &encoding) == MPG123_OK && r > 0 && channels > 0) {
                rate = uint32_t(r);
                frameBytes = size_t(channels) * size_t(std::max(mpg123_encsize(encoding), 1));
            }
            continue;
        }
        if (rc != MPG123_OK) {
            findings.add(start + pos, fmt::format(msg::kMpegDecodeError, formatTime(samples, rate),
                                                  mpg123_strerror(mh.get())));
            break;  // the decoder cannot go on (a read error, no further frame)
        }
        mpg123_frameinfo info{};
        if (mpg123_info(mh.get(), &info) != MPG123_OK) break;
        if (!first && pos > expected)
            findings.add(start + expected,
                         fmt::format(msg::kMpegDecoderSkipped, formatTime(samples, rate), pos - expected));
        first = false;
        expected = pos + uint64_t(std::max(info.framesize, 0));  // the header included
        if (frameBytes) samples += bytes / frameBytes;
    }
    // The decoder gives up quietly where it finds no further frame.
    if (!first && expected < end - start)
        findings.add(start + expected, fmt::format(msg::kMpegDecoderStopped, formatTime(samples, rate),
                                                   end - start - expected));
}

// Follows the frames without decoding them.
void checkFrames(FileHandle& file, uint64_t start, uint64_t end, Findings& findings) {
    SequentialReader reader(file, end);

    uint64_t pos = start, frames = 0, samples = 0, firstFrame = end;
    uint32_t rate = 44100;
    Summary summary;
    uint16_t musicCrc = 0;
    uint64_t musicEnd = 0;
    auto time = [&](uint64_t s) { return formatTime(s, rate); };
    // Bytes of the audio CRC range not yet folded into the CRC (the range
    // starts after the header frame and ends at the declared music length).
    auto fold = [&](uint64_t from, ByteSpan bytes) {
        if (!summary.musicCrc || from >= musicEnd) return;
        musicCrc = crc16(musicCrc, bytes.first(size_t(std::min<uint64_t>(bytes.size(), musicEnd - from))));
    };
    while (pos < end) {
        ByteSpan w = reader.window(pos, 4);
        if (reader.failed()) return findings.add(pos, msg::kReadFailed);
        std::optional<Frame> f;
        if (w.size() >= 4) f = parseFrame(w.data());
        // A frame must be followed by another frame or the end of the audio,
        // so that a chance sync pattern is not taken for one.
        if (f && frames == 0 && f->length < end - pos) {
            ByteSpan n = reader.window(pos + f->length, 4);
            if (n.size() < 4 || !parseFrame(n.data())) f.reset();
            w = reader.window(pos, 4);
        }
        if (!f) {
            // Search byte by byte for the next frame.
            uint64_t next = pos + 1;
            for (; next < end; ++next) {
                ByteSpan c = reader.window(next, 4);
                if (c.size() < 4) {
                    next = end;
                    break;
                }
                auto g = parseFrame(c.data());
                if (!g) continue;
                ByteSpan n = g->length < end - next ? reader.window(next + g->length, 4) : ByteSpan{};
                if (g->length == end - next || (n.size() >= 4 && parseFrame(n.data()))) break;
            }
            if (reader.failed()) return findings.add(pos, msg::kReadFailed);
            if (next >= end) {
                if (frames) findings.add(pos, fmt::format(msg::kMpegTrailing, end - pos));
                break;
            }
            if (frames) findings.add(pos, fmt::format(msg::kMpegLostSync, time(samples), next - pos));
            pos = next;
            continue;
        }
        if (f->length > end - pos) {
            findings.add(pos, fmt::format(msg::kMpegCutShort, time(samples)));
            break;
        }
        if (frames == 0) {
            firstFrame = pos;
            rate = f->rate;
            ByteSpan first = reader.window(pos, f->length);
            if (first.size() < f->length) return findings.add(pos, msg::kReadFailed);
            first = first.first(f->length);
            summary = readSummary(first, *f);
            if (summary.name) {
                if (summary.tagCrc && crc16(0, first.first(summary.tagCrcAt)) != *summary.tagCrc)
                    findings.add(pos, msg::kLameTagCrc);
                musicEnd = pos + summary.musicLength;
                ++frames;  // the summary frame holds no audio and is not counted
                pos += f->length;
                continue;
            }
        }
        // Fold this frame into the audio CRC, through the buffer.
        for (uint64_t at = pos, left = f->length; left;) {
            ByteSpan chunk = reader.window(at, 1);
            if (chunk.empty()) return findings.add(at, msg::kReadFailed);
            chunk = chunk.first(size_t(std::min<uint64_t>(chunk.size(), left)));
            fold(at, chunk);
            at += chunk.size();
            left -= chunk.size();
        }
        ++frames;
        samples += f->samples;
        pos += f->length;
    }
    if (firstFrame >= end) return findings.add(start, msg::kMpegNoFrames);
    if (!summary.name) return;
    const uint64_t audioFrames = frames - 1;
    if (summary.frames && *summary.frames != audioFrames)
        findings.add(firstFrame,
                     fmt::format(msg::kMpegFrameCount, audioFrames, summary.name, *summary.frames));
    if (summary.bytes && *summary.bytes != pos - firstFrame)
        findings.add(firstFrame,
                     fmt::format(msg::kMpegByteCount, pos - firstFrame, summary.name, *summary.bytes));
    if (summary.musicCrc && musicCrc != *summary.musicCrc) findings.add(firstFrame, msg::kLameMusicCrc);
}

}  // namespace

void verifyMpeg(Tag& tag, Tier tier, Findings& findings) {
    uint64_t size = 0;
    auto file = tag.setupFile(size);
    if (!file) return;
    const auto [start, end] = audioRange(*file, size);
    checkFrames(*file, start, end, findings);
    if (tier == Tier::Full) decode(*file, start, end, findings);
}

}  // namespace sondrel::verify
