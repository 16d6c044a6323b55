// The decoders of the newer artwork formats, AVIF, HEIF/HEIC and JPEG XL,
// built as the "sondrel_images_modern" module. Their libraries (and the AV1,
// HEVC and SIMD libraries behind them) are large and costly to load, and
// these pictures are rare in audio files: they are loaded only for them.
#include <optional>
#include <string_view>
#include <utility>

#include <avif/avif.h>
#include <jxl/decode.h>
#include <libheif/heif.h>

#include "core/Bytes.h"
#include "core/ImageDecoders.h"

namespace sondrel::ImageValidator {

namespace {
// Bytes per pixel that the whole-picture decoders hold (measured on real
// pictures with some margin): the AV1, HEVC and JPEG XL decoders keep whole
// frames and work planes.
constexpr uint64_t kAVIFBytesPerPixel = 4;
constexpr uint64_t kHEIFBytesPerPixel = 4;
// The JPEG XL decoder works on floating-point planes: about 15 bytes per
// pixel for a lossy picture and 24 for a lossless one (kept in its original
// colour space). A real JPEG XL cover of 3000 x 3000 pixels could not be
// checked at all within kMaxDecodeBytes, so it gets a larger allowance.
constexpr uint64_t kJXLBytesPerPixel = 16;
constexpr uint64_t kLosslessJXLBytesPerPixel = 24;
constexpr uint64_t kMaxJXLDecodeBytes = uint64_t{160} << 20;

// --- AVIF (libavif): the first frame of the primary picture (and its alpha
// plane) is decoded; the frames of an image sequence behind it are not.

// The size in the first `ispe` box (a picture's declared size), if any.
std::optional<std::pair<uint32_t, uint32_t>> declaredSize(const uint8_t* bytes, size_t length) {
    const std::string_view data(reinterpret_cast<const char*>(bytes), length);
    const size_t at = data.find("ispe");
    // Type, version and flags, width, height.
    if (at == std::string_view::npos || !fits(length, at, 16)) return std::nullopt;
    return std::pair(be32(bytes + at + 8), be32(bytes + at + 12));
}

Verdict decodeAVIF(const uint8_t* bytes, size_t length, Gate& gate) {
    avifDecoder* decoder = avifDecoderCreate();
    if (!decoder) return Verdict::undecodable;
    decoder->maxThreads = 1;
    decoder->ignoreExif = AVIF_TRUE;
    decoder->ignoreXMP = AVIF_TRUE;
    // Desktop decoders accept pictures that miss boxes the format only
    // recommends; so does this check.
    decoder->strictFlags = AVIF_STRICT_DISABLED;
    Verdict verdict = Verdict::undecodable;
    if (avifDecoderSetIOMemory(decoder, bytes, length) == AVIF_RESULT_OK) {
        if (avifDecoderParse(decoder) == AVIF_RESULT_OK) {
            if (!gate.admit(decoder->image->width, decoder->image->height, kAVIFBytesPerPixel))
                verdict = gate.stopped();
            else if (avifDecoderNextImage(decoder) == AVIF_RESULT_OK)
                verdict = Verdict::decoded;
        } else if (const auto size = declaredSize(bytes, length)) {
            // The parser refuses sizes beyond its own limits, which are
            // above this check's: such a picture is only too large.
            const uint32_t dimensionLimit = decoder->imageDimensionLimit;
            if (uint64_t(size->first) * size->second > decoder->imageSizeLimit ||
                (dimensionLimit != 0 && (size->first > dimensionLimit || size->second > dimensionLimit))) {
                gate.tooLarge(size->first, size->second);
                verdict = gate.stopped();
            }
        }
    }
    avifDecoderDestroy(decoder);
    return verdict;
}

// --- HEIF and HEIC (libheif): the primary picture is decoded in its own
// colour space, without the rotations and crops it asks for.
Verdict decodeHEIF(const uint8_t* bytes, size_t length, Gate& gate) {
    // The library registers its decoders once; files are checked in parallel.
    static const bool initialised = heif_init(nullptr).code == heif_error_Ok;
    if (!initialised) return Verdict::undecodable;
    heif_context* context = heif_context_alloc();
    if (!context) return Verdict::undecodable;
    heif_context_set_maximum_image_size_limit(context, 1 << 16);
    Verdict verdict = Verdict::undecodable;
    heif_image_handle* handle = nullptr;
    if (heif_context_read_from_memory_without_copy(context, bytes, length, nullptr).code == heif_error_Ok &&
        heif_context_get_primary_image_handle(context, &handle).code == heif_error_Ok) {
        const int width = heif_image_handle_get_width(handle);
        const int height = heif_image_handle_get_height(handle);
        if (width > 0 && height > 0) {
            if (!gate.admit(uint64_t(width), uint64_t(height), kHEIFBytesPerPixel)) {
                verdict = gate.stopped();
            } else {
                heif_decoding_options* options = heif_decoding_options_alloc();
                if (options) {
                    options->ignore_transformations = 1;
                    heif_image* image = nullptr;
                    if (heif_decode_image(handle, &image, heif_colorspace_undefined, heif_chroma_undefined,
                                          options)
                            .code == heif_error_Ok)
                        verdict = Verdict::decoded;
                    heif_image_release(image);
                    heif_decoding_options_free(options);
                }
            }
        }
    }
    heif_image_handle_release(handle);
    heif_context_free(context);
    return verdict;
}

// --- JPEG XL (libjxl), bare codestream or container: the first frame is
// decoded, its pixels handed over row by row and dropped.
void jxlDropRow(void*, size_t, size_t, size_t, const void*) {}

Verdict decodeJXLEvents(JxlDecoder* decoder, const uint8_t* bytes, size_t length, Gate& gate) {
    if (JxlDecoderSubscribeEvents(decoder, JXL_DEC_BASIC_INFO | JXL_DEC_FULL_IMAGE) != JXL_DEC_SUCCESS ||
        JxlDecoderSetKeepOrientation(decoder, JXL_TRUE) != JXL_DEC_SUCCESS ||
        JxlDecoderSetInput(decoder, bytes, length) != JXL_DEC_SUCCESS)
        return Verdict::undecodable;
    JxlDecoderCloseInput(decoder);
    const JxlPixelFormat format{3, JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
    for (;;) {
        switch (JxlDecoderProcessInput(decoder)) {
            case JXL_DEC_BASIC_INFO: {
                JxlBasicInfo info;
                if (JxlDecoderGetBasicInfo(decoder, &info) != JXL_DEC_SUCCESS) return Verdict::undecodable;
                const uint64_t perPixel =
                    info.uses_original_profile ? kLosslessJXLBytesPerPixel : kJXLBytesPerPixel;
                if (!gate.admit(info.xsize, info.ysize, perPixel, kMaxJXLDecodeBytes)) return gate.stopped();
                break;
            }
            case JXL_DEC_NEED_IMAGE_OUT_BUFFER:
                if (JxlDecoderSetImageOutCallback(decoder, &format, jxlDropRow, nullptr) != JXL_DEC_SUCCESS)
                    return Verdict::undecodable;
                break;
            case JXL_DEC_FULL_IMAGE:
                return Verdict::decoded;
            default:  // an error, or data that ends before the first frame does
                return Verdict::undecodable;
        }
    }
}

Verdict decodeJXL(const uint8_t* bytes, size_t length, Gate& gate) {
    JxlDecoder* decoder = JxlDecoderCreate(nullptr);
    if (!decoder) return Verdict::undecodable;
    const Verdict verdict = decodeJXLEvents(decoder, bytes, length, gate);
    JxlDecoderDestroy(decoder);
    return verdict;
}

}  // namespace
}  // namespace sondrel::ImageValidator

extern "C" __attribute__((visibility("default"))) const void* sondrel_module_sondrel_images_modern() {
    using namespace sondrel::ImageValidator;
    static const Decoders decoders{sizeof(Decoders), nullptr, nullptr,    nullptr,    nullptr,
                                   nullptr,          nullptr, decodeAVIF, decodeHEIF, decodeJXL};
    return &decoders;
}
