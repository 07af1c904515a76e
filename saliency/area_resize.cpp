#include "saliency/area_resize.h"

#include <cfloat>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "kernels/area_resize.h"

namespace smartCrop {

void resize_area(const cv::Mat& source, double factor, cv::Mat& target) {
    CV_Assert(source.type() == CV_8UC3);
    const int W = cv::saturate_cast<int>(source.cols * factor);
    const int H = cv::saturate_cast<int>(source.rows * factor);
    const double scale = 1.0 / factor;
    const int whole = cv::saturate_cast<int>(scale);
    // Enlarging, a whole factor (OpenCV's block average) and the same size
    // are OpenCV's other paths; an empty result its error.
    if (W <= 0 || H <= 0 || scale < 1.0 || std::abs(scale - whole) < DBL_EPSILON ||
        (W == source.cols && H == source.rows)) {
        cv::resize(source, target, cv::Size(), factor, factor, cv::INTER_AREA);
        return;
    }
    cv::Mat out(H, W, CV_8UC3);
    // A source row with a byte to spare, so that its last pixel reads four.
    std::vector<uint8_t> padded(static_cast<size_t>(source.cols) * 3 + 1, 0);
    kernels::area_resize_rows(
        source.cols, source.rows, W, H, scale, 3,
        [&](int y) {
            std::memcpy(padded.data(), source.ptr<uint8_t>(y),
                        static_cast<size_t>(source.cols) * 3);
            return padded.data();
        },
        [&](int y, const uint8_t* xyzw) {
            uint8_t* row = out.ptr<uint8_t>(y);
            for (int x = 0; x < W; ++x) std::memcpy(row + x * 3, xyzw + x * 4, 3);
        });
    target = out;
}

}  // namespace smartCrop
