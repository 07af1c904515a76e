#include "analysis_maps.h"

#include <cblas.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

namespace smartCrop {

namespace {

cv::Mat view(const FloatMap& map) {
    return cv::Mat(map.rows, map.cols, CV_32F, const_cast<float*>(map.data.data()));
}

}  // namespace

void threshold_relative(FloatMap& map, float fraction) {
    if (map.empty()) return;
    const size_t index = cblas_isamax(static_cast<int>(map.size()), map.data.data(), 1);
    const float t = fraction * map.data[index];
    cv::Mat m = view(map);
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
    cv::Mat m = view(map);
    const cv::Mat product = weights.mul(m, 1.0);
    product.copyTo(m);
}

namespace {

void table_first_row_and_column(const FloatMap& map, DoubleMap& table) {
    const int R = map.rows, C = map.cols;
    table.at(0, 0) = map.at(0, 0);
    for (int c = 1; c < C; ++c) table.at(0, c) = table.at(0, c - 1) + map.at(0, c);
    for (int r = 1; r < R; ++r) table.at(r, 0) = table.at(r - 1, 0) + map.at(r, 0);
}

}  // namespace

void integral_image(const FloatMap& map, DoubleMap& table) {
    const int R = map.rows, C = map.cols;
    if (R == 0 || C == 0) return;
    table_first_row_and_column(map, table);
    for (int r = 1; r < R; ++r) {
        const double* above = &table.at(r - 1, 0);
        double* row = &table.at(r, 0);
        const float* src = &map.at(r, 0);
        for (int c = 1; c < C; ++c) row[c] = above[c] + row[c - 1] - above[c - 1] + src[c];
    }
}

void integral_images(const FloatMap* const* maps, DoubleMap* const* tables, int count) {
    constexpr int kMaxMaps = 16;
    if (count <= 0) return;
    if (count > kMaxMaps) {
        integral_images(maps, tables, kMaxMaps);
        integral_images(maps + kMaxMaps, tables + kMaxMaps, count - kMaxMaps);
        return;
    }
    const int R = maps[0]->rows, C = maps[0]->cols;
    if (R == 0 || C == 0) return;
    for (int k = 0; k < count; ++k) {
        table_first_row_and_column(*maps[k], *tables[k]);
    }
    const float* src[kMaxMaps];
    double* row[kMaxMaps];
    const double* above[kMaxMaps];
    for (int r = 1; r < R; ++r) {
        for (int k = 0; k < count; ++k) {
            src[k] = &maps[k]->at(r, 0);
            row[k] = &tables[k]->at(r, 0);
            above[k] = &tables[k]->at(r - 1, 0);
        }
        for (int c = 1; c < C; ++c) {
            for (int k = 0; k < count; ++k) {
                row[k][c] = above[k][c] + row[k][c - 1] - above[k][c - 1] + src[k][c];
            }
        }
    }
}

void resize_pixels(const uint8_t* source, int sourceWidth, int sourceHeight, uint8_t* target,
                   int targetWidth, int targetHeight) {
    const cv::Mat in(sourceHeight, sourceWidth, CV_8UC4, const_cast<uint8_t*>(source));
    cv::Mat out(targetHeight, targetWidth, CV_8UC4, target);
    cv::resize(in, out, cv::Size(targetWidth, targetHeight), 0, 0, cv::INTER_LINEAR);
}

namespace {

template <class Op>
void morphology(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight, Op op) {
    if (&out != &in) out.resize(in.rows, in.cols);
    const cv::Mat kernel = cv::Mat::ones(kernelHeight, kernelWidth, CV_32F);
    cv::Mat target = view(out);
    op(view(in), target, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
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
