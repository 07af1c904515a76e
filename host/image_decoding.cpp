#include "host/image_decoding.h"

#include <sys/stat.h>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>

#include "host/codecs.h"
#include "host/exif_orientation.h"

namespace smartCrop::host {

namespace {

void check_size(HeaderSize size, const DecodeOptions& options) {
    if (size.width == 0 || size.height == 0) throw HostError("the image has no pixels");
    // A side beyond 31 bits is over any limit, and keeps the product from wrapping.
    const uint64_t side = std::numeric_limits<int32_t>::max();
    if (size.width > side || size.height > side || size.width * size.height > options.maxPixels) {
        throw HostError("the image is " + std::to_string(size.width) + " x " +
                        std::to_string(size.height) + " pixels, above the pixel limit of " +
                        std::to_string(options.maxPixels));
    }
}

// No compressed file needs more than this for an image within the limit.
uint64_t file_limit(const DecodeOptions& options) {
    const uint64_t perPixel = 4, slack = uint64_t{64} << 20;
    if (options.maxPixels > (std::numeric_limits<uint64_t>::max() - slack) / perPixel)
        return std::numeric_limits<uint64_t>::max();
    return options.maxPixels * perPixel + slack;
}

}  // namespace

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

ImageFormat sniff_format(const uint8_t* b, size_t n) {
    auto starts = [&](const char* magic, size_t length) {
        return n >= length && std::memcmp(b, magic, length) == 0;
    };
    if (starts("\xFF\xD8\xFF", 3)) return ImageFormat::Jpeg;
    if (starts("\x89PNG\r\n\x1A\n", 8)) return ImageFormat::Png;
    if (n >= 12 && starts("RIFF", 4) && std::memcmp(b + 8, "WEBP", 4) == 0)
        return ImageFormat::Webp;
    if (starts("II*\0", 4) || starts("MM\0*", 4)) return ImageFormat::Tiff;
    if (starts("BM", 2)) return ImageFormat::Bmp;
    if (n >= 2 && b[0] == 'P' && b[1] >= '1' && b[1] <= '7') return ImageFormat::Pnm;
    if (starts("GIF87a", 6) || starts("GIF89a", 6)) return ImageFormat::Gif;
    return ImageFormat::Unknown;
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

DecodedImage decode_image(std::vector<uint8_t> bytes, const DecodeOptions& options) {
    if (bytes.empty()) throw HostError("the file is empty");
    const ImageFormat format = sniff_format(bytes.data(), bytes.size());
    RawDecode raw;
    switch (format) {
        case ImageFormat::Jpeg:
            raw = decode_jpeg(bytes, options, check_size);
            break;
        case ImageFormat::Png:
            raw = decode_png(bytes, options, check_size);
            break;
        case ImageFormat::Webp:
            raw = decode_webp(bytes, options, check_size);
            break;
        case ImageFormat::Tiff:
        case ImageFormat::Bmp:
        case ImageFormat::Pnm:
            raw = decode_other(bytes, format, options, check_size);
            break;
        case ImageFormat::Gif:
            throw HostError(
                "GIF images are not supported (JPEG, PNG, WebP, TIFF, BMP and PNM are)");
        case ImageFormat::Unknown:
            throw HostError(
                "not an image file of a supported format (JPEG, PNG, WebP, TIFF, BMP, PNM)");
    }
    bytes = std::vector<uint8_t>();
    apply_orientation(raw.image, raw.orientation);
    return std::move(raw.image);
}

DecodedImage decode_file(const std::string& path, const DecodeOptions& options) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) throw HostError("cannot open the file");
    if (S_ISDIR(info.st_mode)) throw HostError("this is a folder, not a file");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw HostError("cannot open the file");
    // Sizes of pipes and devices are unknown: read those up to the limit.
    const uint64_t limit = file_limit(options);
    if (S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) > limit)
        throw HostError("the file is too large (" + std::to_string(info.st_size) +
                        " bytes) for an image within the pixel limit");
    std::vector<uint8_t> bytes;
    if (S_ISREG(info.st_mode)) bytes.reserve(static_cast<size_t>(info.st_size));
    char buffer[1 << 16];
    while (file.read(buffer, sizeof buffer) || file.gcount() > 0) {
        bytes.insert(bytes.end(), buffer, buffer + file.gcount());
        if (bytes.size() > limit)
            throw HostError("the file is too large for an image within the pixel limit");
    }
    if (file.bad()) throw HostError("cannot read the file");
    return decode_image(std::move(bytes), options);
}

}  // namespace smartCrop::host
