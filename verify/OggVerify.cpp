#include "verify/OggVerify.h"

#include <fmt/format.h>

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

}  // namespace

void verifyOgg(Tag& tag, Tier, Findings& findings) {
    uint64_t end = 0;
    auto file = tag.setupFile(end);
    if (!file) return;
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

}  // namespace sondrel::verify
