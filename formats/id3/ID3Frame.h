#pragma once
// One ID3v2 frame: header, flags, per-frame unsynchronisation and the decoder
// for its type. (Interface grows with the frame decoders.)
#include <cstdint>

namespace sondrel {

class Tag;

class ID3Frame {
public:
    virtual ~ID3Frame() = default;
};

}  // namespace sondrel
