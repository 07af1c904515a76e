// Decoding image files for the library: the size is read from the header and
// checked against a pixel limit before any pixel is decoded, damaged data is
// an error unless the caller is lenient, and the pixels come out in the
// layout the library reads (four bytes a pixel: ignored, red, green, blue),
// with the EXIF orientation applied.
#ifndef SMARTCROP_HOST_IMAGE_DECODING_H
#define SMARTCROP_HOST_IMAGE_DECODING_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "SmartCrop.h"

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

template <class T>
struct Releaser {
    void operator()(T* p) const { p->Release(); }
};
template <class T>
using Counted = std::unique_ptr<T, Releaser<T>>;

// Decoded pixels, four bytes a pixel, held in the library's own image object:
// the analysis reads the bytes the decoder wrote, with no second copy (at
// 12 MP that copy was 12 MB of the process's peak and its page faults).
class PixelBuffer {
public:
    PixelBuffer() = default;
    // Zeroed; a HostError when the memory is not there.
    PixelBuffer(uint32_t width, uint32_t height);

    uint8_t* data() { return bytes; }
    const uint8_t* data() const { return bytes; }
    size_t size() const { return byteCount; }
    bool empty() const { return byteCount == 0; }
    uint8_t& operator[](size_t i) { return bytes[i]; }
    const uint8_t& operator[](size_t i) const { return bytes[i]; }
    // Hands the image object over; the buffer is empty afterwards.
    Counted<IImage> release();

private:
    Counted<IImage> image;
    uint8_t* bytes = nullptr;
    size_t byteCount = 0;
};

struct DecodedImage {
    ImageFormat format = ImageFormat::Unknown;
    uint32_t width = 0, height = 0;          // as decoded, orientation applied
    uint32_t fullWidth = 0, fullHeight = 0;  // as the file describes it, orientation applied
    PixelBuffer pixels;                      // width * height * 4, rows packed
    bool reduced() const { return width != fullWidth || height != fullHeight; }
};

// The format by the file's first bytes.
ImageFormat sniff_format(const uint8_t* data, size_t size);
const char* format_name(ImageFormat format);

// Pixels the caller already holds (an array from Python, a frame from OpenCV),
// copied into the layout above; `rowStride` in bytes. Alpha is ignored.
enum class ChannelOrder { Rgb, Rgba, Bgr, Grey };
DecodedImage pixels_image(const uint8_t* data, uint32_t width, uint32_t height, size_t rowStride,
                          ChannelOrder order);

// Throw HostError naming what is wrong.
DecodedImage decode_image(std::vector<uint8_t> bytes, const DecodeOptions& options);
DecodedImage decode_file(const std::string& path, const DecodeOptions& options);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_IMAGE_DECODING_H
