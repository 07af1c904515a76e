// Decoding image files for the library: the size is read from the header and
// checked against a pixel limit before any pixel is decoded, damaged data is
// an error unless the caller is lenient, and the pixels come out in the
// layout the library reads (four bytes a pixel: ignored, red, green, blue),
// with the EXIF orientation applied.
#ifndef SMARTCROP_HOST_IMAGE_DECODING_H
#define SMARTCROP_HOST_IMAGE_DECODING_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace smartCrop::host {

// What a file or an answer cannot be used for, in the user's terms.
struct HostError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class ImageFormat { Jpeg, Png, Webp, Tiff, Bmp, Pnm, Gif, Unknown };

// A photo service's bound: 100 million pixels covers the largest camera
// sensors, and keeps one image's decode under 1 GiB whatever the format.
constexpr uint64_t kDefaultMaxPixels = 100'000'000;

struct DecodeOptions {
    uint64_t maxPixels = kDefaultMaxPixels;  // of the image as its file describes it
    bool lenient = false;                    // keep what damaged data still gives
    // A JPEG is decoded at 1/2, 1/4 or 1/8 while its long side stays at
    // least this; 0 decodes every format at full size.
    uint32_t reducedLongSide = 0;
};

struct DecodedImage {
    ImageFormat format = ImageFormat::Unknown;
    uint32_t width = 0, height = 0;          // as decoded, orientation applied
    uint32_t fullWidth = 0, fullHeight = 0;  // as the file describes it, orientation applied
    std::vector<uint8_t> pixels;             // width * height * 4, rows packed
    bool reduced() const { return width != fullWidth || height != fullHeight; }
};

// The format by the file's first bytes.
ImageFormat sniff_format(const uint8_t* data, size_t size);
const char* format_name(ImageFormat format);

// Throw HostError naming what is wrong.
DecodedImage decode_image(std::vector<uint8_t> bytes, const DecodeOptions& options);
DecodedImage decode_file(const std::string& path, const DecodeOptions& options);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_IMAGE_DECODING_H
