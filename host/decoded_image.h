// Pixels in the layout the library reads (four bytes a pixel: ignored, red,
// green, blue), held in the library's own image object, with the size the
// file describes and its format.
#ifndef SMARTCROP_HOST_DECODED_IMAGE_H
#define SMARTCROP_HOST_DECODED_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "SmartCrop.h"

namespace smartCrop::host {

enum class ImageFormat { Jpeg, Png, Webp, Tiff, Bmp, Pnm, Gif, Unknown };
const char* format_name(ImageFormat format);

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

// Pixels the caller already holds (an array from Python, a frame from OpenCV),
// copied into the layout above; `rowStride` in bytes. Alpha is ignored.
// OpenCV's frames are blue, green, red (and alpha).
enum class ChannelOrder { Rgb, Rgba, Bgr, Bgra, Grey };
DecodedImage pixels_image(const uint8_t* data, uint32_t width, uint32_t height, size_t rowStride,
                          ChannelOrder order);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_DECODED_IMAGE_H
