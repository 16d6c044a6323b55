#include "core/ImageValidator.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>  // jpeglib.h needs FILE
#include <cstring>
#include <functional>
#include <vector>

#include <avif/avif.h>
#include <fmt/format.h>
#include <gif_lib.h>
#include <jerror.h>
#include <jpeglib.h>
#include <jxl/decode.h>
#include <libheif/heif.h>
#include <png.h>
#include <tiffio.h>
#include <webp/decode.h>

// stb_image provides the BMP decoder only; every other format has its own
// library above.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_BMP
#define STBI_NO_STDIO
#define STBI_NO_LINEAR
#define STBI_NO_HDR
#include <stb_image.h>

#include "core/Bytes.h"
#include "core/MimeTypeFromRawImageData.h"

namespace sondrel {

bool ImageBudget::spend(uint64_t pixels) {
    if (pixels > pixelsLeft_) return false;
    pixelsLeft_ -= pixels;
    return true;
}

ImageBudget::Key ImageBudget::keyFor(const uint8_t* bytes, size_t length) {
    // FNV-1a and the library's string hash: two unrelated functions, so that
    // two different pictures of one length practically never share a key.
    uint64_t fnv = 14695981039346656037u;
    for (size_t i = 0; i < length; ++i) fnv = (fnv ^ bytes[i]) * 1099511628211u;
    const uint64_t other =
        std::hash<std::string_view>{}(std::string_view(reinterpret_cast<const char*>(bytes), length));
    return {length, {fnv, other}};
}

const ImageValidator::Decision* ImageBudget::recall(const Key& key) const {
    auto it = seen_.find(key);
    return it == seen_.end() ? nullptr : &it->second;
}

void ImageBudget::remember(const Key& key, const ImageValidator::Decision& decision) {
    if (seen_.size() < kRemembered) seen_.emplace(key, decision);
}

namespace ImageValidator {

namespace {

constexpr std::string_view kNotAnImage = "Artwork data cannot be represented as an image";
constexpr std::string_view kNotJPEG =
    "Artwork mime type is image/jpeg but the data does not represent a jpeg image";
constexpr std::string_view kNotPNG =
    "Artwork mime type is image/png but the data does not represent a png image";
constexpr std::string_view kFileBudgetSpent =
    "Artwork not checked: the file's artwork decoding budget is spent";

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
// A progressive JPEG needs one pass over all coefficients per scan; real
// encoders write about ten scans, a crafted file could ask for thousands.
// Past this budget of scans times pixels the scans read so far are the proof.
constexpr uint64_t kMaxJPEGScanPixels = (uint64_t{1} << 25) * 16;

// Bytes per pixel that the whole-picture decoders hold (measured on real
// pictures with some margin). The BMP decoder fills a four-byte canvas; the
// lossless WebP decoder keeps every pixel as a 32-bit value; the AV1, HEVC
// and JPEG XL decoders keep whole frames and work planes.
constexpr uint64_t kBMPBytesPerPixel = 4;
constexpr uint64_t kLosslessWebPBytesPerPixel = 4;
constexpr uint64_t kLossyWebPBytesPerPixel = 1;  // an alpha plane, when there is one
constexpr uint64_t kAVIFBytesPerPixel = 4;
constexpr uint64_t kHEIFBytesPerPixel = 4;
// The JPEG XL decoder works on floating-point planes: about 15 bytes per
// pixel for a lossy picture and 24 for a lossless one (kept in its original
// colour space). A real JPEG XL cover of 3000 x 3000 pixels could not be
// checked at all within kMaxDecodeBytes, so it gets a larger allowance.
constexpr uint64_t kJXLBytesPerPixel = 16;
constexpr uint64_t kLosslessJXLBytesPerPixel = 24;
constexpr uint64_t kMaxJXLDecodeBytes = uint64_t{160} << 20;

std::string tooLarge(uint64_t width, uint64_t height) {
    return fmt::format("Artwork not checked: {}x{} pixels exceed the decoding budget", width, height);
}

// The verdict of one decoder, and what stopped it when it was not run to the end.
struct Gate {
    ImageBudget& budget;
    std::string why;

    // Called once the header gives the size. False when the picture is not
    // to be decoded; `why` then says why.
    bool admit(uint64_t width, uint64_t height, uint64_t heldBytesPerPixel = 0,
               uint64_t maxHeldBytes = kMaxDecodeBytes) {
        const uint64_t pixels = width * height;  // both are below 2^32
        if (pixels > kMaxImagePixels ||
            (heldBytesPerPixel != 0 && pixels > maxHeldBytes / heldBytesPerPixel)) {
            why = tooLarge(width, height);
            return false;
        }
        if (!budget.timeLeft() || !budget.spend(pixels)) {
            why = std::string(kFileBudgetSpent);
            return false;
        }
        return true;
    }
    Verdict stopped() const { return Verdict::notChecked; }
};

// --- JPEG (libjpeg-turbo). Fatal errors leave through longjmp, so the
// function that calls setjmp holds no object with a destructor. Warnings
// (such as a truncated file that the decoder pads with an end marker) are
// silenced and still count as decoded.
struct JPEGErrors {
    jpeg_error_mgr mgr;
    jpeg_progress_mgr progress;
    std::jmp_buf jump;
};

// How a jump back to the decoding function ends the decode.
constexpr int kJPEGFatal = 1;
constexpr int kJPEGScansSpent = 2;
constexpr int kJPEGTooLarge = 3;

void jpegFatal(j_common_ptr cinfo) {
    // The memory manager refuses what exceeds max_memory_to_use by asking for
    // a backing store, which this build of the library does not have.
    const int code = cinfo->err->msg_code;
    const bool tooLarge = code == JERR_NO_BACKING_STORE || code == JERR_OUT_OF_MEMORY;
    std::longjmp(reinterpret_cast<JPEGErrors*>(cinfo->err)->jump, tooLarge ? kJPEGTooLarge : kJPEGFatal);
}
void jpegMessage(j_common_ptr, int) {}
void jpegOutput(j_common_ptr) {}
void jpegProgress(j_common_ptr cinfo) {
    if (!cinfo->is_decompressor) return;
    const auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    const uint64_t pixels = uint64_t(d->image_width) * d->image_height;
    if (pixels != 0 && uint64_t(std::max(d->input_scan_number, 0)) > kMaxJPEGScanPixels / pixels)
        std::longjmp(reinterpret_cast<JPEGErrors*>(cinfo->err)->jump, kJPEGScansSpent);
}

Verdict decodeJPEG(const uint8_t* bytes, size_t length, Gate& gate) {
    jpeg_decompress_struct cinfo;
    std::memset(&cinfo, 0, sizeof cinfo);
    JPEGErrors errors;
    cinfo.err = jpeg_std_error(&errors.mgr);
    errors.mgr.error_exit = jpegFatal;
    errors.mgr.emit_message = jpegMessage;
    errors.mgr.output_message = jpegOutput;
    errors.progress.progress_monitor = jpegProgress;
    switch (setjmp(errors.jump)) {
        case 0:
            break;
        case kJPEGScansSpent:
            jpeg_destroy_decompress(&cinfo);
            return Verdict::decoded;
        case kJPEGTooLarge:
            jpeg_destroy_decompress(&cinfo);
            gate.why = tooLarge(cinfo.image_width, cinfo.image_height);
            return gate.stopped();
        default:
            jpeg_destroy_decompress(&cinfo);
            return Verdict::undecodable;
    }
    jpeg_create_decompress(&cinfo);
    // A progressive or multi-scan picture keeps all its coefficients (two
    // bytes each) until the last scan; past this the decode is refused.
    cinfo.mem->max_memory_to_use = static_cast<long>(kMaxDecodeBytes);
    cinfo.progress = &errors.progress;
    jpeg_mem_src(&cinfo, bytes, static_cast<unsigned long>(length));
    jpeg_read_header(&cinfo, TRUE);
    if (!gate.admit(cinfo.image_width, cinfo.image_height)) {
        jpeg_destroy_decompress(&cinfo);
        return gate.stopped();
    }
    // The smallest scale still decodes every entropy-coded block.
    cinfo.scale_num = 1;
    cinfo.scale_denom = 8;
    cinfo.dct_method = JDCT_IFAST;
    cinfo.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&cinfo);
    JSAMPARRAY row =
        (*cinfo.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&cinfo), JPOOL_IMAGE,
                                   cinfo.output_width * static_cast<JDIMENSION>(cinfo.output_components), 1);
    while (cinfo.output_scanline < cinfo.output_height) jpeg_read_scanlines(&cinfo, row, 1);
    // Whatever follows the last scan is not the image's business.
    jpeg_destroy_decompress(&cinfo);
    return Verdict::decoded;
}

// --- PNG (libpng), same longjmp discipline.
struct PNGSource {
    const uint8_t* bytes;
    size_t length;
    size_t position;
};

void pngRead(png_structp png, png_bytep out, png_size_t count) {
    auto* source = static_cast<PNGSource*>(png_get_io_ptr(png));
    if (count > source->length - source->position) png_error(png, "read past the end of the data");
    std::memcpy(out, source->bytes + source->position, count);
    source->position += count;
}
void pngFatal(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}

Verdict decodePNG(const uint8_t* bytes, size_t length, Gate& gate) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, pngFatal, pngWarning);
    if (!png) return Verdict::undecodable;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        return Verdict::undecodable;
    }
    PNGSource source{bytes, length, 0};
    png_bytep volatile row = nullptr;
    if (setjmp(png_jmpbuf(png))) {
        png_free(png, row);
        png_destroy_read_struct(&png, &info, nullptr);
        return Verdict::undecodable;
    }
    png_set_read_fn(png, &source, pngRead);
    png_set_chunk_malloc_max(png, 16u << 20);
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    if (!gate.admit(width, height)) {
        png_destroy_read_struct(&png, &info, nullptr);
        return gate.stopped();
    }
    // Interlaced rows are read pass by pass into one row: nothing is combined.
    const int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    row = static_cast<png_bytep>(png_malloc(png, png_get_rowbytes(png, info)));
    for (int pass = 0; pass < passes; ++pass)
        for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, row, nullptr);
    png_free(png, row);
    png_destroy_read_struct(&png, &info, nullptr);
    return Verdict::decoded;
}

// --- GIF (giflib): the first image of the file is decoded line by line.
struct GIFSource {
    const uint8_t* bytes;
    size_t length;
    size_t position;
};

int gifRead(GifFileType* gif, GifByteType* out, int count) {
    auto* source = static_cast<GIFSource*>(gif->UserData);
    if (count <= 0) return 0;
    const size_t n = std::min(static_cast<size_t>(count), source->length - source->position);
    std::memcpy(out, source->bytes + source->position, n);
    source->position += n;
    return static_cast<int>(n);
}

Verdict decodeFirstGIFImage(GifFileType* gif, Gate& gate) {
    for (;;) {
        GifRecordType record;
        if (DGifGetRecordType(gif, &record) == GIF_ERROR) return Verdict::undecodable;
        switch (record) {
            case IMAGE_DESC_RECORD_TYPE: {
                if (DGifGetImageDesc(gif) == GIF_ERROR) return Verdict::undecodable;
                const int width = gif->Image.Width;
                const int height = gif->Image.Height;
                if (width <= 0 || height <= 0) return Verdict::undecodable;
                if (!gate.admit(static_cast<uint64_t>(width), static_cast<uint64_t>(height)))
                    return gate.stopped();
                std::vector<GifPixelType> line(static_cast<size_t>(width));
                for (int y = 0; y < height; ++y)
                    if (DGifGetLine(gif, line.data(), width) == GIF_ERROR) return Verdict::undecodable;
                return Verdict::decoded;
            }
            case EXTENSION_RECORD_TYPE: {
                int code = 0;
                GifByteType* block = nullptr;
                if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) return Verdict::undecodable;
                while (block)
                    if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) return Verdict::undecodable;
                break;
            }
            case TERMINATE_RECORD_TYPE:
                return Verdict::undecodable;  // no image at all
            default:
                return Verdict::undecodable;
        }
    }
}

Verdict decodeGIF(const uint8_t* bytes, size_t length, Gate& gate) {
    GIFSource source{bytes, length, 0};
    int error = 0;
    GifFileType* gif = DGifOpen(&source, gifRead, &error);
    if (!gif) return Verdict::undecodable;
    const Verdict verdict = decodeFirstGIFImage(gif, gate);
    DGifCloseFile(gif, &error);
    return verdict;
}

// --- WebP (libwebp): decoded at an eighth of its size. A lossy picture is
// then decoded a few rows at a time; a lossless one always as a whole. An
// animation cannot be decoded by the still-image decoder; its accepted
// header is the proof.
Verdict decodeWebP(const uint8_t* bytes, size_t length, Gate& gate) {
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return Verdict::undecodable;
    if (WebPGetFeatures(bytes, length, &config.input) != VP8_STATUS_OK) return Verdict::undecodable;
    const int width = config.input.width;
    const int height = config.input.height;
    if (width <= 0 || height <= 0) return Verdict::undecodable;
    if (config.input.has_animation) return Verdict::decoded;
    const bool lossless = config.input.format == 2;
    if (!gate.admit(static_cast<uint64_t>(width), static_cast<uint64_t>(height),
                    lossless ? kLosslessWebPBytesPerPixel : kLossyWebPBytesPerPixel))
        return gate.stopped();
    config.options.use_scaling = 1;
    config.options.scaled_width = std::max(1, width / 8);
    config.options.scaled_height = std::max(1, height / 8);
    config.output.colorspace = MODE_RGBA;
    const bool decoded = WebPDecode(bytes, length, &config) == VP8_STATUS_OK;
    WebPFreeDecBuffer(&config.output);
    return decoded ? Verdict::decoded : Verdict::undecodable;
}

// --- TIFF (libtiff) through a read-only memory client that maps the data,
// so that no strip is copied; the first directory is decompressed one
// scanline (or, for a tiled picture, one tile) at a time.
struct TIFFSource {
    const uint8_t* bytes;
    uint64_t length;
    uint64_t position;
};

tmsize_t tiffRead(thandle_t handle, void* out, tmsize_t count) {
    auto* source = static_cast<TIFFSource*>(handle);
    if (count <= 0 || source->position >= source->length) return 0;
    const uint64_t n = std::min(static_cast<uint64_t>(count), source->length - source->position);
    std::memcpy(out, source->bytes + source->position, n);
    source->position += n;
    return static_cast<tmsize_t>(n);
}
tmsize_t tiffWrite(thandle_t, void*, tmsize_t) {
    return 0;
}
toff_t tiffSeek(thandle_t handle, toff_t offset, int whence) {
    auto* source = static_cast<TIFFSource*>(handle);
    uint64_t base = 0;
    if (whence == SEEK_CUR)
        base = source->position;
    else if (whence == SEEK_END)
        base = source->length;
    if (offset > UINT64_MAX - base) return static_cast<toff_t>(-1);
    source->position = base + offset;
    return source->position;
}
int tiffClose(thandle_t) {
    return 0;
}
toff_t tiffSize(thandle_t handle) {
    return static_cast<TIFFSource*>(handle)->length;
}
int tiffMap(thandle_t handle, void** base, toff_t* size) {
    // Opened read-only: the library reads the mapped bytes and never writes them.
    auto* source = static_cast<TIFFSource*>(handle);
    *base = const_cast<uint8_t*>(source->bytes);
    *size = source->length;
    return 1;
}
void tiffUnmap(thandle_t, void*, toff_t) {}
int tiffQuiet(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

// One tile may hold at most this much decompressed.
constexpr uint64_t kMaxTIFFTileBytes = uint64_t{16} << 20;

Verdict decodeTIFFPieces(TIFF* tiff, Gate& gate) {
    uint32_t width = 0;
    uint32_t height = 0;
    if (!TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) || !TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height))
        return Verdict::undecodable;
    if (width == 0 || height == 0) return Verdict::undecodable;
    uint16_t samples = 1;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    uint16_t planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    // Separate planes are decoded one after another: count them as pixels.
    const uint64_t planes = planar == PLANARCONFIG_SEPARATE ? std::max<uint16_t>(samples, 1) : 1;
    if (uint64_t(width) * height > kMaxImagePixels / planes) {
        gate.why = tooLarge(width, height);
        return gate.stopped();
    }
    if (!gate.admit(width, uint64_t(height) * planes)) return gate.stopped();
    if (TIFFIsTiled(tiff)) {
        const tmsize_t tileSize = TIFFTileSize(tiff);
        if (tileSize <= 0) return Verdict::undecodable;
        if (static_cast<uint64_t>(tileSize) > kMaxTIFFTileBytes) {
            gate.why = tooLarge(width, height);
            return gate.stopped();
        }
        std::vector<uint8_t> tile(static_cast<size_t>(tileSize));
        const uint32_t tiles = TIFFNumberOfTiles(tiff);
        for (uint32_t i = 0; i < tiles; ++i)
            if (TIFFReadEncodedTile(tiff, i, tile.data(), tileSize) < 0) return Verdict::undecodable;
        return Verdict::decoded;
    }
    const tmsize_t lineSize = TIFFScanlineSize(tiff);
    if (lineSize <= 0) return Verdict::undecodable;
    std::vector<uint8_t> line(static_cast<size_t>(lineSize));
    for (uint64_t plane = 0; plane < planes; ++plane)
        for (uint32_t y = 0; y < height; ++y)
            if (TIFFReadScanline(tiff, line.data(), y, static_cast<uint16_t>(plane)) < 0)
                return Verdict::undecodable;
    return Verdict::decoded;
}

Verdict decodeTIFF(const uint8_t* bytes, size_t length, Gate& gate) {
    TIFFSource source{bytes, length, 0};
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) return Verdict::undecodable;
    TIFFOpenOptionsSetErrorHandlerExtR(options, tiffQuiet, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, tiffQuiet, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(kMaxTIFFTileBytes));
    TIFF* tiff = TIFFClientOpenExt("artwork", "r", &source, tiffRead, tiffWrite, tiffSeek, tiffClose,
                                   tiffSize, tiffMap, tiffUnmap, options);
    TIFFOpenOptionsFree(options);
    if (!tiff) return Verdict::undecodable;
    const Verdict verdict = decodeTIFFPieces(tiff, gate);
    TIFFClose(tiff);
    return verdict;
}

// --- BMP (stb_image), decoded onto a whole canvas.
Verdict decodeBMP(const uint8_t* bytes, size_t length, Gate& gate) {
    if (length > static_cast<size_t>(INT32_MAX)) return Verdict::undecodable;
    const int size = static_cast<int>(length);
    int width = 0;
    int height = 0;
    int components = 0;
    if (!stbi_info_from_memory(bytes, size, &width, &height, &components)) return Verdict::undecodable;
    if (width <= 0 || height <= 0) return Verdict::undecodable;
    // The decoder pads missing pixel rows with zeros instead of failing, so
    // a few header bytes could make it fill a canvas of millions of pixels.
    // When the data cannot hold the pixels it would only produce that
    // padding; the accepted header is then the proof.
    if (length >= 30) {
        const uint32_t headerSize = le32(bytes + 14);
        const uint16_t bitsPerPixel = le16(bytes + (headerSize == 12 ? 24 : 28));
        const uint64_t rowBytes = (uint64_t(width) * bitsPerPixel + 7) / 8;
        if (rowBytes != 0 && uint64_t(height) > length / rowBytes) return Verdict::decoded;
    }
    if (!gate.admit(static_cast<uint64_t>(width), static_cast<uint64_t>(height), kBMPBytesPerPixel))
        return gate.stopped();
    stbi_uc* pixels = stbi_load_from_memory(bytes, size, &width, &height, &components, 0);
    if (!pixels) return Verdict::undecodable;
    stbi_image_free(pixels);
    return Verdict::decoded;
}

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
                gate.why = tooLarge(size->first, size->second);
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

bool startsWith(const uint8_t* bytes, size_t length, std::string_view magic, size_t at = 0) {
    return length >= at && magic.size() <= length - at &&
           std::memcmp(bytes + at, magic.data(), magic.size()) == 0;
}

Verdict decodeAny(const uint8_t* bytes, size_t length, Gate& gate) {
    // Each decoder insists on its own signature, so the signature picks the
    // one decoder that could accept the data.
    if (startsWith(bytes, length, "\xFF\xD8")) return decodeJPEG(bytes, length, gate);
    if (startsWith(bytes, length, "\x89PNG\r\n\x1A\n")) return decodePNG(bytes, length, gate);
    // giflib itself only insists on "GIF"; the version digits are not checked.
    if (startsWith(bytes, length, "GIF")) return decodeGIF(bytes, length, gate);
    if (startsWith(bytes, length, "RIFF") && startsWith(bytes, length, "WEBP", 8))
        return decodeWebP(bytes, length, gate);
    if (startsWith(bytes, length, std::string_view("II*\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0*", 4)) ||
        startsWith(bytes, length, std::string_view("II+\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0+", 4)))
        return decodeTIFF(bytes, length, gate);
    if (startsWith(bytes, length, "BM")) return decodeBMP(bytes, length, gate);
    switch (MimeTypeFromRawImageData::mimeCodeForData(bytes, length)) {
        case MimeTypeFromRawImageData::avif:
            return decodeAVIF(bytes, length, gate);
        case MimeTypeFromRawImageData::heif:
        case MimeTypeFromRawImageData::heic:
            return decodeHEIF(bytes, length, gate);
        case MimeTypeFromRawImageData::jxl:
            return decodeJXL(bytes, length, gate);
        default:
            return Verdict::undecodable;
    }
}

}  // namespace

Decision decide(const uint8_t* bytes, size_t length, ImageBudget& budget) {
    if (!bytes || length == 0) return {Verdict::undecodable, {}};
    const ImageBudget::Key key = ImageBudget::keyFor(bytes, length);
    if (const Decision* known = budget.recall(key)) return *known;
    Gate gate{budget, {}};
    Decision decision{decodeAny(bytes, length, gate), {}};
    if (decision.verdict == Verdict::notChecked) decision.why = std::move(gate.why);
    budget.remember(key, decision);
    return decision;
}

bool canDecode(const uint8_t* bytes, size_t length) {
    ImageBudget budget;
    return decide(bytes, length, budget).verdict != Verdict::undecodable;
}

std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType,
                                         ImageBudget& budget) {
    Decision decision = decide(bytes, length, budget);
    if (decision.verdict == Verdict::undecodable) return std::string(kNotAnImage);
    if (decision.verdict == Verdict::notChecked && budget.takeNote()) return std::move(decision.why);
    const int code = MimeTypeFromRawImageData::mimeCodeForData(bytes, length);
    if (mimeType == "image/jpeg" && code != MimeTypeFromRawImageData::jpeg) return std::string(kNotJPEG);
    if (mimeType == "image/png" && code != MimeTypeFromRawImageData::png) return std::string(kNotPNG);
    return std::nullopt;
}

std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType) {
    ImageBudget budget;
    return validateImage(bytes, length, mimeType, budget);
}

}  // namespace ImageValidator
}  // namespace sondrel
