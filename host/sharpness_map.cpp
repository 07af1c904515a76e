#include "host/sharpness_map.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>

#include "kernels/area_resize.h"

namespace smartCrop::host {

namespace {

// OpenCV's default border for filters: the edge pixel is not repeated.
int reflect_101(int i, int n) {
    if (n == 1) return 0;
    while (i < 0 || i >= n) i = i < 0 ? -i : 2 * n - 2 - i;
    return i;
}

// The k-th smallest (from 0) of non-negative floats, whose bit patterns sort
// as the values do: two counting passes over 16-bit halves. The same value
// std::nth_element finds, without copying or reordering.
float kth_smallest(const std::vector<float>& values, size_t k) {
    const auto bits = [](float v) {
        uint32_t b;
        std::memcpy(&b, &v, sizeof b);
        return b;
    };
    std::vector<uint32_t> counts(1 << 16);
    for (float v : values) ++counts[bits(v) >> 16];
    uint32_t high = 0;
    while (k >= counts[high]) k -= counts[high++];
    std::fill(counts.begin(), counts.end(), 0u);
    for (float v : values)
        if ((bits(v) >> 16) == high) ++counts[bits(v) & 0xffffu];
    uint32_t low = 0;
    while (k >= counts[low]) k -= counts[low++];
    const uint32_t found = (high << 16) | low;
    float v;
    std::memcpy(&v, &found, sizeof v);
    return v;
}

}  // namespace

SharpnessMap::SharpnessMap(const uint8_t* pixels, uint32_t width, uint32_t height, size_t stride) {
    const double shrink = std::min(1.0, 512.0 / std::max(width, height));
    // The size OpenCV's resize gives for the factor (rounded to nearest).
    const int W = std::max(1, static_cast<int>(std::lrint(width * shrink)));
    const int H = std::max(1, static_cast<int>(std::lrint(height * shrink)));
    cols = W;
    rows = H;
    const size_t n = static_cast<size_t>(W) * H;

    // Grey as OpenCV's per-channel scaling and sums give it: each product
    // rounded to float, then (red + green) + blue.
    std::array<std::array<float, 256>, 3> weighted;
    const float weights[3] = {static_cast<float>(0.299), static_cast<float>(0.587),
                              static_cast<float>(0.114)};
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v) weighted[c][v] = static_cast<float>(v) * weights[c];
    std::vector<float> grey(n);
    const auto grey_row = [&](int y, const uint8_t* rgb, int step) {
        float* g = grey.data() + static_cast<size_t>(y) * W;
        for (int x = 0; x < W; ++x, rgb += step)
            g[x] = (weighted[0][rgb[0]] + weighted[1][rgb[1]]) + weighted[2][rgb[2]];
    };
    // A whole-number factor takes OpenCV's separate averaging path, and a
    // factor of 1 no resize at all: both through OpenCV itself.
    const double scale = 1.0 / shrink;
    if (shrink >= 1.0 || std::abs(scale - std::lrint(scale)) < 2.220446049250313e-16) {
        const cv::Mat xrgb(static_cast<int>(height), static_cast<int>(width), CV_8UC4,
                           const_cast<uint8_t*>(pixels), stride);
        cv::Mat small;
        cv::resize(xrgb, small, cv::Size(), shrink, shrink, cv::INTER_AREA);
        for (int y = 0; y < H; ++y) grey_row(y, small.ptr<uint8_t>(y) + 1, 4);
    } else {
        kernels::area_resize_rows(
            static_cast<int>(width), static_cast<int>(height), W, H, scale, 4,
            [&](int y) { return pixels + static_cast<size_t>(y) * stride; },
            [&](int y, const uint8_t* xrgb) { grey_row(y, xrgb + 1, 4); });
    }

    // |Laplacian| with OpenCV's 3 x 3 aperture: the four diagonal neighbours
    // twice, the centre eight times negative, summed in the kernel's order
    // (top left, top right, centre, bottom left, bottom right).
    std::vector<float> detail(n);
    for (int y = 0; y < H; ++y) {
        const float* up = grey.data() + static_cast<size_t>(reflect_101(y - 1, H)) * W;
        const float* mid = grey.data() + static_cast<size_t>(y) * W;
        const float* down = grey.data() + static_cast<size_t>(reflect_101(y + 1, H)) * W;
        float* out = detail.data() + static_cast<size_t>(y) * W;
        for (int x = 0; x < W; ++x) {
            const int l = x > 0 && x < W - 1 ? x - 1 : reflect_101(x - 1, W);
            const int r = x > 0 && x < W - 1 ? x + 1 : reflect_101(x + 1, W);
            float s = 2.0f * up[l];
            s += 2.0f * up[r];
            s += -8.0f * mid[x];
            s += 2.0f * down[l];
            s += 2.0f * down[r];
            out[x] = std::fabs(s);
        }
    }

    // Detail above the picture's typical level: noise and grain spread over
    // everything and say nothing about where the subject is.
    const float floor = n == 0 ? 0.0f : kth_smallest(detail, n / 2);
    for (float& d : detail) d = std::max(0.0f, d - floor);
    table.assign(static_cast<size_t>(rows + 1) * (cols + 1), 0.0);
    // Two rows at a time: each row's running sum waits on its previous
    // element, so two of them side by side halve the wait; the lower row
    // reads the upper one's element just made, as it would a pass later.
    const size_t C = static_cast<size_t>(cols) + 1;
    int y = 0;
    for (; y + 2 <= H; y += 2) {
        const float* d0 = detail.data() + static_cast<size_t>(y) * W;
        const float* d1 = d0 + W;
        const double* above = table.data() + y * C + 1;
        double* t0 = table.data() + (y + 1) * C + 1;
        double* t1 = t0 + C;
        double run0 = 0, run1 = 0;
        for (int x = 0; x < W; ++x) {
            run0 += d0[x];
            t0[x] = above[x] + run0;
            run1 += d1[x];
            t1[x] = t0[x] + run1;
        }
    }
    for (; y < H; ++y) {
        const float* d = detail.data() + static_cast<size_t>(y) * W;
        double run = 0;
        for (int x = 0; x < W; ++x) {
            run += d[x];
            table[(y + 1) * C + x + 1] = table[y * C + x + 1] + run;
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
