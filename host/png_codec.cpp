// PNG through libspng: bounded chunks, CRC and truncation as errors.
#include <spng.h>

#include <cstdlib>
#include <string>

#include "host/codecs.h"
#include "host/exif_orientation.h"

namespace smartCrop::host {

namespace {

struct SpngContext {
    explicit SpngContext(int flags) : ctx(spng_ctx_new(flags)) {
        if (ctx == nullptr) throw HostError("out of memory for the PNG codec");
    }
    ~SpngContext() { spng_ctx_free(ctx); }
    SpngContext(const SpngContext&) = delete;
    SpngContext& operator=(const SpngContext&) = delete;
    spng_ctx* ctx;
};

[[noreturn]] void fail(int error) {
    if (error == SPNG_IO_EOF || error == SPNG_EOF || error == SPNG_EIDAT_TOO_SHORT)
        throw HostError("the PNG file is truncated");
    throw HostError(std::string("the PNG data is damaged (") + spng_strerror(error) + ")");
}

int exif_orientation(spng_ctx* ctx) {
    spng_exif exif{};
    if (spng_get_exif(ctx, &exif) != 0) return 1;
    return tiff_orientation(reinterpret_cast<const uint8_t*>(exif.data), exif.length);
}

}  // namespace

RawDecode decode_png(const std::vector<uint8_t>& bytes, const DecodeOptions& options,
                     SizeCheck check) {
    SpngContext png(0);
    // Text and other ancillary chunks may not grow without bound either.
    spng_set_chunk_limits(png.ctx, 16u << 20, 64u << 20);
    if (options.lenient) spng_set_crc_action(png.ctx, SPNG_CRC_USE, SPNG_CRC_USE);
    spng_set_png_buffer(png.ctx, bytes.data(), bytes.size());
    spng_ihdr ihdr{};
    if (const int e = spng_get_ihdr(png.ctx, &ihdr)) fail(e);
    check({ihdr.width, ihdr.height}, options);

    RawDecode out;
    DecodedImage& image = out.image;
    image.format = ImageFormat::Png;
    image.width = image.fullWidth = ihdr.width;
    image.height = image.fullHeight = ihdr.height;
    image.pixels = PixelBuffer(ihdr.width, ihdr.height);
    const int e = spng_decode_image(png.ctx, image.pixels.data(), image.pixels.size(),
                                    SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
    // Lenient: the rows decoded before the damage stand, the rest stay black.
    if (e != 0 && !(options.lenient && e != SPNG_EBUFSIZ && e != SPNG_EFMT)) fail(e);
    // The image data can end before its chunk does: the rest of the file,
    // checksums and all, is read too, or damage after the last row passes.
    if (e == 0 && !options.lenient) {
        if (const int rest = spng_decode_chunks(png.ctx)) fail(rest);
    }
    // Red, green, blue, alpha -> ignored, red, green, blue, in place.
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        image.pixels[i + 3] = image.pixels[i + 2];
        image.pixels[i + 2] = image.pixels[i + 1];
        image.pixels[i + 1] = image.pixels[i];
        image.pixels[i] = 0;
    }
    out.orientation = exif_orientation(png.ctx);
    return out;
}

std::vector<uint8_t> encode_png(const uint8_t* xrgb, uint32_t width, uint32_t height,
                                size_t stride) {
    SpngContext png(SPNG_CTX_ENCODER);
    spng_set_option(png.ctx, SPNG_ENCODE_TO_BUFFER, 1);
    // Crops of large photographs: the default level took half a minute per
    // 100-megapixel crop for files a few percent smaller.
    spng_set_option(png.ctx, SPNG_IMG_COMPRESSION_LEVEL, 1);
    spng_ihdr ihdr{};
    ihdr.width = width;
    ihdr.height = height;
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
    int e = spng_set_ihdr(png.ctx, &ihdr);
    if (e == 0)
        e = spng_encode_image(png.ctx, nullptr, 0, SPNG_FMT_PNG,
                              SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE);
    // Row by row: no second copy of a large crop.
    std::vector<uint8_t> row(size_t{width} * 3);
    for (uint32_t y = 0; e == 0 && y < height; ++y) {
        const uint8_t* in = xrgb + y * stride;
        for (uint32_t x = 0; x < width; ++x) {
            row[3 * x] = in[4 * x + 1];
            row[3 * x + 1] = in[4 * x + 2];
            row[3 * x + 2] = in[4 * x + 3];
        }
        e = spng_encode_row(png.ctx, row.data(), row.size());
        if (e == SPNG_EOI) e = 0;
    }
    size_t size = 0;
    void* buffer = e == 0 ? spng_get_png_buffer(png.ctx, &size, &e) : nullptr;
    if (buffer == nullptr)
        throw HostError(std::string("cannot encode the PNG (") + spng_strerror(e) + ")");
    std::vector<uint8_t> out(static_cast<uint8_t*>(buffer), static_cast<uint8_t*>(buffer) + size);
    std::free(buffer);
    return out;
}

}  // namespace smartCrop::host
