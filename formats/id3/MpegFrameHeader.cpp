#include "formats/id3/MpegFrameHeader.h"

namespace sondrel {

namespace {

// kbit/s by bitrate index (0 = free format, 15 = invalid and never looked up).
constexpr uint16_t kMpeg1Layer1[15] = {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448};
constexpr uint16_t kMpeg1Layer2[15] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
constexpr uint16_t kMpeg1Layer3[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr uint16_t kMpeg2Layer1[15] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256};
constexpr uint16_t kMpeg2Layer23[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};

// MPEG-1 rates; MPEG-2 halves them and MPEG-2.5 quarters them.
constexpr uint32_t kSampleRates[3] = {44100, 48000, 32000};

}  // namespace

bool MpegFrameHeader::isValidHeader(const uint8_t* b) {
    return b[0] == 0xFF && (b[1] & 0xE0) == 0xE0 && (b[1] & 0x06) != 0 && (b[1] & 0x18) != 0x08 &&
           (b[2] >> 4) != 15 && (b[2] & 0x0C) != 0x0C && (b[3] & 3) != 2;
}

std::optional<MpegFrameHeader> MpegFrameHeader::decode(const uint8_t* b) {
    if (!isValidHeader(b) || (b[2] >> 4) == 0) return std::nullopt;
    MpegFrameHeader h;
    switch (b[1] & 0x18) {
        case 0x18:
            h.version = 1;
            break;
        case 0x10:
            h.version = 2;
            break;
        default:
            h.version = 3;
            break;
    }
    h.layer = 4 - ((b[1] >> 1) & 3);
    h.samplerate = kSampleRates[(b[2] >> 2) & 3] >> (h.version - 1);
    h.channelMode = b[3] >> 6;
    h.bitrateIndex = b[2] >> 4;
    h.padding = (b[2] >> 1) & 1;
    return h;
}

uint64_t MpegFrameHeader::bitrate() const {
    if (version == 1) {
        if (layer == 1) return kMpeg1Layer1[bitrateIndex];
        if (layer == 2) return kMpeg1Layer2[bitrateIndex];
        return kMpeg1Layer3[bitrateIndex];
    }
    if (version == 2 && layer == 1) return kMpeg2Layer1[bitrateIndex];
    return kMpeg2Layer23[bitrateIndex];
}

uint64_t MpegFrameHeader::frameLength() const {
    if (layer == 1) return (bitrate() * 12000 / samplerate + padding) * 4;
    return bitrate() * 144000 / samplerate + padding;
}

uint64_t MpegFrameHeader::samplesPerFrame() const {
    if (layer == 1) return 384;
    if (layer == 2 || version == 1) return 1152;
    return 576;
}

uint64_t MpegFrameHeader::xingTagOffset() const {
    bool mono = channelMode == 3;
    if (version == 1) return mono ? 21 : 36;
    return mono ? 13 : 21;
}

}  // namespace sondrel
