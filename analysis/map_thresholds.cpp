#include "analysis/map_thresholds.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "analysis/map_view.h"
#include "analysis/vector_math.h"

namespace smartCrop {

void threshold_relative(FloatMap& map, float fraction) {
    if (map.empty()) return;
    const float t =
        fraction * magnitude_extremes(map.data.data(), static_cast<int>(map.size())).largest;
    cv::Mat m = map_view(map);
    cv::threshold(m, m, t, 0.0, cv::THRESH_TOZERO);
}

void weight_centre_bands(FloatMap& map, int bands) {
    const float half = static_cast<float>(bands - 1) * 0.5f;
    const float base = powf(0.2f, 1.0f / half);
    cv::Mat weights(map.rows, map.cols, CV_32F);
    const float c = static_cast<float>(map.cols);
    const float n = static_cast<float>(bands);
    for (int i = 0; i < bands; ++i) {
        const float weight = powf(base, std::fabs(half - static_cast<float>(i)));
        const int start = static_cast<int>(static_cast<float>(i) * c / n);
        const int end = static_cast<int>(static_cast<float>(i + 1) * c / n - 1.0f) + 1;
        if (end > start) weights.colRange(start, end).setTo(weight);
    }
    cv::Mat m = map_view(map);
    const cv::Mat product = weights.mul(m, 1.0);
    product.copyTo(m);
}

}  // namespace smartCrop
