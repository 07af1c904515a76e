// The EXIF orientation of a photograph, and turning decoded pixels upright.
#ifndef SMARTCROP_HOST_EXIF_ORIENTATION_H
#define SMARTCROP_HOST_EXIF_ORIENTATION_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/decoded_image.h"

namespace smartCrop::host {

// 1 to 8 from the orientation tag of a TIFF structure (a TIFF file, an EXIF
// block), a JPEG's EXIF segment or a WebP's EXIF chunk; 1 when there is
// none or it is damaged.
int tiff_orientation(const uint8_t* data, size_t size);
int jpeg_orientation(const std::vector<uint8_t>& bytes);
int webp_orientation(const std::vector<uint8_t>& bytes);

// Rotates or mirrors the pixels so that the image stands as the orientation
// says; 5 to 8 swap width and height (and the full size with them).
void apply_orientation(DecodedImage& image, int orientation);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_EXIF_ORIENTATION_H
