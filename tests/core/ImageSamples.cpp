#include "tests/core/ImageSamples.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include <gif_lib.h>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <webp/encode.h>

namespace sondrel::samples {

namespace {

// RGB pixels, row by row.
std::vector<uint8_t> pixels(int width, int height, bool noisy) {
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3];
            if (noisy) {
                const uint32_t r = random();
                p[0] = uint8_t(r);
                p[1] = uint8_t(r >> 8);
                p[2] = uint8_t(r >> 16);
            } else {
                p[0] = uint8_t(x * 255 / std::max(1, width - 1));
                p[1] = uint8_t(y * 255 / std::max(1, height - 1));
                p[2] = uint8_t((x + y) & 0xFF);
            }
        }
    return rgb;
}

void appendBytes(Bytes& out, const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    out.insert(out.end(), p, p + size);
}

}  // namespace

Bytes makeJPEG(int width, int height, bool noisy, bool progressive) {
    const auto rgb = pixels(width, height, noisy);
    jpeg_compress_struct cinfo;
    jpeg_error_mgr errors;
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = JDIMENSION(width);
    cinfo.image_height = JDIMENSION(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 90, TRUE);
    if (progressive) jpeg_simple_progression(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&rgb[size_t(cinfo.next_scanline) * size_t(width) * 3]);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    return out;
}

Bytes makePNG(int width, int height, bool noisy) {
    const auto rgb = pixels(width, height, noisy);
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t size) {
            appendBytes(*static_cast<Bytes*>(png_get_io_ptr(p)), data, size);
        },
        nullptr);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) png_write_row(png, &rgb[size_t(y) * size_t(width) * 3]);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

Bytes makeGIF(int width, int height) {
    Bytes out;
    int error = 0;
    GifFileType* gif = EGifOpen(
        &out,
        [](GifFileType* g, const GifByteType* data, int size) {
            appendBytes(*static_cast<Bytes*>(g->UserData), data, size_t(size));
            return size;
        },
        &error);
    GifColorType colors[2] = {{0, 0, 0}, {255, 255, 255}};
    ColorMapObject* map = GifMakeMapObject(2, colors);
    EGifPutScreenDesc(gif, width, height, 1, 0, map);
    EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr);
    std::vector<GifPixelType> line(static_cast<size_t>(width));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) line[size_t(x)] = GifPixelType((x + y) & 1);
        EGifPutLine(gif, line.data(), width);
    }
    EGifCloseFile(gif, &error);
    GifFreeMapObject(map);
    return out;
}

Bytes makeWebP(int width, int height) {
    const auto rgb = pixels(width, height, false);
    uint8_t* encoded = nullptr;
    const size_t size = WebPEncodeRGB(rgb.data(), width, height, width * 3, 80, &encoded);
    Bytes out(encoded, encoded + size);
    WebPFree(encoded);
    return out;
}

Bytes makeTIFF(int width, int height) {
    // libtiff writes through a memory client that grows a byte vector.
    struct Sink {
        Bytes bytes;
        uint64_t position = 0;
    } sink;
    auto write = [](thandle_t h, void* data, tmsize_t size) -> tmsize_t {
        auto* s = static_cast<Sink*>(h);
        const uint64_t end = s->position + uint64_t(size);
        if (s->bytes.size() < end) s->bytes.resize(size_t(end));
        std::memcpy(s->bytes.data() + s->position, data, size_t(size));
        s->position = end;
        return size;
    };
    auto read = [](thandle_t h, void* data, tmsize_t size) -> tmsize_t {
        auto* s = static_cast<Sink*>(h);
        const uint64_t n = std::min<uint64_t>(
            uint64_t(size), s->bytes.size() - std::min<uint64_t>(s->position, s->bytes.size()));
        std::memcpy(data, s->bytes.data() + s->position, size_t(n));
        s->position += n;
        return tmsize_t(n);
    };
    auto seek = [](thandle_t h, toff_t offset, int whence) -> toff_t {
        auto* s = static_cast<Sink*>(h);
        s->position = (whence == SEEK_CUR ? s->position : whence == SEEK_END ? s->bytes.size() : 0) + offset;
        return s->position;
    };
    auto close = [](thandle_t) { return 0; };
    auto size = [](thandle_t h) -> toff_t { return static_cast<Sink*>(h)->bytes.size(); };
    auto map = [](thandle_t, void**, toff_t*) { return 0; };
    auto unmap = [](thandle_t, void*, toff_t) {};
    TIFF* tiff = TIFFClientOpen("sample", "wm", &sink, read, write, seek, close, size, map, unmap);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, uint32_t(width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, uint32_t(height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 4);
    auto rgb = pixels(width, height, false);
    for (int y = 0; y < height; ++y)
        TIFFWriteScanline(tiff, &rgb[size_t(y) * size_t(width) * 3], uint32_t(y), 0);
    TIFFClose(tiff);
    return sink.bytes;
}

Bytes makeBMP(int width, int height) {
    // 24-bit bottom-up rows padded to four bytes, behind the two BMP headers.
    const auto rgb = pixels(width, height, false);
    const uint32_t stride = (uint32_t(width) * 3 + 3) & ~3u;
    const uint32_t imageSize = stride * uint32_t(height);
    Bytes out;
    auto le16 = [&out](uint32_t v) { out.push_back(uint8_t(v)), out.push_back(uint8_t(v >> 8)); };
    auto le32 = [&le16](uint32_t v) { le16(v & 0xFFFF), le16(v >> 16); };
    out.push_back('B'), out.push_back('M');
    le32(14 + 40 + imageSize), le32(0), le32(14 + 40);
    le32(40), le32(uint32_t(width)), le32(uint32_t(height)), le16(1), le16(24), le32(0), le32(imageSize);
    le32(2835), le32(2835), le32(0), le32(0);
    for (int y = height - 1; y >= 0; --y) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* p = &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3];
            out.push_back(p[2]), out.push_back(p[1]), out.push_back(p[0]);
        }
        for (uint32_t pad = uint32_t(width) * 3; pad < stride; ++pad) out.push_back(0);
    }
    return out;
}

}  // namespace sondrel::samples
