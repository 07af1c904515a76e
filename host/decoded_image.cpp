#include "host/decoded_image.h"

#include "host/host_error.h"

namespace smartCrop::host {

PixelBuffer::PixelBuffer(uint32_t width, uint32_t height) {
    const uint64_t offsets[4] = {0, 1, 2, 3};
    image.reset(CreateImageObj(height, width, 4, offsets, nullptr));
    if (!image) throw HostError("out of memory for the image");
    bytes = image->GetPixels();
    byteCount = size_t{width} * height * 4;
}

DecodedImage pixels_image(const uint8_t* data, uint32_t width, uint32_t height, size_t rowStride,
                          ChannelOrder order) {
    if (width == 0 || height == 0) throw HostError("the image has no pixels");
    DecodedImage image;
    image.format = ImageFormat::Unknown;
    image.width = image.fullWidth = width;
    image.height = image.fullHeight = height;
    image.pixels = PixelBuffer(width, height);
    // Bytes a pixel, and where red, green and blue lie within it.
    struct Layout {
        int step, red, green, blue;
    };
    const Layout l = order == ChannelOrder::Rgb    ? Layout{3, 0, 1, 2}
                     : order == ChannelOrder::Rgba ? Layout{4, 0, 1, 2}
                     : order == ChannelOrder::Bgr  ? Layout{3, 2, 1, 0}
                     : order == ChannelOrder::Bgra ? Layout{4, 2, 1, 0}
                                                   : Layout{1, 0, 0, 0};
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* in = data + y * rowStride;
        uint8_t* out = image.pixels.data() + size_t{y} * width * 4;
        for (uint32_t x = 0; x < width; ++x, in += l.step, out += 4) {
            out[1] = in[l.red];
            out[2] = in[l.green];
            out[3] = in[l.blue];
        }
    }
    return image;
}

Counted<IImage> PixelBuffer::release() {
    bytes = nullptr;
    byteCount = 0;
    return std::move(image);
}

const char* format_name(ImageFormat format) {
    switch (format) {
        case ImageFormat::Jpeg:
            return "JPEG";
        case ImageFormat::Png:
            return "PNG";
        case ImageFormat::Webp:
            return "WebP";
        case ImageFormat::Tiff:
            return "TIFF";
        case ImageFormat::Bmp:
            return "BMP";
        case ImageFormat::Pnm:
            return "PNM";
        case ImageFormat::Gif:
            return "GIF";
        case ImageFormat::Unknown:
            break;
    }
    return "unknown";
}

}  // namespace smartCrop::host
