// OpenCV's area resize of three-byte pixels, the same bytes. Its generic
// path (a shrink by a factor that is not a whole number, as the saliency's
// 300-pixel copy takes) sums each channel in a loop of its own; here a
// pixel's channels are summed side by side.
#ifndef SMARTCROP_SALIENCY_AREA_RESIZE_H
#define SMARTCROP_SALIENCY_AREA_RESIZE_H

#include <opencv2/core.hpp>

namespace smartCrop {

// As cv::resize(source, target, cv::Size(), factor, factor, cv::INTER_AREA)
// on a CV_8UC3 image; the cases OpenCV takes another path for go to it.
void resize_area(const cv::Mat& source, double factor, cv::Mat& target);

}  // namespace smartCrop

#endif  // SMARTCROP_SALIENCY_AREA_RESIZE_H
