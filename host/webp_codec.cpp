// WebP through libwebp: features first, truncated or corrupt data as errors.
#include <webp/decode.h>
#include <webp/encode.h>

#include "host/codecs.h"
#include "host/exif_orientation.h"

namespace smartCrop::host {

RawDecode decode_webp(const std::vector<uint8_t>& bytes, const DecodeOptions& options,
                      SizeCheck check) {
    WebPBitstreamFeatures features;
    const VP8StatusCode status = WebPGetFeatures(bytes.data(), bytes.size(), &features);
    if (status == VP8_STATUS_NOT_ENOUGH_DATA) throw HostError("the WebP file is truncated");
    if (status != VP8_STATUS_OK) throw HostError("the WebP data is damaged");
    if (features.has_animation) throw HostError("animated WebP images are not supported");
    check({static_cast<uint64_t>(features.width), static_cast<uint64_t>(features.height)}, options);

    RawDecode out;
    out.orientation = webp_orientation(bytes);
    DecodedImage& image = out.image;
    image.format = ImageFormat::Webp;
    image.width = image.fullWidth = static_cast<uint32_t>(features.width);
    image.height = image.fullHeight = static_cast<uint32_t>(features.height);
    image.pixels = PixelBuffer(image.width, image.height);
    const int stride = static_cast<int>(image.width * 4);
    // Alpha, red, green, blue: the first byte is the one the library ignores.
    if (!options.lenient) {
        if (WebPDecodeARGBInto(bytes.data(), bytes.size(), image.pixels.data(), image.pixels.size(),
                               stride) == nullptr)
            throw HostError("the WebP data is damaged or truncated");
        return out;
    }
    // Lenient: the incremental decoder keeps the rows it got before the damage.
    WebPIDecoder* decoder =
        WebPINewRGB(MODE_ARGB, image.pixels.data(), image.pixels.size(), stride);
    if (decoder == nullptr) throw HostError("out of memory for the WebP codec");
    const VP8StatusCode appended = WebPIAppend(decoder, bytes.data(), bytes.size());
    WebPIDelete(decoder);
    if (appended != VP8_STATUS_OK && appended != VP8_STATUS_SUSPENDED)
        throw HostError("the WebP data is damaged");
    return out;
}

std::vector<uint8_t> encode_webp(const uint8_t* xrgb, uint32_t width, uint32_t height,
                                 size_t stride, int quality) {
    std::vector<uint8_t> rgb(size_t{width} * height * 3);
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* in = xrgb + y * stride;
        uint8_t* o = &rgb[size_t{y} * width * 3];
        for (uint32_t x = 0; x < width; ++x) {
            o[3 * x] = in[4 * x + 1];
            o[3 * x + 1] = in[4 * x + 2];
            o[3 * x + 2] = in[4 * x + 3];
        }
    }
    uint8_t* buffer = nullptr;
    const size_t size =
        WebPEncodeRGB(rgb.data(), static_cast<int>(width), static_cast<int>(height),
                      static_cast<int>(width * 3), static_cast<float>(quality), &buffer);
    if (size == 0) {
        WebPFree(buffer);
        throw HostError("cannot encode the WebP image (at most 16383 pixels a side)");
    }
    std::vector<uint8_t> out(buffer, buffer + size);
    WebPFree(buffer);
    return out;
}

}  // namespace smartCrop::host
