#include "verify/OggVerify.h"

#include <fmt/format.h>
#include <opus/opusfile.h>
#include <vorbis/vorbisfile.h>

#include <initializer_list>
#include <memory>
#include <utility>

#include "core/Tag.h"
#include "formats/flac_ogg/OggCRC.h"
#include "verify/Messages.h"
#include "verify/SequentialReader.h"

namespace sondrel::verify {

namespace {

constexpr size_t kHeader = 27;
constexpr uint8_t kBeginOfStream = 2, kEndOfStream = 4;
constexpr uint64_t kNoGranule = ~uint64_t(0);

bool pageCrcMatches(ByteSpan page) {
    static const uint8_t kZeros[4] = {};
    uint32_t crc = oggcrc::update(0, page.data(), 22);
    crc = oggcrc::update(crc, kZeros, 4);
    crc = oggcrc::update(crc, page.data() + 26, page.size() - 26);
    return crc == le32(page.data() + 22);
}

// The length of a page whose header starts `w`, or 0 when the header is not
// whole in `w` or is not an Ogg page header.
size_t pageLength(ByteSpan w) {
    if (w.size() < kHeader || be32(w.data()) != fourcc("OggS") || w[4] != 0) return 0;
    const size_t segments = w[26];
    if (w.size() < kHeader + segments) return 0;
    size_t body = 0;
    for (size_t i = 0; i < segments; ++i) body += w[kHeader + i];
    return kHeader + segments + body;
}

// The file as a stream for the decoders, read through the project's file
// access.
struct Source {
    FileHandle& file;
    uint64_t size, pos = 0;

    size_t read(void* out, size_t n) {
        n = size_t(std::min<uint64_t>(n, size - pos));
        if (n == 0 || !file.readInto(pos, static_cast<uint8_t*>(out), n)) return 0;
        pos += n;
        return n;
    }
    int seek(int64_t offset, int whence) {
        const uint64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? pos : size;
        if (offset < 0 ? 0 - uint64_t(offset) > base : uint64_t(offset) > size - base) return -1;
        pos = base + uint64_t(offset);
        return 0;
    }
};

// A decoder that reports the same fault at every call stops being asked.
constexpr uint64_t kMaxErrors = 10000;

// The decoders' error codes in words, for the reason a line gives.
const char* reason(long code, std::initializer_list<std::pair<long, const char*>> table) {
    const char* found = "damaged stream";
    for (const auto& [value, text] : table)
        if (value == code) found = text;
    return found;
}

const char* vorbisError(long code) {
    return reason(code, {{OV_EREAD, "read error"},
                         {OV_ENOTVORBIS, "not Vorbis audio"},
                         {OV_EVERSION, "unsupported Vorbis version"},
                         {OV_EBADHEADER, "invalid Vorbis header"},
                         {OV_EFAULT, "internal error"},
                         {OV_EIMPL, "unsupported feature"}});
}

void decodeVorbis(Source& source, Findings& findings) {
    ov_callbacks callbacks{
        [](void* out, size_t size, size_t count, void* s) -> size_t {
            return size == 0 ? 0 : static_cast<Source*>(s)->read(out, size * count) / size;
        },
        [](void* s, ogg_int64_t offset, int whence) { return static_cast<Source*>(s)->seek(offset, whence); },
        nullptr, [](void* s) { return long(static_cast<Source*>(s)->pos); }};
    OggVorbis_File vf;
    if (const int opened = ov_open_callbacks(&source, &vf, nullptr, 0, callbacks); opened < 0)
        return findings.add(0, fmt::format(msg::kOggCannotDecode, "Vorbis", vorbisError(opened)));
    std::unique_ptr<OggVorbis_File, decltype(&ov_clear)> close(&vf, &ov_clear);
    uint64_t decoded = 0, errors = 0;
    uint32_t rate = 44100;
    if (const vorbis_info* info = ov_info(&vf, -1)) rate = uint32_t(std::max(info->rate, 1L));
    for (;;) {
        float** pcm = nullptr;
        int link = 0;
        // Where the page that brings a hole begins.
        const ogg_int64_t before = ov_raw_tell(&vf);
        const long n = ov_read_float(&vf, &pcm, 4096, &link);
        if (n == 0) break;
        if (n > 0) {
            decoded += uint64_t(n);
            continue;
        }
        const uint64_t at = uint64_t(std::max<ogg_int64_t>(before, 0));
        const std::string time = formatTime(decoded, rate);
        if (n == OV_HOLE)
            findings.add(at, fmt::format(msg::kOggHole, "Vorbis", time));
        else if (n == OV_EBADLINK)
            findings.add(at, fmt::format(msg::kOggBadLink, "Vorbis", time));
        else
            findings.add(at, fmt::format(msg::kOggDecodeError, "Vorbis", time, vorbisError(n)));
        if (++errors >= kMaxErrors || n == OV_EBADLINK || n == OV_EREAD) break;
    }
    // The length the last granule position gives, as the decoder reads it.
    const ogg_int64_t total = ov_seekable(&vf) ? ov_pcm_total(&vf, -1) : -1;
    if (errors == 0 && total >= 0 && uint64_t(total) != decoded)
        findings.add(source.pos, fmt::format(msg::kOggDecodedLength, "Vorbis", formatTime(decoded, rate),
                                             formatTime(uint64_t(total), rate)));
}

const char* opusError(int code) {
    return reason(code, {{OP_EBADPACKET, "undecodable packet"},
                         {OP_EBADTIMESTAMP, "invalid timestamp"},
                         {OP_EREAD, "read error"},
                         {OP_EFAULT, "internal error"},
                         {OP_EIMPL, "unsupported feature"},
                         {OP_ENOTFORMAT, "not Opus audio"},
                         {OP_EBADHEADER, "invalid Opus header"},
                         {OP_EVERSION, "unsupported Opus version"}});
}

void decodeOpus(Source& source, Findings& findings) {
    OpusFileCallbacks callbacks{
        [](void* s, unsigned char* out, int n) { return int(static_cast<Source*>(s)->read(out, size_t(n))); },
        [](void* s, opus_int64 offset, int whence) { return static_cast<Source*>(s)->seek(offset, whence); },
        [](void* s) { return opus_int64(static_cast<Source*>(s)->pos); }, nullptr};
    int error = 0;
    std::unique_ptr<OggOpusFile, decltype(&op_free)> of(
        op_open_callbacks(&source, &callbacks, nullptr, 0, &error), &op_free);
    if (!of) return findings.add(0, fmt::format(msg::kOggCannotDecode, "Opus", opusError(error)));
    constexpr uint32_t kRate = 48000;
    // 120 ms of stereo, the longest a packet decodes to.
    std::vector<opus_int16> pcm(5760 * 2);
    uint64_t decoded = 0, errors = 0;
    for (;;) {
        const opus_int64 before = op_raw_tell(of.get());
        const int n = op_read_stereo(of.get(), pcm.data(), int(pcm.size()));
        if (n == 0) break;
        if (n > 0) {
            decoded += uint64_t(n);
            continue;
        }
        const uint64_t at = uint64_t(std::max<opus_int64>(before, 0));
        const std::string time = formatTime(decoded, kRate);
        if (n == OP_HOLE)
            findings.add(at, fmt::format(msg::kOggHole, "Opus", time));
        else if (n == OP_EBADLINK)
            findings.add(at, fmt::format(msg::kOggBadLink, "Opus", time));
        else
            findings.add(at, fmt::format(msg::kOggDecodeError, "Opus", time, opusError(n)));
        if (++errors >= kMaxErrors || n == OP_EBADLINK || n == OP_EREAD || n == OP_EFAULT) break;
    }
    const opus_int64 total = op_seekable(of.get()) ? op_pcm_total(of.get(), -1) : -1;
    if (errors == 0 && total >= 0 && uint64_t(total) != decoded)
        findings.add(source.pos, fmt::format(msg::kOggDecodedLength, "Opus", formatTime(decoded, kRate),
                                             formatTime(uint64_t(total), kRate)));
}

// Decodes the whole file when its first stream is Vorbis or Opus (other
// codecs in Ogg are checked page by page only).
void decodeOgg(FileHandle& file, uint64_t size, Findings& findings) {
    uint8_t head[27 + 255 + 8] = {};
    const size_t n = size_t(std::min<uint64_t>(sizeof head, size));
    if (!file.readInto(0, head, n) || n < kHeader || be32(head) != fourcc("OggS")) return;
    const size_t body = kHeader + head[26];
    if (n < body + 8) return;
    const std::string_view start(reinterpret_cast<const char*>(head + body), 8);
    Source source{file, size};
    if (start.substr(0, 7) == "\x01vorbis")
        decodeVorbis(source, findings);
    else if (start == "OpusHead")
        decodeOpus(source, findings);
}

// What the decoders will hold in memory: every link's headers.
struct Shape {
    uint64_t links = 0;
    uint64_t audioStart = 0;  // the first page of the first link with a position: its headers end there
};
// The decoders keep every link's decoded headers for the whole file, and a
// comment packet whole: files beyond these are checked page by page only.
constexpr uint64_t kMaxLinks = 100, kMaxHeaderBytes = 16 << 20;

void walkPages(FileHandle& fileHandle, uint64_t end, Findings& findings, Shape& shape) {
    FileHandle* file = &fileHandle;
    shape.audioStart = end;
    SequentialReader reader(*file, end);

    uint32_t rate = 48000;
    uint64_t pos = 0, granule = 0;
    std::optional<uint32_t> serial, nextSequence;
    bool ended = false, any = false;
    auto time = [&] { return formatTime(granule, rate); };
    while (pos < end) {
        ByteSpan w = reader.window(pos, kHeader + 255);
        if (reader.failed()) return findings.add(pos, msg::kReadFailed);
        const size_t length = pageLength(w);
        if (length == 0) {
            static const uint8_t kMarker[4] = {'O', 'g', 'g', 'S'};
            uint64_t next = file->spanForMarker(kMarker, 4, pos + 1, end);
            if (next == FileHandle::kNotFound) {
                if (any) findings.add(pos, fmt::format(msg::kOggTrailing, end - pos));
                break;
            }
            if (any) findings.add(pos, fmt::format(msg::kOggLostSync, time(), next - pos));
            pos = next;
            continue;
        }
        if (length > end - pos) {
            findings.add(pos, fmt::format(msg::kOggCutShort, time()));
            ended = true;  // reported already
            break;
        }
        ByteSpan page = reader.window(pos, length);
        if (page.size() < length) return findings.add(pos, msg::kReadFailed);
        page = page.first(length);
        const uint8_t flags = page[5];
        const uint64_t pageGranule = le64(page.data() + 6);
        const uint32_t pageSerial = le32(page.data() + 14), sequence = le32(page.data() + 18);
        if (!pageCrcMatches(page)) findings.add(pos, fmt::format(msg::kOggPageCrc, time()));
        if (!any || (ended && (flags & kBeginOfStream))) {
            // A stream (or the next link of a chain) begins: its rate is in
            // the identification packet at the start of the first page.
            ByteSpan body = page.subspan(kHeader + page[26]);
            if (body.size() >= 16 && body[0] == 1 &&
                std::string_view(reinterpret_cast<const char*>(&body[1]), 6) == "vorbis")
                rate = le32(&body[12]);
            else
                rate = 48000;
            serial = pageSerial;
            ++shape.links;
            nextSequence.reset();
            granule = 0;
            ended = false;
        } else if (ended && pageSerial == serial) {
            findings.add(pos, fmt::format(msg::kOggTrailing, end - pos));
            break;
        }
        any = true;
        if (pageSerial == serial) {
            if (nextSequence && sequence > *nextSequence)
                findings.add(pos, fmt::format(msg::kOggSequence, time(), sequence - *nextSequence));
            nextSequence = sequence + 1;
            if (shape.links == 1 && pageGranule != 0 && pageGranule != kNoGranule)
                shape.audioStart = std::min(shape.audioStart, pos);
            if (pageGranule != kNoGranule) {
                if (pageGranule < granule) findings.add(pos, fmt::format(msg::kOggGranule, time()));
                granule = pageGranule;
            }
            if (flags & kEndOfStream) ended = true;
        }
        pos += length;
    }
    if (!any) return findings.add(0, msg::kOggNoPage);
    if (!ended) findings.add(end, fmt::format(msg::kOggNoEnd, time()));
}

}  // namespace

void verifyOgg(Tag& tag, Tier tier, Findings& findings) {
    uint64_t end = 0;
    auto file = tag.setupFile(end);
    if (!file) return;
    Shape shape;
    walkPages(*file, end, findings, shape);
    if (tier != Tier::Full) return;
    if (shape.links > kMaxLinks || shape.audioStart > kMaxHeaderBytes)
        return findings.add(
            0, fmt::format(msg::kNotDecoded, shape.links > kMaxLinks
                                                 ? fmt::format("{} links", shape.links)
                                                 : fmt::format("{} bytes of headers", shape.audioStart)));
    decodeOgg(*file, end, findings);
}

}  // namespace sondrel::verify
