// OpenCV's area resize for a shrink by a factor that is not a whole number,
// the same bytes, with a pixel's channels summed side by side in one vector
// instead of a loop per channel. The library's saliency copy and the host's
// sharpness map both shrink this way.
#ifndef SMARTCROP_KERNELS_AREA_RESIZE_H
#define SMARTCROP_KERNELS_AREA_RESIZE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "kernels/cpu_features.h"

namespace smartCrop::kernels {

// One source pixel's share of one target pixel, along one axis.
struct AreaTap {
    int target, source;
    float weight;
};

// OpenCV's taps along an axis: the source cells that a target cell `scale`
// source pixels wide covers, the partial ones at either end (unless under a
// thousandth of a pixel) by the part covered, in source order.
inline std::vector<AreaTap> area_taps(int sourceSize, int targetSize, double scale) {
    std::vector<AreaTap> taps;
    for (int t = 0; t < targetSize; ++t) {
        const double from = t * scale, to = from + scale;
        const double cell = std::min(scale, sourceSize - from);
        int first = static_cast<int>(std::ceil(from));
        const int last = std::min(static_cast<int>(std::floor(to)), sourceSize - 1);
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

// Four floats, one per byte of a pixel, each lane rounded as OpenCV's scalar
// loop rounds its channel (products and sums, never fused).
typedef float PixelLanes __attribute__((vector_size(16)));

template <bool Vector>
inline PixelLanes load_pixel(const uint8_t* p) {
#if defined(__SSE2__)
    if constexpr (Vector) {
        int32_t v;
        std::memcpy(&v, p, sizeof v);
        const __m128i zero = _mm_setzero_si128();
        const __m128i words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(v), zero);
        return reinterpret_cast<PixelLanes>(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero)));
    }
#endif
    return PixelLanes{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]),
                      static_cast<float>(p[3])};
}

// Each lane rounded to the nearest integer (ties to even, as OpenCV's
// saturate_cast) and clamped to a byte; four bytes written.
template <bool Vector>
inline void store_pixel(PixelLanes v, uint8_t* out) {
#if defined(__SSE2__)
    if constexpr (Vector) {
        const __m128i words = _mm_cvtps_epi32(reinterpret_cast<__m128>(v));
        const __m128i shorts = _mm_packs_epi32(words, words);
        const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(shorts, shorts));
        std::memcpy(out, &bytes, sizeof bytes);
        return;
    }
#endif
    for (int c = 0; c < 4; ++c)
        out[c] = static_cast<uint8_t>(std::clamp<long>(std::lrint(v[c]), 0, 255));
}

template <bool Vector, class SourceRow, class Emit>
void area_resize_lanes(int width, int height, int cols, int rows, double scale, int pixelBytes,
                       SourceRow source_row, Emit emit) {
    const std::vector<AreaTap> across = area_taps(width, cols, scale);
    const std::vector<AreaTap> down = area_taps(height, rows, scale);
    // Where each target pixel's taps end (they come in target order).
    std::vector<size_t> ends(static_cast<size_t>(cols), 0);
    for (size_t k = 0; k < across.size(); ++k) ends[across[k].target] = k + 1;
    for (size_t t = 1; t < ends.size(); ++t) ends[t] = std::max(ends[t], ends[t - 1]);
    std::vector<PixelLanes> row(static_cast<size_t>(cols)), sum(row.size(), PixelLanes{});
    std::vector<uint8_t> bytes(row.size() * 4);
    const auto flush = [&](int target) {
        for (size_t i = 0; i < sum.size(); ++i) store_pixel<Vector>(sum[i], &bytes[i * 4]);
        emit(target, bytes.data());
    };
    int current = down.empty() ? 0 : down[0].target, lastSource = -1;
    for (const AreaTap& d : down) {
        // A source row's sums depend on it alone: a row shared by two target
        // rows is summed once. Each target pixel's taps are consecutive,
        // summed in registers from zero in tap order, as OpenCV sums them
        // into its zeroed row.
        if (d.source != lastSource) {
            const uint8_t* S = source_row(d.source);
            const AreaTap* tap = across.data();
            for (int t = 0; t < cols; ++t) {
                PixelLanes acc = {0.0f, 0.0f, 0.0f, 0.0f};
                for (const AreaTap* end = across.data() + ends[t]; tap != end; ++tap)
                    acc = acc +
                          load_pixel<Vector>(S + static_cast<size_t>(tap->source) * pixelBytes) *
                              tap->weight;
                row[t] = acc;
            }
            lastSource = d.source;
        }
        if (d.target != current) {
            flush(current);
            for (size_t i = 0; i < sum.size(); ++i) sum[i] = d.weight * row[i];
            current = d.target;
        } else {
            for (size_t i = 0; i < sum.size(); ++i) sum[i] += d.weight * row[i];
        }
    }
    flush(current);
}

// A `width` x `height` picture shrunk to `cols` x `rows` by `scale` source
// pixels a target pixel (not a whole number, above 1). `source_row(y)`
// gives row y, pixels `pixelBytes` (3 or 4) apart with four bytes readable
// at each; `emit(y, bytes)` takes target row y, four bytes a pixel (the
// fourth lane carried along from the source's fourth byte).
template <class SourceRow, class Emit>
void area_resize_rows(int width, int height, int cols, int rows, double scale, int pixelBytes,
                      SourceRow source_row, Emit emit) {
    if (vector_level() == VectorLevel::Portable)
        area_resize_lanes<false>(width, height, cols, rows, scale, pixelBytes, source_row, emit);
    else
        area_resize_lanes<true>(width, height, cols, rows, scale, pixelBytes, source_row, emit);
}

}  // namespace smartCrop::kernels

#endif  // SMARTCROP_KERNELS_AREA_RESIZE_H
