// The EXIF orientation of a photograph, and turning decoded pixels upright.
#ifndef SMARTCROP_HOST_EXIF_ORIENTATION_H
#define SMARTCROP_HOST_EXIF_ORIENTATION_H

#include <cstdint>
#include <vector>

#include "host/decoded_image.h"

namespace smartCrop::host {

// 1 to 8 from the JPEG's EXIF block; 1 when there is none or it is damaged.
int jpeg_orientation(const std::vector<uint8_t>& bytes);

// Rotates or mirrors the pixels so that the image stands as the orientation
// says; 5 to 8 swap width and height (and the full size with them).
void apply_orientation(DecodedImage& image, int orientation);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_EXIF_ORIENTATION_H
