#include "analysis/pixel_resize.h"

#include <opencv2/imgproc.hpp>

namespace smartCrop {

void resize_pixels(const uint8_t* source, int sourceWidth, int sourceHeight, uint8_t* target,
                   int targetWidth, int targetHeight) {
    const cv::Mat in(sourceHeight, sourceWidth, CV_8UC4, const_cast<uint8_t*>(source));
    cv::Mat out(targetHeight, targetWidth, CV_8UC4, target);
    cv::resize(in, out, cv::Size(targetWidth, targetHeight), 0, 0, cv::INTER_LINEAR);
}

}  // namespace smartCrop
