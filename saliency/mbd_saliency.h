// Minimum-barrier saliency: the barrier distance of every pixel from the
// image frame plus its colour contrast against the border strips, measured at
// 300 pixels on the long side, smoothed by morphological reconstruction.
#ifndef SMARTCROP_SALIENCY_MBD_SALIENCY_H
#define SMARTCROP_SALIENCY_MBD_SALIENCY_H

#include <opencv2/core.hpp>

namespace smartCrop {

// 8-bit three-channel in, CV_32F map of the same size in 0..1 out. The input
// is taken as red-green-blue whatever its order: the map is defined that way.
cv::Mat compute_mbd_saliency(const cv::Mat& source, bool centre_bias);
// Per-channel barrier distances from the frame, averaged, scaled to 0..1.
cv::Mat mbd_raster_scan(const cv::Mat& image);
// Mahalanobis distance to each border strip, the largest of the four dropped.
cv::Mat border_contrast_map(const cv::Mat& lab, float border_fraction);
// The four strips (top, left, right, bottom) that border_contrast_map models.
void border_strips(int width, int height, float border_fraction, cv::Rect strips[4]);
cv::Mat apply_centre_bias(const cv::Mat& sum);
cv::Mat reconstruct_by_dilation(const cv::Mat& image, const cv::Mat& element, int size);
cv::Mat reconstruct_by_erosion(const cv::Mat& image, const cv::Mat& element, int size);

}  // namespace smartCrop

#endif  // SMARTCROP_SALIENCY_MBD_SALIENCY_H
