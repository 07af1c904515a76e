// The 8-bit CIE Lab conversion, byte for byte as OpenCV's cvtColor gives it
// (sRGB, D65), without OpenCV's tables: it builds them at first use in
// emulated floating point, which costs more than a whole small analysis.
#ifndef SMARTCROP_SALIENCY_LAB_CONVERSION_H
#define SMARTCROP_SALIENCY_LAB_CONVERSION_H

#include <cstddef>
#include <cstdint>

namespace smartCrop {

// `pixels`: `count` pixels of three bytes, converted in place. The first
// byte is taken as red, the third as blue (as cv::COLOR_RGB2Lab does).
void rgb_to_lab(uint8_t* pixels, size_t count);

}  // namespace smartCrop

#endif  // SMARTCROP_SALIENCY_LAB_CONVERSION_H
