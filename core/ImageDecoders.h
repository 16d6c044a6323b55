#pragma once
// The image decoders, as the artwork check sees them. They live in two
// modules with the libraries they need, each loaded on the first picture
// that needs it: "sondrel_images" (libjpeg-turbo, libpng, giflib, libwebp,
// libtiff, stb_image for BMP) for the usual covers, "sondrel_images_modern"
// (libavif, libheif and libjxl, with their AV1, HEVC and SIMD libraries,
// whose set-up alone costs several milliseconds) for the rare newer formats.
// A run that meets no artwork loads neither.
#include <cstddef>
#include <cstdint>

#include "core/ImageValidator.h"

namespace sondrel::ImageValidator {

// Decoding proves that the data is an image; nothing is kept. The size in
// the header is weighed before any pixel is decoded:
// - no picture of more than kMaxImagePixels is decoded (time grows with the
//   pixels even where memory does not);
// - what a decoder must hold at once stays under kMaxDecodeBytes. Streaming
//   decoders (JPEG scaled to 1/8, PNG and GIF row by row, lossy WebP scaled,
//   TIFF by scanline or tile) hold a few rows; others hold the whole picture
//   in some form, a known number of bytes per pixel.
// A picture beyond either limit, or beyond what is left of its file's budget,
// is not checked: it is not called broken, and the caller is told why.
constexpr uint64_t kMaxImagePixels = uint64_t{1} << 26;  // 8192 x 8192
constexpr uint64_t kMaxDecodeBytes = uint64_t{64} << 20;

// What a decoder asks before it decodes: whether a picture of this size may
// be decoded at all. The caller keeps the budget and the reason a picture
// was stopped.
class Gate {
  public:
    // Called once the header gives the size. False when the picture is not
    // to be decoded; the gate then knows why.
    virtual bool admit(uint64_t width, uint64_t height, uint64_t heldBytesPerPixel = 0,
                       uint64_t maxHeldBytes = kMaxDecodeBytes) = 0;
    // The decoder found the picture too large by a measure of its own.
    virtual void tooLarge(uint64_t width, uint64_t height) = 0;
    Verdict stopped() const { return Verdict::notChecked; }

  protected:
    ~Gate() = default;
};

using Decoder = Verdict (*)(const uint8_t* bytes, size_t length, Gate& gate);

// A module's table; each module fills the decoders it holds and leaves the
// others empty. `size` tells a module built from another version of this
// header, which is refused.
struct Decoders {
    size_t size;
    Decoder jpeg, png, gif, webp, tiff, bmp, avif, heif, jxl;
};

constexpr const char* kDecodersModule = "sondrel_images";
constexpr const char* kModernDecodersModule = "sondrel_images_modern";

}  // namespace sondrel::ImageValidator

// The modules' entry points (the static build of the tests calls them too).
extern "C" const void* sondrel_module_sondrel_images();
extern "C" const void* sondrel_module_sondrel_images_modern();
