#include "core/ImageValidator.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>  // jpeglib.h needs FILE
#include <cstring>
#include <vector>

#include <gif_lib.h>
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
#include "core/MimeTypeFromRawImageData.h"

namespace sondrel::ImageValidator {

namespace {

constexpr std::string_view kNotAnImage = "Artwork data cannot be represented as an image";
constexpr std::string_view kNotJPEG =
    "Artwork mime type is image/jpeg but the data does not represent a jpeg image";
constexpr std::string_view kNotPNG =
    "Artwork mime type is image/png but the data does not represent a png image";

// Decoding proves that the data is an image; nothing is kept. To bound time
// and memory on hostile headers, an image larger than these limits is not
// decoded: a header that its decoder accepts is then taken as the proof, as
// a platform image object made from that header would be. Streaming decoders
// (JPEG scaled to 1/8, PNG and GIF row by row, WebP scaled, TIFF per strip or
// tile) hold little memory but need time in proportion to the pixels; the
// BMP decoder fills a whole canvas, so its limit is lower.
constexpr uint64_t kMaxStreamedPixels = uint64_t{1} << 25;  // about 5800 x 5800
constexpr uint64_t kMaxCanvasPixels = uint64_t{1} << 24;    // about 4096 x 4096 (BMP)
constexpr uint64_t kMaxTIFFBlockBytes = uint64_t{64} << 20;
constexpr uint64_t kMaxTIFFTotalBytes = uint64_t{512} << 20;
// A progressive JPEG needs one pass over all coefficients per scan; real
// encoders write about ten scans, a crafted file could ask for thousands.
// Past this budget of scans times pixels the scans read so far are the proof.
constexpr uint64_t kMaxJPEGScanPixels = kMaxStreamedPixels * 16;

bool tooManyPixels(uint64_t width, uint64_t height, uint64_t limit) {
    return width != 0 && height > limit / width;
}

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
constexpr int kJPEGBudgetSpent = 2;

void jpegFatal(j_common_ptr cinfo) {
    std::longjmp(reinterpret_cast<JPEGErrors*>(cinfo->err)->jump, kJPEGFatal);
}
void jpegMessage(j_common_ptr, int) {}
void jpegOutput(j_common_ptr) {}
void jpegProgress(j_common_ptr cinfo) {
    if (!cinfo->is_decompressor) return;
    const auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    const uint64_t pixels = uint64_t(d->image_width) * d->image_height;
    if (pixels != 0 && uint64_t(std::max(d->input_scan_number, 0)) > kMaxJPEGScanPixels / pixels)
        std::longjmp(reinterpret_cast<JPEGErrors*>(cinfo->err)->jump, kJPEGBudgetSpent);
}

bool decodesAsJPEG(const uint8_t* bytes, size_t length) {
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
        case kJPEGBudgetSpent:
            jpeg_destroy_decompress(&cinfo);
            return true;
        default:
            jpeg_destroy_decompress(&cinfo);
            return false;
    }
    jpeg_create_decompress(&cinfo);
    cinfo.progress = &errors.progress;
    jpeg_mem_src(&cinfo, bytes, static_cast<unsigned long>(length));
    jpeg_read_header(&cinfo, TRUE);
    if (tooManyPixels(cinfo.image_width, cinfo.image_height, kMaxStreamedPixels)) {
        jpeg_destroy_decompress(&cinfo);
        return true;
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
    return true;
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

bool decodesAsPNG(const uint8_t* bytes, size_t length) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, pngFatal, pngWarning);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        return false;
    }
    PNGSource source{bytes, length, 0};
    png_bytep volatile row = nullptr;
    if (setjmp(png_jmpbuf(png))) {
        png_free(png, row);
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, &source, pngRead);
    png_set_chunk_malloc_max(png, 16u << 20);
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    if (tooManyPixels(width, height, kMaxStreamedPixels)) {
        png_destroy_read_struct(&png, &info, nullptr);
        return true;
    }
    const int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    row = static_cast<png_bytep>(png_malloc(png, png_get_rowbytes(png, info)));
    for (int pass = 0; pass < passes; ++pass)
        for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, row, nullptr);
    png_free(png, row);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
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

bool decodeFirstGIFImage(GifFileType* gif) {
    for (;;) {
        GifRecordType record;
        if (DGifGetRecordType(gif, &record) == GIF_ERROR) return false;
        switch (record) {
            case IMAGE_DESC_RECORD_TYPE: {
                if (DGifGetImageDesc(gif) == GIF_ERROR) return false;
                const int width = gif->Image.Width;
                const int height = gif->Image.Height;
                if (width <= 0 || height <= 0) return false;
                if (tooManyPixels(static_cast<uint64_t>(width), static_cast<uint64_t>(height),
                                  kMaxStreamedPixels))
                    return true;
                std::vector<GifPixelType> line(static_cast<size_t>(width));
                for (int y = 0; y < height; ++y)
                    if (DGifGetLine(gif, line.data(), width) == GIF_ERROR) return false;
                return true;
            }
            case EXTENSION_RECORD_TYPE: {
                int code = 0;
                GifByteType* block = nullptr;
                if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) return false;
                while (block)
                    if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) return false;
                break;
            }
            case TERMINATE_RECORD_TYPE:
                return false;  // no image at all
            default:
                return false;
        }
    }
}

bool decodesAsGIF(const uint8_t* bytes, size_t length) {
    GIFSource source{bytes, length, 0};
    int error = 0;
    GifFileType* gif = DGifOpen(&source, gifRead, &error);
    if (!gif) return false;
    const bool decoded = decodeFirstGIFImage(gif);
    DGifCloseFile(gif, &error);
    return decoded;
}

// --- WebP (libwebp): decoded at an eighth of its size. An animation cannot
// be decoded by the still-image decoder; its accepted header is the proof.
bool decodesAsWebP(const uint8_t* bytes, size_t length) {
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return false;
    if (WebPGetFeatures(bytes, length, &config.input) != VP8_STATUS_OK) return false;
    const int width = config.input.width;
    const int height = config.input.height;
    if (width <= 0 || height <= 0) return false;
    if (config.input.has_animation) return true;
    if (tooManyPixels(static_cast<uint64_t>(width), static_cast<uint64_t>(height), kMaxStreamedPixels))
        return true;
    config.options.use_scaling = 1;
    config.options.scaled_width = std::max(1, width / 8);
    config.options.scaled_height = std::max(1, height / 8);
    config.output.colorspace = MODE_RGBA;
    const bool decoded = WebPDecode(bytes, length, &config) == VP8_STATUS_OK;
    WebPFreeDecBuffer(&config.output);
    return decoded;
}

// --- TIFF (libtiff) through a read-only memory client; every strip or tile
// of the first directory is decompressed.
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
int tiffMap(thandle_t, void**, toff_t*) {
    return 0;
}
void tiffUnmap(thandle_t, void*, toff_t) {}
int tiffQuiet(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

bool decodeTIFFBlocks(TIFF* tiff) {
    uint32_t width = 0;
    uint32_t height = 0;
    if (!TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) || !TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height))
        return false;
    if (width == 0 || height == 0) return false;
    if (tooManyPixels(width, height, kMaxStreamedPixels)) return true;
    const bool tiled = TIFFIsTiled(tiff);
    const tmsize_t blockSize = tiled ? TIFFTileSize(tiff) : TIFFStripSize(tiff);
    if (blockSize <= 0) return false;
    if (static_cast<uint64_t>(blockSize) > kMaxTIFFBlockBytes) return true;
    const uint32_t blocks = tiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
    // Many samples per pixel can make a modest pixel count expand enormously.
    if (uint64_t(blockSize) > kMaxTIFFTotalBytes / std::max<uint64_t>(blocks, 1)) return true;
    std::vector<uint8_t> buffer(static_cast<size_t>(blockSize));
    for (uint32_t i = 0; i < blocks; ++i) {
        const tmsize_t got = tiled ? TIFFReadEncodedTile(tiff, i, buffer.data(), blockSize)
                                   : TIFFReadEncodedStrip(tiff, i, buffer.data(), blockSize);
        if (got < 0) return false;
    }
    return true;
}

bool decodesAsTIFF(const uint8_t* bytes, size_t length) {
    TIFFSource source{bytes, length, 0};
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (!options) return false;
    TIFFOpenOptionsSetErrorHandlerExtR(options, tiffQuiet, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, tiffQuiet, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(kMaxTIFFBlockBytes));
    // "m" keeps libtiff from mapping: the client has no file to map.
    TIFF* tiff = TIFFClientOpenExt("artwork", "rm", &source, tiffRead, tiffWrite, tiffSeek, tiffClose,
                                   tiffSize, tiffMap, tiffUnmap, options);
    TIFFOpenOptionsFree(options);
    if (!tiff) return false;
    const bool decoded = decodeTIFFBlocks(tiff);
    TIFFClose(tiff);
    return decoded;
}

// --- BMP (stb_image), decoded onto a whole canvas.
bool decodesAsBMP(const uint8_t* bytes, size_t length) {
    if (length > static_cast<size_t>(INT32_MAX)) return false;
    const int size = static_cast<int>(length);
    int width = 0;
    int height = 0;
    int components = 0;
    if (!stbi_info_from_memory(bytes, size, &width, &height, &components)) return false;
    if (width <= 0 || height <= 0) return false;
    if (tooManyPixels(static_cast<uint64_t>(width), static_cast<uint64_t>(height), kMaxCanvasPixels))
        return true;
    // The decoder pads missing pixel rows with zeros instead of failing, so
    // a few header bytes could make it fill a canvas of millions of pixels.
    // When the data cannot hold the pixels it would only produce that
    // padding; the accepted header is then the proof.
    if (length >= 30) {
        const uint32_t headerSize = le32(bytes + 14);
        const uint16_t bitsPerPixel = le16(bytes + (headerSize == 12 ? 24 : 28));
        const uint64_t rowBytes = (uint64_t(width) * bitsPerPixel + 7) / 8;
        if (rowBytes != 0 && uint64_t(height) > length / rowBytes) return true;
    }
    stbi_uc* pixels = stbi_load_from_memory(bytes, size, &width, &height, &components, 0);
    if (!pixels) return false;
    stbi_image_free(pixels);
    return true;
}

bool startsWith(const uint8_t* bytes, size_t length, std::string_view magic, size_t at = 0) {
    return length >= at && magic.size() <= length - at &&
           std::memcmp(bytes + at, magic.data(), magic.size()) == 0;
}

}  // namespace

bool canDecode(const uint8_t* bytes, size_t length) {
    if (!bytes || length == 0) return false;
    // Each decoder insists on its own signature, so the signature picks the
    // one decoder that could accept the data.
    if (startsWith(bytes, length, "\xFF\xD8")) return decodesAsJPEG(bytes, length);
    if (startsWith(bytes, length, "\x89PNG\r\n\x1A\n")) return decodesAsPNG(bytes, length);
    // giflib itself only insists on "GIF"; the version digits are not checked.
    if (startsWith(bytes, length, "GIF")) return decodesAsGIF(bytes, length);
    if (startsWith(bytes, length, "RIFF") && startsWith(bytes, length, "WEBP", 8))
        return decodesAsWebP(bytes, length);
    if (startsWith(bytes, length, std::string_view("II*\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0*", 4)) ||
        startsWith(bytes, length, std::string_view("II+\0", 4)) ||
        startsWith(bytes, length, std::string_view("MM\0+", 4)))
        return decodesAsTIFF(bytes, length);
    if (startsWith(bytes, length, "BM")) return decodesAsBMP(bytes, length);
    return false;
}

std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType) {
    if (!canDecode(bytes, length)) return std::string(kNotAnImage);
    const int code = MimeTypeFromRawImageData::mimeCodeForData(bytes, length);
    if (mimeType == "image/jpeg" && code != MimeTypeFromRawImageData::jpeg) return std::string(kNotJPEG);
    if (mimeType == "image/png" && code != MimeTypeFromRawImageData::png) return std::string(kNotPNG);
    return std::nullopt;
}

}  // namespace sondrel::ImageValidator
