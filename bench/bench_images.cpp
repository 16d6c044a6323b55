// Time to validate typical cover art: a JPEG of about 500 KB and a PNG of
// about 2 MB, both of random pixels so that the files really are that large
// and the decoders cannot skip flat areas.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include <jpeglib.h>
#include <png.h>

#include "core/Bytes.h"
#include "core/ImageValidator.h"

namespace {

using sondrel::Bytes;

std::vector<uint8_t> noise(int width, int height) {
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    std::mt19937 random(11);
    for (auto& b : rgb) b = uint8_t(random());
    return rgb;
}

Bytes encodeJPEG(int width, int height) {
    const auto rgb = noise(width, height);
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
    jpeg_set_quality(&cinfo, 85, TRUE);
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

Bytes encodePNG(int width, int height) {
    const auto rgb = noise(width, height);
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t n) {
            auto* o = static_cast<Bytes*>(png_get_io_ptr(p));
            o->insert(o->end(), data, data + n);
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

// The smallest square image of at least `target` bytes.
template <typename Encode>
Bytes squareOfAtLeast(size_t target, Encode encode) {
    for (int side = 64;; side += side / 8) {
        Bytes b = encode(side, side);
        if (b.size() >= target) return b;
    }
}

void validate(benchmark::State& state, const Bytes& image, const char* mime) {
    for (auto _ : state) {
        auto message = sondrel::ImageValidator::validateImage(image.data(), image.size(), mime);
        if (message) state.SkipWithError(message->c_str());
        benchmark::DoNotOptimize(message);
    }
    state.counters["bytes"] = double(image.size());
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image.size()));
}

void BM_ValidateJPEG500K(benchmark::State& state) {
    static const Bytes jpeg = squareOfAtLeast(500 * 1000, encodeJPEG);
    validate(state, jpeg, "image/jpeg");
}
BENCHMARK(BM_ValidateJPEG500K)->Unit(benchmark::kMillisecond);

void BM_ValidatePNG2M(benchmark::State& state) {
    static const Bytes png = squareOfAtLeast(2 * 1000 * 1000, encodePNG);
    validate(state, png, "image/png");
}
BENCHMARK(BM_ValidatePNG2M)->Unit(benchmark::kMillisecond);

}  // namespace
