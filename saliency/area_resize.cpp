#include "saliency/area_resize.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace smartCrop {

namespace {

// A source pixel's weight in a target pixel, along one axis.
struct Share {
    int target, source;
    float alpha;
};

// OpenCV's weights: the source cells that a target cell `scale` source
// pixels wide covers, the partial ones at either end (unless under a
// thousandth of a pixel) by the part covered, in source order.
std::vector<Share> shares(int sourceSize, int targetSize, double scale) {
    std::vector<Share> out;
    for (int t = 0; t < targetSize; ++t) {
        const double from = t * scale, to = from + scale;
        const double cell = std::min(scale, sourceSize - from);
        int first = static_cast<int>(std::ceil(from));
        const int last = std::min(static_cast<int>(std::floor(to)), sourceSize - 1);
        first = std::min(first, last);
        if (first - from > 1e-3)
            out.push_back({t, first - 1, static_cast<float>((first - from) / cell)});
        for (int s = first; s < last; ++s) out.push_back({t, s, static_cast<float>(1.0 / cell)});
        if (to - last > 1e-3)
            out.push_back(
                {t, last, static_cast<float>(std::min(std::min(to - last, 1.0), cell) / cell)});
    }
    return out;
}

// A pixel's channels in the first three lanes, each lane rounded as
// OpenCV's scalar loop rounds its channel (products and sums, never fused).
typedef float Lanes __attribute__((vector_size(16)));

// Four bytes from `p` (the fourth is carried along, never written out).
inline Lanes to_lanes(const uint8_t* p) {
#if defined(__SSE2__)
    int32_t v;
    std::memcpy(&v, p, sizeof v);
    const __m128i zero = _mm_setzero_si128();
    const __m128i words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(v), zero);
    return reinterpret_cast<Lanes>(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero)));
#else
    return Lanes{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]),
                 static_cast<float>(p[3])};
#endif
}

// Rounded to the nearest integer, ties to even (cv::saturate_cast), and
// clamped to a byte; four bytes written.
inline void to_bytes(Lanes v, uint8_t* out) {
#if defined(__SSE2__)
    const __m128i words = _mm_cvtps_epi32(reinterpret_cast<__m128>(v));
    const __m128i shorts = _mm_packs_epi32(words, words);
    const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(shorts, shorts));
    std::memcpy(out, &bytes, sizeof bytes);
#else
    for (int c = 0; c < 4; ++c) out[c] = cv::saturate_cast<uint8_t>(v[c]);
#endif
}

}  // namespace

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
    const std::vector<Share> across = shares(source.cols, W, scale);
    const std::vector<Share> down = shares(source.rows, H, scale);
    // Where each target pixel's shares end (they come in target order).
    std::vector<size_t> ends(static_cast<size_t>(W), 0);
    for (size_t k = 0; k < across.size(); ++k) ends[across[k].target] = k + 1;
    for (size_t t = 1; t < ends.size(); ++t) ends[t] = std::max(ends[t], ends[t - 1]);

    cv::Mat out(H, W, CV_8UC3);
    // A source row with a byte to spare, so that its last pixel reads four.
    std::vector<uint8_t> padded(static_cast<size_t>(source.cols) * 3 + 1, 0);
    std::vector<uint8_t> bytes(static_cast<size_t>(W) * 3 + 1);
    std::vector<Lanes> row(static_cast<size_t>(W)), sum(row.size(), Lanes{});
    const auto emit = [&](int y) {
        for (int x = 0; x < W; ++x) to_bytes(sum[x], &bytes[static_cast<size_t>(x) * 3]);
        std::memcpy(out.ptr<uint8_t>(y), bytes.data(), static_cast<size_t>(W) * 3);
    };
    int current = down.front().target, lastSource = -1;
    for (const Share& d : down) {
        // A source row's sums depend on it alone: a row shared by two target
        // rows is summed once.
        if (d.source != lastSource) {
            std::memcpy(padded.data(), source.ptr<uint8_t>(d.source),
                        static_cast<size_t>(source.cols) * 3);
            const Share* share = across.data();
            for (int t = 0; t < W; ++t) {
                Lanes acc = {0.0f, 0.0f, 0.0f, 0.0f};
                for (const Share* end = across.data() + ends[t]; share != end; ++share)
                    acc = acc +
                          to_lanes(&padded[static_cast<size_t>(share->source) * 3]) * share->alpha;
                row[t] = acc;
            }
            lastSource = d.source;
        }
        if (d.target != current) {
            emit(current);
            for (size_t i = 0; i < sum.size(); ++i) sum[i] = d.alpha * row[i];
            current = d.target;
        } else {
            for (size_t i = 0; i < sum.size(); ++i) sum[i] += d.alpha * row[i];
        }
    }
    emit(current);
    target = out;
}

}  // namespace smartCrop
