#include "verify/ApeVerify.h"

#include <fmt/format.h>

#include "core/Bytes.h"
#include "core/Tag.h"
#include "verify/FfmpegDecode.h"
#include "verify/Messages.h"
#include "verify/SequentialReader.h"

namespace sondrel::verify {

namespace {

// The end of the audio: before an ID3v1 tag and an APE tag (footer, and
// header when flagged), which the tag checkers read.
uint64_t audioEnd(FileHandle& file, uint64_t end) {
    uint8_t b[32];
    if (end >= 128 && file.readInto(end - 128, b, 3) && b[0] == 'T' && b[1] == 'A' && b[2] == 'G') end -= 128;
    if (end >= 32 && file.readInto(end - 32, b, 32) &&
        std::string_view(reinterpret_cast<char*>(b), 8) == "APETAGEX") {
        const uint64_t length = uint64_t(le32(b + 12)) + ((le32(b + 20) & 0x80000000u) ? 32 : 0);
        if (length <= end) end -= length;
    }
    return end;
}

// The FFmpeg demuxer holds an entry per frame (about 1.6 seconds of audio
// each): beyond this count the layout is checked, the audio not decoded.
constexpr uint32_t kMaxFrames = 1000000;

// Checks the layout; returns the declared frame count (0 when unknown).
uint32_t checkLayout(FileHandle& file, uint64_t size, Findings& findings) {
    // An ID3v2 tag in front (which the format checker reports) shifts
    // everything, the seek table's offsets included.
    uint64_t base = 0;
    uint8_t d[52];
    if (file.readInto(0, d, 10) && d[0] == 'I' && d[1] == 'D' && d[2] == '3')
        base =
            10 +
            ((uint64_t(d[6] & 0x7F) << 21) | ((d[7] & 0x7F) << 14) | ((d[8] & 0x7F) << 7) | (d[9] & 0x7F)) +
            ((d[5] & 0x10) ? 10 : 0);
    if (base > size || size - base < 52 || !file.readInto(base, d, 52) || be32(d) != fourcc("MAC ") ||
        le16(d + 4) < 3980)
        return 0;
    const uint64_t descriptor = le32(d + 8), header = le32(d + 12), seekBytes = le32(d + 16),
                   wavHeader = le32(d + 20), frameData = le32(d + 24) | (uint64_t(le32(d + 28)) << 32),
                   terminating = le32(d + 32);
    uint8_t h[24];
    if (descriptor < 52 || header < 24 || descriptor > size - base || size - base - descriptor < 24 ||
        !file.readInto(base + descriptor, h, 24))
        return 0;
    const uint32_t frames = le32(h + 12);
    const uint64_t start = base + descriptor + header + seekBytes + wavHeader;
    const uint64_t end = audioEnd(file, size);
    const uint64_t present = start < end ? end - start : 0;
    if (frameData > present)
        findings.add(std::min(start, end), fmt::format(msg::kApeCutShort, present, frameData));
    // The frames and the source file's trailing bytes, then only tags.
    else if (present - frameData > terminating)
        findings.add(start + frameData + terminating,
                     fmt::format(msg::kApeTrailing, present - frameData - terminating));
    if (seekBytes / 4 < frames)
        findings.add(base + descriptor + header, fmt::format(msg::kApeSeekTable, seekBytes / 4, frames));

    // Each frame's offset lies in the audio data, after the one before it;
    // offsets are 32 bits wide and wrap in files over 4 GiB.
    const uint64_t tableStart = base + descriptor + header;
    if (tableStart > size) return frames;
    const uint64_t listed = std::min<uint64_t>(frames, std::min(seekBytes, size - tableStart) / 4);
    SequentialReader reader(file, tableStart + listed * 4);
    uint64_t previous = 0, wraps = 0;
    for (uint64_t i = 0; i < listed; ++i) {
        ByteSpan w = reader.window(tableStart + i * 4, 4);
        if (w.size() < 4) {
            findings.add(tableStart + i * 4, msg::kReadFailed);
            return frames;
        }
        uint64_t offset = base + le32(w.data()) + (wraps << 32);
        if (i > 0 && offset < previous) {
            if (previous - offset > (uint64_t(1) << 31)) {
                offset += uint64_t(1) << 32;
                ++wraps;
            } else {
                findings.add(tableStart + i * 4, fmt::format(msg::kApeFrameOrder, i + 1));
                continue;
            }
        }
        if (offset < start || offset - start >= std::max<uint64_t>(frameData, 1))
            findings.add(tableStart + i * 4, fmt::format(msg::kApeFrameOutside, i + 1, offset));
        previous = offset;
    }
    return frames;
}

}  // namespace

void verifyApe(Tag& tag, Tier tier, Findings& findings) {
    uint64_t size = 0;
    auto file = tag.setupFile(size);
    if (!file) return;
    const uint32_t frames = checkLayout(*file, size, findings);
    if (tier != Tier::Full) return;
    if (frames > kMaxFrames)
        return findings.add(0, fmt::format(msg::kNotDecoded, fmt::format("{} frames", frames)));
    decodeWithFfmpeg(
        *file, size, "ape",
        {msg::kApeCannotDecode, msg::kApeDecodeError, msg::kApeReadError, msg::kApeDecodedLength}, findings);
}

}  // namespace sondrel::verify
