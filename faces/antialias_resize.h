// The resize of the face cascade: bilinear, or a separable three-lobe
// Lanczos filter that widens its kernel when shrinking.
#ifndef SMARTCROP_FACES_ANTIALIAS_RESIZE_H
#define SMARTCROP_FACES_ANTIALIAS_RESIZE_H

#include <opencv2/core.hpp>

namespace smartCrop {

// Mode 0: cv::resize, bilinear. Any other mode: resize_antialias.
cv::Mat resize_image(const cv::Mat& source, cv::Size target, int mode);
// 8-bit three-channel only; other types are returned as they are, with a message.
cv::Mat resize_antialias(const cv::Mat& source, cv::Size target);
// One axis: at least one of the target's sides must equal the source's.
cv::Mat resize_antialias_oracle(const cv::Mat& source, int width, int height);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_ANTIALIAS_RESIZE_H
