// An OpenCV matrix over a map's floats, for the OpenCV calls of the analysis.
#ifndef SMARTCROP_ANALYSIS_MAP_VIEW_H
#define SMARTCROP_ANALYSIS_MAP_VIEW_H

#include <opencv2/core.hpp>

#include "analysis/map_containers.h"

namespace smartCrop {

inline cv::Mat map_view(const FloatMap& map) {
    return cv::Mat(map.rows, map.cols, CV_32F, const_cast<float*>(map.data.data()));
}

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_MAP_VIEW_H
