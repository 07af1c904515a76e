// What a host asks of one image, in the image's full-resolution pixels, and
// the check that keeps requests the library would misread from reaching it.
#ifndef SMARTCROP_HOST_CROP_REQUEST_H
#define SMARTCROP_HOST_CROP_REQUEST_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "SmartCrop.h"
#include "host/host_error.h"

namespace smartCrop::host {

// The most aspect ratios, and the most scales, one request may list.
constexpr size_t kMaxRatios = 64;

struct CropRequest {
    std::vector<double> aspects = {1.0, 4.0 / 3, 3.0 / 4, 3.0 / 2, 2.0 / 3, 16.0 / 9, 9.0 / 16};
    std::vector<double> scales = {1.0, 0.9, 0.8, 0.7, 0.6, 0.5};
    uint32_t width = 0, height = 0;  // one exact crop size instead of the ratios
    uint32_t count = 5;              // per aspect ratio with perAspect
    bool perAspect = false;
    uint32_t mode = 0;  // 0 blend; 1 aesthetic, 2 coverage, 3 border only
    std::array<double, 6> weights = {1, 1, 1, 0, 0, 1};
    std::vector<RectOfInterest> rects;
    bool faces = false;
    // The library's own ranking as designed, instead of the host layer's.
    // A mode or weights other than the defaults are that ranking's, and
    // are refused without it rather than switching to it unasked.
    bool designDefaults = false;
};

// The long side a JPEG may be reduced to while decoding (see DecodeOptions)
// without changing what the request needs: the analysis reads 640 pixels,
// face detection 1024, and rectangles of interest must hold to the pixel
// (0: full size). Reduced by the decoder's DCT scaling, the 640-pixel image
// the analysis reads is also closer to the full image's area average than
// one sampled down from twice the size.
uint32_t reduced_long_side(const CropRequest& request);

// Throws RequestError for what no query could answer sensibly: no ratio or
// scale, more than kMaxRatios of either, a ratio that is not a positive number, a scale outside (0,
// 1], a count of 0, a mode above 3, a weight that is not finite, a mode or weights without the
// library's ranking, an empty or inverted rectangle.
void check_request(const CropRequest& request);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_CROP_REQUEST_H
