#include "host/sharpness_map.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace smartCrop::host {

SharpnessMap::SharpnessMap(const uint8_t* pixels, uint32_t width, uint32_t height, size_t stride) {
    const cv::Mat xrgb(static_cast<int>(height), static_cast<int>(width), CV_8UC4,
                       const_cast<uint8_t*>(pixels), stride);
    const double shrink = std::min(1.0, 512.0 / std::max(width, height));
    cv::Mat small, grey, laplacian;
    cv::resize(xrgb, small, cv::Size(), shrink, shrink, cv::INTER_AREA);
    cols = std::max(small.cols, 1);
    rows = std::max(small.rows, 1);
    // Channels 1 to 3 are red, green and blue.
    std::vector<cv::Mat> planes;
    cv::split(small, planes);
    cv::Mat red, green, blue;
    planes[1].convertTo(red, CV_32F, 0.299);
    planes[2].convertTo(green, CV_32F, 0.587);
    planes[3].convertTo(blue, CV_32F, 0.114);
    grey = red + green + blue;
    cv::Laplacian(grey, laplacian, CV_32F, 3);
    laplacian = cv::abs(laplacian);
    // Detail above the picture's typical level: noise and grain spread over
    // everything and say nothing about where the subject is.
    std::vector<float> values(laplacian.begin<float>(), laplacian.end<float>());
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    const float floor = values.empty() ? 0.0f : values[values.size() / 2];
    table.assign(static_cast<size_t>(rows + 1) * (cols + 1), 0.0);
    for (int y = 0; y < rows; ++y) {
        double run = 0;
        for (int x = 0; x < cols; ++x) {
            run += std::max(0.0f, laplacian.at<float>(y, x) - floor);
            table[(y + 1) * static_cast<size_t>(cols + 1) + x + 1] =
                table[y * static_cast<size_t>(cols + 1) + x + 1] + run;
        }
    }
}

double SharpnessMap::share(int left, int top, int right, int bottom, uint32_t fullWidth,
                           uint32_t fullHeight) const {
    const double total = table.back();
    if (!(total > 0)) return 0.0;
    // The map's cells whose centres lie inside the rectangle.
    auto col = [&](double x) {
        return std::clamp(static_cast<int>(std::lround(x * cols / fullWidth)), 0, cols);
    };
    auto row = [&](double y) {
        return std::clamp(static_cast<int>(std::lround(y * rows / fullHeight)), 0, rows);
    };
    const int x0 = col(left), x1 = col(right + 1.0), y0 = row(top), y1 = row(bottom + 1.0);
    const size_t w = static_cast<size_t>(cols + 1);
    const double sum =
        table[y1 * w + x1] - table[y0 * w + x1] - table[y1 * w + x0] + table[y0 * w + x0];
    return sum / total;
}

}  // namespace smartCrop::host
