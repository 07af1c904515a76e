#include "analysis/map_morphology.h"

#include <opencv2/imgproc.hpp>

#include "analysis/map_view.h"

namespace smartCrop {

namespace {

template <class Op>
void morphology(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight, Op op) {
    if (&out != &in) out.resize(in.rows, in.cols);
    const cv::Mat kernel = cv::Mat::ones(kernelHeight, kernelWidth, CV_32F);
    cv::Mat target = map_view(out);
    op(map_view(in), target, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
       cv::morphologyDefaultBorderValue());
}

}  // namespace

void erode_map(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight) {
    morphology(in, out, kernelWidth, kernelHeight, [](auto&&... args) { cv::erode(args...); });
}

void dilate_map(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight) {
    morphology(in, out, kernelWidth, kernelHeight, [](auto&&... args) { cv::dilate(args...); });
}

}  // namespace smartCrop
