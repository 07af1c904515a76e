// Decoding an image file for the library, and mapping crops found on a
// reduced decode back to the full-resolution frame.
#ifndef SMARTCROP_TOOLS_SMARTCROP_PHOTO_H
#define SMARTCROP_TOOLS_SMARTCROP_PHOTO_H

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "SmartCrop.h"

namespace cli {

struct Photo {
    int fullWidth = 0, fullHeight = 0;  // the image as the file describes it, orientation applied
    cv::Mat bgr;                        // what was decoded: full size, or reduced by 2, 4 or 8
    bool reduced() const { return bgr.cols != fullWidth || bgr.rows != fullHeight; }
};

// Throws std::runtime_error naming what is wrong with the file. Large JPEGs
// are decoded at a reduced scale that keeps the long side at 1024 or more
// when `allowReduced`.
Photo decode(const std::string& path, bool allowReduced);

// Pixels as the library reads them: one ignored byte, then red, green, blue.
std::vector<uint8_t> library_pixels(const cv::Mat& bgr);

// A crop of the decoded image in full-resolution pixels, inside the image,
// with `ratio` (rounded by one side) or, when exactWidth > 0, exactly that size.
smartCrop::CropRect to_full(const Photo& photo, const smartCrop::CropRect& crop, double ratio,
                            int exactWidth, int exactHeight);

}  // namespace cli

#endif  // SMARTCROP_TOOLS_SMARTCROP_PHOTO_H
