// Encoding pixels in the library's layout as JPEG, PNG or WebP.
#ifndef SMARTCROP_HOST_IMAGE_ENCODING_H
#define SMARTCROP_HOST_IMAGE_ENCODING_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/decoded_image.h"

namespace smartCrop::host {

// Jpeg for ".jpg" and ".jpeg", Png for ".png", Webp for ".webp" (any case);
// Unknown otherwise.
ImageFormat format_for_name(const std::string& path);
// What crops of an image in `source` format are written as: JPEG and WebP
// keep their format, everything else becomes PNG.
ImageFormat crop_format(ImageFormat source);
const char* extension_of(ImageFormat format);  // ".jpg", ".png", ".webp"

// Rows `stride` bytes apart; throws HostError for a format it cannot write.
std::vector<uint8_t> encode_image(ImageFormat format, const uint8_t* xrgb, uint32_t width,
                                  uint32_t height, size_t stride);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_IMAGE_ENCODING_H
