// The decoders and encoders behind decode_image and encode_image, one per
// format family. Internal to the host layer.
#ifndef SMARTCROP_HOST_CODECS_H
#define SMARTCROP_HOST_CODECS_H

#include <cstdint>
#include <vector>

#include "host/decode_options.h"
#include "host/decoded_image.h"
#include "host/host_error.h"

namespace smartCrop::host {

// Width and height from a header, before any pixel is decoded.
struct HeaderSize {
    uint64_t width = 0, height = 0;
};

// Each reads the header, calls `check` with the size, then decodes. The
// returned image has no orientation applied; `orientation` is the EXIF value
// (1 when there is none).
struct RawDecode {
    DecodedImage image;
    int orientation = 1;
};
using SizeCheck = void (*)(HeaderSize size, const DecodeOptions& options);

RawDecode decode_jpeg(const std::vector<uint8_t>& bytes, const DecodeOptions& options,
                      SizeCheck check);
RawDecode decode_png(const std::vector<uint8_t>& bytes, const DecodeOptions& options,
                     SizeCheck check);
RawDecode decode_webp(const std::vector<uint8_t>& bytes, const DecodeOptions& options,
                      SizeCheck check);
// TIFF, BMP and PNM through OpenCV's codecs; the size comes from our own
// reading of the header. Takes the bytes to release them before converting.
RawDecode decode_other(std::vector<uint8_t>& bytes, ImageFormat format,
                       const DecodeOptions& options, SizeCheck check);

// Encoders from the library's layout, rows `stride` bytes apart.
std::vector<uint8_t> encode_jpeg(const uint8_t* xrgb, uint32_t width, uint32_t height,
                                 size_t stride, int quality);
std::vector<uint8_t> encode_png(const uint8_t* xrgb, uint32_t width, uint32_t height,
                                size_t stride);
std::vector<uint8_t> encode_webp(const uint8_t* xrgb, uint32_t width, uint32_t height,
                                 size_t stride, int quality);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_CODECS_H
