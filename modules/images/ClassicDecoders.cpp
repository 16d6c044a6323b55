// The decoders of the usual artwork formats, built as the "sondrel_images"
// module: each reads the picture from memory, weighs its size through the
// gate before any pixel is decoded, and keeps nothing.
#include <algorithm>
#include <csetjmp>
#include <cstdio>  // jpeglib.h needs FILE
#include <cstring>
#include <vector>

#include <gif_lib.h>
#include <jerror.h>
#include <jpeglib.h>
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
#include "core/ImageDecoders.h"

namespace sondrel::ImageValidator {

namespace {
// A progressive JPEG needs one pass over all coefficients per scan; real
// encoders write about ten scans, a crafted file could ask for thousands.
// Past this budget of scans times pixels the scans read so far are the proof.
constexpr uint64_t kMaxJPEGScanPixels = (uint64_t{1} << 25) * 16;

// Bytes per pixel that the whole-picture decoders hold (measured on real
// pictures with some margin). The BMP decoder fills a four-byte canvas; the
// lossless WebP decoder keeps every pixel as a 32-bit value.
constexpr uint64_t kBMPBytesPerPixel = 4;
constexpr uint64_t kLosslessWebPBytesPerPixel = 4;
constexpr uint64_t kLossyWebPBytesPerPixel = 1;  // an alpha plane, when there is one

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
            gate.tooLarge(cinfo.image_width, cinfo.image_height);
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
        gate.tooLarge(width, height);
        return gate.stopped();
    }
    if (!gate.admit(width, uint64_t(height) * planes)) return gate.stopped();
    if (TIFFIsTiled(tiff)) {
        const tmsize_t tileSize = TIFFTileSize(tiff);
        if (tileSize <= 0) return Verdict::undecodable;
        if (static_cast<uint64_t>(tileSize) > kMaxTIFFTileBytes) {
            gate.tooLarge(width, height);
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

}  // namespace
}  // namespace sondrel::ImageValidator

extern "C" __attribute__((visibility("default"))) const void* sondrel_module_sondrel_images() {
    using namespace sondrel::ImageValidator;
    static const Decoders decoders{sizeof(Decoders), decodeJPEG, decodePNG, decodeGIF, decodeWebP,
                                   decodeTIFF,       decodeBMP,  nullptr,   nullptr,   nullptr};
    return &decoders;
}
