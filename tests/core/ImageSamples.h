#pragma once
// Small real images made with the same libraries that decode artwork, so the
// artwork tests never carry opaque byte blobs.
#include <cstdint>

#include "core/Bytes.h"

namespace sondrel::samples {

// A gradient (or, with `noisy`, random pixels) of the given size.
Bytes makeJPEG(int width, int height, bool noisy = false, bool progressive = false);
Bytes makePNG(int width, int height, bool noisy = false);
Bytes makeGIF(int width, int height);
Bytes makeWebP(int width, int height);
Bytes makeTIFF(int width, int height);
Bytes makeBMP(int width, int height);

}  // namespace sondrel::samples
