#include "host/image_encoding.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "host/codecs.h"

namespace smartCrop::host {

namespace {
// Crops and previews are looked at, not archived: high but lossy quality.
constexpr int kQuality = 95;
}  // namespace

ImageFormat format_for_name(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext == ".jpg" || ext == ".jpeg") return ImageFormat::Jpeg;
    if (ext == ".png") return ImageFormat::Png;
    if (ext == ".webp") return ImageFormat::Webp;
    return ImageFormat::Unknown;
}

ImageFormat crop_format(ImageFormat source) {
    return source == ImageFormat::Jpeg || source == ImageFormat::Webp ? source : ImageFormat::Png;
}

const char* extension_of(ImageFormat format) {
    return format == ImageFormat::Jpeg ? ".jpg" : format == ImageFormat::Webp ? ".webp" : ".png";
}

std::vector<uint8_t> encode_image(ImageFormat format, const uint8_t* xrgb, uint32_t width,
                                  uint32_t height, size_t stride) {
    switch (format) {
        case ImageFormat::Jpeg:
            return encode_jpeg(xrgb, width, height, stride, kQuality);
        case ImageFormat::Png:
            return encode_png(xrgb, width, height, stride);
        case ImageFormat::Webp:
            return encode_webp(xrgb, width, height, stride, kQuality);
        default:
            break;
    }
    throw HostError(std::string("cannot write ") + format_name(format) + " images");
}

}  // namespace smartCrop::host
