#include "host/sharpness_map.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Four floats, one per byte of a pixel: the three colours summed side by
// side (and the ignored byte with them), each lane with the scalar roundings.
typedef float Pixel4 __attribute__((vector_size(16)));

inline Pixel4 pixel_floats(const uint8_t* p) {
#if defined(__SSE2__)
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    const __m128i zero = _mm_setzero_si128();
    const __m128i words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(v), zero);
    return reinterpret_cast<Pixel4>(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero)));
#else
    return Pixel4{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]),
                  static_cast<float>(p[3])};
#endif
}

// Each lane rounded to the nearest integer (ties to even, as lrint) and
// clamped to a byte.
inline void pixel_bytes(Pixel4 v, uint8_t* out) {
#if defined(__SSE2__)
    const __m128i words = _mm_cvtps_epi32(reinterpret_cast<__m128>(v));
    const __m128i shorts = _mm_packs_epi32(words, words);
    const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(shorts, shorts));
    std::memcpy(out, &bytes, sizeof bytes);
#else
    for (int c = 0; c < 4; ++c)
        out[c] = static_cast<uint8_t>(std::clamp<long>(std::lrint(v[c]), 0, 255));
#endif
}

// The grey of each target pixel from the area-resized red, green and blue
// (channels 1 to 3; the first is never read), as OpenCV's resize gives them:
// per source row the taps across in order into a row of sums, the rows down
// weighted into the target row, each rounded to a byte at the end. `grey`
// is called with a target row's index and its pixels, four bytes each as
// they came in.
template <class Grey>
void area_resize_rgb(const uint8_t* pixels, int width, int height, size_t stride, int cols,
                     int rows, double scale, Grey grey) {
    const std::vector<AreaTap> across = area_taps(width, cols, scale);
    const std::vector<AreaTap> down = area_taps(height, rows, scale);
    // Where each target pixel's taps end (they come in target order).
    std::vector<size_t> acrossEnds(static_cast<size_t>(cols), 0);
    for (size_t k = 0; k < across.size(); ++k) acrossEnds[across[k].target] = k + 1;
    for (size_t t = 1; t < acrossEnds.size(); ++t)
        acrossEnds[t] = std::max(acrossEnds[t], acrossEnds[t - 1]);
    std::vector<Pixel4> row(static_cast<size_t>(cols)), sum(row.size());
    std::vector<uint8_t> bytes(row.size() * 4);
    const auto emit = [&](int target) {
        for (size_t i = 0; i < sum.size(); ++i) pixel_bytes(sum[i], &bytes[i * 4]);
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
            const AreaTap* tap = across.data();
            for (int t = 0; t < cols; ++t) {
                Pixel4 acc = {0.0f, 0.0f, 0.0f, 0.0f};
                for (const AreaTap* end = across.data() + acrossEnds[t]; tap != end; ++tap)
                    acc =
                        acc + pixel_floats(S + static_cast<size_t>(tap->source) * 4) * tap->weight;
                row[t] = acc;
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
                        scale, [&](int y, const uint8_t* xrgb) { grey_row(y, xrgb + 1, 4); });
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
