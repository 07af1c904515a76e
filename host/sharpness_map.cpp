#include "host/sharpness_map.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>

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

// One source pixel's share of one target pixel, along one axis.
struct AreaTap {
    int target, source;
    float weight;
};

// The taps of OpenCV's area resize along an axis: the source cells that a
// target cell of `scale` source pixels covers, each weighted by the part
// covered (ends under a thousandth of a pixel dropped), in source order.
std::vector<AreaTap> area_taps(int sourceSize, int targetSize, double scale) {
    std::vector<AreaTap> taps;
    for (int t = 0; t < targetSize; ++t) {
        const double from = t * scale, to = from + scale;
        const double cell = std::min(scale, sourceSize - from);
        int first = static_cast<int>(std::ceil(from)), last = static_cast<int>(std::floor(to));
        last = std::min(last, sourceSize - 1);
        first = std::min(first, last);
        if (first - from > 1e-3)
            taps.push_back({t, first - 1, static_cast<float>((first - from) / cell)});
        for (int s = first; s < last; ++s) taps.push_back({t, s, static_cast<float>(1.0 / cell)});
        if (to - last > 1e-3)
            taps.push_back(
                {t, last, static_cast<float>(std::min(std::min(to - last, 1.0), cell) / cell)});
    }
    return taps;
}

// The grey of each target pixel from the area-resized red, green and blue
// (channels 1 to 3; the first is never read), as OpenCV's resize gives them:
// per source row the taps across in order into a row of sums, the rows down
// weighted into the target row, each rounded to a byte at the end. `grey`
// is called with a target row's index and its bytes, three a pixel.
template <class Grey>
void area_resize_rgb(const uint8_t* pixels, int width, int height, size_t stride, int cols,
                     int rows, double scale, Grey grey) {
    const std::vector<AreaTap> across = area_taps(width, cols, scale);
    const std::vector<AreaTap> down = area_taps(height, rows, scale);
    std::vector<float> row(static_cast<size_t>(cols) * 3), sum(row.size(), 0.0f);
    std::vector<uint8_t> bytes(row.size());
    const auto emit = [&](int target) {
        for (size_t i = 0; i < sum.size(); ++i)
            bytes[i] = static_cast<uint8_t>(std::clamp<long>(std::lrint(sum[i]), 0, 255));
        grey(target, bytes.data());
    };
    int current = down.empty() ? 0 : down[0].target, lastSource = -1;
    for (const AreaTap& d : down) {
        const uint8_t* S = pixels + static_cast<size_t>(d.source) * stride;
        // Each target pixel's taps are consecutive: summed in registers, from
        // zero in tap order, as OpenCV sums them into its zeroed row. A
        // source row on a boundary between target rows gives the same sums
        // for both.
        if (d.source != lastSource) {
            for (size_t k = 0; k < across.size();) {
                const int t = across[k].target;
                float r = 0.0f, g = 0.0f, b = 0.0f;
                for (; k < across.size() && across[k].target == t; ++k) {
                    const uint8_t* p = S + static_cast<size_t>(across[k].source) * 4;
                    const float w = across[k].weight;
                    r = r + static_cast<float>(p[1]) * w;
                    g = g + static_cast<float>(p[2]) * w;
                    b = b + static_cast<float>(p[3]) * w;
                }
                float* out = row.data() + static_cast<size_t>(t) * 3;
                out[0] = r;
                out[1] = g;
                out[2] = b;
            }
        }
        lastSource = d.source;
        if (d.target != current) {
            emit(current);
            for (size_t i = 0; i < sum.size(); ++i) sum[i] = d.weight * row[i];
            current = d.target;
        } else {
            for (size_t i = 0; i < sum.size(); ++i) sum[i] += d.weight * row[i];
        }
    }
    emit(current);
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
        area_resize_rgb(pixels, static_cast<int>(width), static_cast<int>(height), stride, W, H,
                        scale, [&](int y, const uint8_t* rgb) { grey_row(y, rgb, 3); });
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
    table.assign(static_cast<size_t>(rows + 1) * (cols + 1), 0.0);
    for (int y = 0; y < H; ++y) {
        double run = 0;
        const float* d = detail.data() + static_cast<size_t>(y) * W;
        for (int x = 0; x < W; ++x) {
            run += std::max(0.0f, d[x] - floor);
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
