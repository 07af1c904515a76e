// Resizing images of four bytes a pixel.
#ifndef SMARTCROP_ANALYSIS_PIXEL_RESIZE_H
#define SMARTCROP_ANALYSIS_PIXEL_RESIZE_H

#include <cstdint>

namespace smartCrop {

// Bilinear resize between two four-byte-a-pixel buffers.
void resize_pixels(const uint8_t* source, int sourceWidth, int sourceHeight, uint8_t* target,
                   int targetWidth, int targetHeight);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_PIXEL_RESIZE_H
