#include "host/image_decoding.h"

#include <sys/stat.h>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>

#include "host/codecs.h"
#include "host/exif_orientation.h"
#include "host/host_error.h"

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
            if (bytes.size() >= 4 && (std::memcmp(bytes.data(), "II+\0", 4) == 0 ||
                                      std::memcmp(bytes.data(), "MM\0+", 4) == 0))
                throw HostError(
                    "BigTIFF images are not supported (TIFF, JPEG, PNG, WebP, BMP "
                    "and PNM are)");
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
