// Decoding image files for the library: the size is read from the header and
// checked against a pixel limit before any pixel is decoded, damaged data is
// an error unless the caller is lenient, and the pixels come out in the
// library's layout with the EXIF orientation applied.
#ifndef SMARTCROP_HOST_IMAGE_DECODING_H
#define SMARTCROP_HOST_IMAGE_DECODING_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/decode_options.h"
#include "host/decoded_image.h"

namespace smartCrop::host {

// The format by the file's first bytes.
ImageFormat sniff_format(const uint8_t* data, size_t size);

// Throw HostError naming what is wrong.
DecodedImage decode_image(std::vector<uint8_t> bytes, const DecodeOptions& options);
DecodedImage decode_file(const std::string& path, const DecodeOptions& options);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_IMAGE_DECODING_H
