// The cascade's stages, each a function of the picture and one network:
// the pyramid and the first network's scan over it, then the later networks'
// rescoring and refinement of the boxes that survive.
#ifndef SMARTCROP_FACES_CASCADE_DETECTION_H
#define SMARTCROP_FACES_CASCADE_DETECTION_H

#include <opencv2/core.hpp>
#include <vector>

#include "deepnet/deepnet_model.h"
#include "faces/cascade_model.h"
#include "faces/detector_settings.h"
#include "faces/face_boxes.h"

namespace smartCrop {

void build_pyramid(const cv::Mat& image, const DetectionSettings& settings,
                   std::vector<cv::Mat>& levels, std::vector<float>& scales);
std::vector<FaceBox> scan_pyramid(const cv::Mat& image, const deepnet::DeepnetModel& model,
                                  const DetectionSettings& settings);
std::vector<FaceBox> rescore_boxes(const cv::Mat& image, const deepnet::DeepnetModel& model,
                                   int patch, const std::vector<FaceBox>& boxes);
void refine_boxes(const cv::Mat& image, const deepnet::DeepnetModel& model, int patch,
                  const std::vector<FaceBox>& boxes, DetectionResult& result);
void refine_landmarks(const cv::Mat& image, const deepnet::DeepnetModel& model, int patch,
                      DetectionResult& result);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_CASCADE_DETECTION_H
