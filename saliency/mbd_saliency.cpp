#include "saliency/mbd_saliency.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <opencv2/imgproc.hpp>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "kernels/cpu_features.h"
#include "saliency/area_resize.h"
#include "saliency/lab_conversion.h"

namespace smartCrop {

namespace {

#if defined(__SSE2__)
// Three bytes into the low lanes, the rest zero.
inline __m128i load3(const uint8_t* p) {
    int32_t v = 0;
    std::memcpy(&v, p, 3);
    return _mm_cvtsi32_si128(v);
}
// Four bytes, where the fourth is known to be readable.
inline __m128i load4(const uint8_t* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtsi32_si128(v);
}
inline void store3(uint8_t* p, __m128i v) {
    const int32_t bytes = _mm_cvtsi128_si32(v);
    std::memcpy(p, &bytes, 3);
}

// A pixel's three channels as lanes of one vector (the fourth lane is
// carried along and never stored): its value, barrier and bounds, updated
// from the neighbour along the row, then the one in the row passed.
struct PixelBounds {
    __m128i d, u, l;
    void update(__m128i v, __m128i neighbourU, __m128i neighbourL) {
        const __m128i upper = _mm_max_epu8(neighbourU, v);
        const __m128i lower = _mm_min_epu8(neighbourL, v);
        const __m128i barrier = _mm_sub_epi8(upper, lower);
        // Lanes where the barrier is not below the one held keep theirs.
        const __m128i keep = _mm_cmpeq_epi8(_mm_max_epu8(barrier, d), barrier);
        d = _mm_or_si128(_mm_and_si128(keep, d), _mm_andnot_si128(keep, barrier));
        u = _mm_or_si128(_mm_and_si128(keep, u), _mm_andnot_si128(keep, upper));
        l = _mm_or_si128(_mm_and_si128(keep, l), _mm_andnot_si128(keep, lower));
    }
};

// One raster pass over the interior, all three channels at once: each
// channel's updates read only its own bounds, so a pass over all three is
// three single-channel passes. Ties change nothing, and a neighbour's bounds
// are used whether or not it has been reached yet. Rows go in pairs, the
// second taking the first's new bounds straight from registers: each pixel
// waits on the one before it, so two rows side by side halve the wait.
void scan_pass_sse2(const cv::Mat& image, cv::Mat& D, cv::Mat& U, cv::Mat& L, bool reverse) {
    const int H = image.rows, W = image.cols;
    const int yStart = reverse ? H - 2 : 1, yEnd = reverse ? 0 : H - 1, step = reverse ? -1 : 1;
    const int xStart = reverse ? W - 2 : 1, xEnd = reverse ? 0 : W - 1;
    const int side = reverse ? 3 : -3;
    const int count = (yEnd - yStart) * step;
    for (int i = 0; i < count; i += 2) {
        const int y = yStart + i * step, rows = std::min(2, count - i);
        const uint8_t* in[2];
        uint8_t *d[2], *u[2], *l[2];
        __m128i sideU[2], sideL[2];
        for (int r = 0; r < rows; ++r) {
            in[r] = image.ptr<uint8_t>(y + r * step);
            d[r] = D.ptr<uint8_t>(y + r * step);
            u[r] = U.ptr<uint8_t>(y + r * step);
            l[r] = L.ptr<uint8_t>(y + r * step);
            sideU[r] = load3(u[r] + xStart * 3 + side);
            sideL[r] = load3(l[r] + xStart * 3 + side);
        }
        const uint8_t* uPassed = U.ptr<uint8_t>(y - step);
        const uint8_t* lPassed = L.ptr<uint8_t>(y - step);
        for (int x = xStart; x != xEnd; x += step) {
            const int p = x * 3;
            __m128i passedU = load4(uPassed + p), passedL = load4(lPassed + p);
            for (int r = 0; r < rows; ++r) {
                const __m128i v = load4(in[r] + p);
                PixelBounds b{load4(d[r] + p), load4(u[r] + p), load4(l[r] + p)};
                b.update(v, sideU[r], sideL[r]);
                b.update(v, passedU, passedL);
                store3(d[r] + p, b.d);
                store3(u[r] + p, sideU[r] = passedU = b.u);
                store3(l[r] + p, sideL[r] = passedL = b.l);
            }
        }
    }
}
#endif

// One raster pass over the interior, the three channels side by side: each
// channel's updates read only its own bounds, so a pass over all three is
// three single-channel passes. Ties change nothing, and a neighbour's bounds
// are used whether or not it has been reached yet.
void scan_pass_portable(const cv::Mat& image, cv::Mat& D, cv::Mat& U, cv::Mat& L, bool reverse) {
    const int H = image.rows, W = image.cols;
    const int yStart = reverse ? H - 2 : 1, yEnd = reverse ? 0 : H - 1, step = reverse ? -1 : 1;
    const int xStart = reverse ? W - 2 : 1, xEnd = reverse ? 0 : W - 1;
    // The neighbour along the row, then the one in the row already passed.
    const int side = reverse ? 3 : -3;
    for (int y = yStart; y != yEnd; y += step) {
        const uint8_t* in = image.ptr<uint8_t>(y);
        uint8_t* d = D.ptr<uint8_t>(y);
        uint8_t* u = U.ptr<uint8_t>(y);
        uint8_t* l = L.ptr<uint8_t>(y);
        const uint8_t* uPassed = U.ptr<uint8_t>(y - step);
        const uint8_t* lPassed = L.ptr<uint8_t>(y - step);
        // The bounds of the neighbour along the row, carried in registers
        // instead of read back from the store just made.
        uint8_t sideU[3], sideL[3];
        for (int c = 0; c < 3; ++c) {
            sideU[c] = u[xStart * 3 + side + c];
            sideL[c] = l[xStart * 3 + side + c];
        }
        for (int x = xStart; x != xEnd; x += step) {
            for (int c = 0; c < 3; ++c) {
                const int p = x * 3 + c;
                const uint8_t v = in[p];
                uint8_t dp = d[p], up = u[p], lp = l[p];
                // Selects rather than branches: whether a bound improves is
                // as good as random.
                const uint8_t neighbourU[2] = {sideU[c], uPassed[p]};
                const uint8_t neighbourL[2] = {sideL[c], lPassed[p]};
                for (int k = 0; k < 2; ++k) {
                    const uint8_t upper = std::max(neighbourU[k], v);
                    const uint8_t lower = std::min(neighbourL[k], v);
                    const uint8_t barrier = static_cast<uint8_t>(upper - lower);
                    const bool better = barrier < dp;
                    dp = better ? barrier : dp;
                    up = better ? upper : up;
                    lp = better ? lower : lp;
                }
                d[p] = dp;
                u[p] = sideU[c] = up;
                l[p] = sideL[c] = lp;
            }
        }
    }
}

void scan_pass(const cv::Mat& image, cv::Mat& D, cv::Mat& U, cv::Mat& L, bool reverse) {
#if defined(__SSE2__)
    if (kernels::vector_level() != kernels::VectorLevel::Portable)
        return scan_pass_sse2(image, D, U, L, reverse);
#endif
    scan_pass_portable(image, D, U, L, reverse);
}

// Samples of a strip, one row per pixel, as CV_32F.
void strip_model(const cv::Mat& strip, cv::Mat& mean, cv::Mat& inverse) {
    const cv::Mat samples = strip.clone().reshape(1, strip.rows * strip.cols);
    cv::Mat covariance;
    cv::calcCovarMatrix(samples, covariance, mean, 13, CV_32F);
    mean.convertTo(mean, CV_32F);
    covariance += 20.0 * cv::Mat::eye(3, 3, CV_32F);
    cv::SVD svd(covariance, 0);
    inverse = svd.vt.t() * cv::Mat::diag(1.0 / svd.w) * svd.u.t();
}

}  // namespace

cv::Mat mbd_raster_scan(const cv::Mat& image) {
    const int H = image.rows, W = image.cols;
    cv::Mat D(H, W, CV_8UC3, cv::Scalar::all(255));
    if (H > 0 && W > 0) {
        D.row(0).setTo(cv::Scalar::all(0));
        D.row(H - 1).setTo(cv::Scalar::all(0));
        D.col(0).setTo(cv::Scalar::all(0));
        D.col(W - 1).setTo(cv::Scalar::all(0));
    }
    cv::Mat U = image.clone();
    cv::Mat L = image.clone();
    if (H >= 3 && W >= 3) {
        scan_pass(image, D, U, L, true);
        scan_pass(image, D, U, L, false);
        scan_pass(image, D, U, L, true);
    }
    cv::Mat barrier(H, W, CV_32F);
    for (int y = 0; y < H; ++y) {
        const uint8_t* d = D.ptr<uint8_t>(y);
        float* b = barrier.ptr<float>(y);
        for (int x = 0; x < W; ++x) {
            const float sum = static_cast<float>(d[3 * x]) + static_cast<float>(d[3 * x + 1]) +
                              static_cast<float>(d[3 * x + 2]);
            b[x] = static_cast<float>(sum / 3.0);
        }
    }
    cv::normalize(barrier, barrier, 0.0, 1.0, cv::NORM_MINMAX);
    return barrier;
}

void border_strips(int width, int height, float border_fraction, cv::Rect strips[4]) {
    const int W = width, H = height;
    const int bw =
        std::max(1, static_cast<int>(std::floor(static_cast<float>(W) * border_fraction)));
    const int bh =
        std::max(1, static_cast<int>(std::floor(static_cast<float>(H) * border_fraction)));
    // One short of the thickness, never reaching the last row or column
    // unless the clamps force it: that is how the models are defined.
    const int rightW = W - bw > 0 ? bw : W;
    const int bottomH = H - bh > 0 ? bh : H;
    strips[0] = cv::Rect(0, 0, std::max(W - 1, 1), std::max(std::min(H - 1, bh - 1), 1));
    strips[1] = cv::Rect(0, 0, std::max(std::min(W - 1, bw - 1), 1), std::max(H - 1, 1));
    strips[2] = cv::Rect(std::max(W - bw, 0), 0, std::max(rightW - 1, 1), std::max(H - 1, 1));
    strips[3] = cv::Rect(0, std::max(H - bh, 0), std::max(W - 1, 1), std::max(bottomH - 1, 1));
}

cv::Mat border_contrast_map(const cv::Mat& lab, float border_fraction) {
    const int H = lab.rows, W = lab.cols;
    cv::Rect strips[4];
    border_strips(W, H, border_fraction, strips);
    cv::Mat pixels;
    lab.convertTo(pixels, CV_32FC3, 1.0, 0.0);

    cv::Mat distances[4];
    for (int k = 0; k < 4; ++k) {
        cv::Mat mean, inverse;
        strip_model(lab(strips[k]), mean, inverse);
        const float* mu = mean.ptr<float>(0);
        const cv::Mat_<float> M = inverse;
        const float m00 = M(0, 0), m11 = M(1, 1), m22 = M(2, 2);
        const float m01 = M(0, 1) + M(1, 0), m02 = M(2, 0) + M(0, 2), m12 = M(2, 1) + M(1, 2);
        distances[k].create(H, W, CV_32F);
        for (int y = 0; y < H; ++y) {
            const float* p = pixels.ptr<float>(y);
            float* out = distances[k].ptr<float>(y);
            for (int x = 0; x < W; ++x) {
                const float a = p[3 * x] - mu[0];
                const float b = p[3 * x + 1] - mu[1];
                const float c = p[3 * x + 2] - mu[2];
                const float s = b * m11 * b + a * m00 * a + c * m22 * c + m01 * a * b +
                                m02 * a * c + m12 * b * c;
                // Rounding can push a vanishing distance below zero.
                out[x] = std::sqrt(std::max(s, 0.0f));
            }
        }
        cv::normalize(distances[k], distances[k], 0.0, 1.0, cv::NORM_MINMAX);
    }
    cv::Mat result(H, W, CV_32F);
    for (int y = 0; y < H; ++y) {
        float* out = result.ptr<float>(y);
        const float* d[4] = {distances[0].ptr<float>(y), distances[1].ptr<float>(y),
                             distances[2].ptr<float>(y), distances[3].ptr<float>(y)};
        for (int x = 0; x < W; ++x) {
            const float v0 = d[0][x], v1 = d[1][x], v2 = d[2][x], v3 = d[3][x];
            out[x] = v0 + v1 + v2 + v3 - std::max(std::max(v0, v1), std::max(v2, v3));
        }
    }
    cv::normalize(result, result, 0.0, 1.0, cv::NORM_MINMAX);
    return result;
}

cv::Mat apply_centre_bias(const cv::Mat& sum) {
    const int H = sum.rows, W = sum.cols;
    const float cy = static_cast<float>(H) * 0.5f;
    const float cx = static_cast<float>(W) * 0.5f;
    cv::Mat weight(H, W, CV_32F);
    for (int y = 0; y < H; ++y) {
        float* w = weight.ptr<float>(y);
        for (int x = 0; x < W; ++x) {
            const float dx = static_cast<float>(x) - cx, dy = static_cast<float>(y) - cy;
            w[x] = std::exp(-0.5f * (dx * dx / (cx * cx) + dy * dy / (cy * cy)));
        }
    }
    cv::normalize(weight, weight, 0.0, 1.0, cv::NORM_MINMAX);
    cv::Mat map;
    sum.convertTo(map, CV_32F);
    map = map.mul(weight);
    cv::normalize(map, map, 0.0, 255.0, cv::NORM_MINMAX);
    cv::Mat result;
    map.convertTo(result, CV_8U, 1.0, 0.0);
    return result;
}

namespace {

// Geodesic reconstruction of `marker` under (dilation) or over (erosion)
// `image` with the 3 by 3 cross. The result is the unique fixed point of
// "grow by the element, then bound by the image"; alternating forward and
// backward raster sweeps followed by a queue of the pixels that can still
// spread reach it in linear time, instead of one full-image dilation per
// pixel of propagation distance. Outside the image counts as
// absent, as with the default border value of the morphology functions.
template <bool kDilate>
cv::Mat reconstruct(const cv::Mat& marker, const cv::Mat& image, const cv::Mat& element) {
    const cv::Mat cross = cv::getStructuringElement(cv::MORPH_CROSS, cv::Size(3, 3));
    CV_Assert(marker.type() == CV_8U && image.type() == CV_8U && marker.size() == image.size());
    CV_Assert(cv::countNonZero(element != cross) == 0);
    cv::Mat out = marker.clone();
    const int H = out.rows, W = out.cols;
    auto better = [](uint8_t a, uint8_t b) { return kDilate ? std::max(a, b) : std::min(a, b); };
    auto bound = [](uint8_t v, uint8_t limit) {
        return kDilate ? std::min(v, limit) : std::max(v, limit);
    };
    // The marker must already lie on the right side of the image.
    for (int y = 0; y < H; ++y) {
        uint8_t* o = out.ptr<uint8_t>(y);
        const uint8_t* m = image.ptr<uint8_t>(y);
        for (int x = 0; x < W; ++x) o[x] = bound(o[x], m[x]);
    }
    // `ahead(a, b)`: a would still grow towards b.
    auto ahead = [](uint8_t a, uint8_t b) { return kDilate ? a < b : a > b; };
    // The neighbour along the row is the value just made, carried in a
    // register rather than read back from the store.
    for (int y = 0; y < H; ++y) {
        uint8_t* o = out.ptr<uint8_t>(y);
        const uint8_t* above = y > 0 ? out.ptr<uint8_t>(y - 1) : nullptr;
        const uint8_t* m = image.ptr<uint8_t>(y);
        uint8_t previous = o[0];
        for (int x = 0; x < W; ++x) {
            uint8_t v = o[x];
            if (x > 0) v = better(v, previous);
            if (above) v = better(v, above[x]);
            o[x] = previous = bound(v, m[x]);
        }
    }
    // The pixels that could still pass their value on, in the order met;
    // collected without a branch, since whether one can is as good as random.
    // (A deque: it grows in small blocks, where a vector would map and
    // fault in ever larger ones.)
    std::deque<int> queue;
    std::vector<int> found(static_cast<size_t>(W));
    for (int y = H - 1; y >= 0; --y) {
        uint8_t* o = out.ptr<uint8_t>(y);
        uint8_t* below = y + 1 < H ? out.ptr<uint8_t>(y + 1) : nullptr;
        const uint8_t* m = image.ptr<uint8_t>(y);
        const uint8_t* mBelow = y + 1 < H ? image.ptr<uint8_t>(y + 1) : nullptr;
        uint8_t next = o[W - 1];
        size_t queued = 0;
        for (int x = W - 1; x >= 0; --x) {
            uint8_t v = o[x];
            if (x + 1 < W) v = better(v, next);
            if (below) v = better(v, below[x]);
            v = bound(v, m[x]);
            // A later neighbour that could still take this value: finish by queue.
            const bool right = x + 1 < W && (ahead(next, v) & ahead(next, m[x + 1]));
            const bool down = below && (ahead(below[x], v) & ahead(below[x], mBelow[x]));
            o[x] = next = v;
            found[queued] = y * W + x;
            queued += right | down;
        }
        queue.insert(queue.end(), found.begin(), found.begin() + queued);
    }
    uint8_t* o = out.ptr<uint8_t>(0);  // continuous: made by clone()
    const uint8_t* m = image.isContinuous() ? image.ptr<uint8_t>(0) : nullptr;
    const cv::Mat continuousImage = m ? image : image.clone();
    m = continuousImage.ptr<uint8_t>(0);
    while (!queue.empty()) {
        const int p = queue.front();
        queue.pop_front();
        const int x = p % W, y = p / W;
        const int neighbours[4] = {x > 0 ? p - 1 : -1, x + 1 < W ? p + 1 : -1, y > 0 ? p - W : -1,
                                   y + 1 < H ? p + W : -1};
        for (int q : neighbours) {
            if (q < 0 || !ahead(o[q], o[p]) || o[q] == m[q]) continue;
            o[q] = bound(o[p], m[q]);
            queue.push_back(q);
        }
    }
    return out;
}

}  // namespace

cv::Mat reconstruct_by_dilation(const cv::Mat& image, const cv::Mat& element, int size) {
    cv::Mat marker;
    cv::erode(image, marker, cv::Mat(), cv::Point(-1, -1), size / 2, cv::BORDER_CONSTANT,
              cv::morphologyDefaultBorderValue());
    return reconstruct<true>(marker, image, element);
}

cv::Mat reconstruct_by_erosion(const cv::Mat& image, const cv::Mat& element, int size) {
    cv::Mat marker;
    cv::dilate(image, marker, cv::Mat(), cv::Point(-1, -1), size / 2, cv::BORDER_CONSTANT,
               cv::morphologyDefaultBorderValue());
    return reconstruct<false>(marker, image, element);
}

cv::Mat compute_mbd_saliency(const cv::Mat& source, bool centre_bias) {
    const float scale = 300.0f / static_cast<float>(std::max(source.rows, source.cols));
    cv::Mat work;
    resize_area(source, scale, work);
    // As cv::COLOR_RGB2Lab (code 45), deliberately on blue-green-red data.
    for (int y = 0; y < work.rows; ++y) rgb_to_lab(work.ptr<uint8_t>(y), work.cols);
    const cv::Mat unfiltered = work.clone();
    cv::medianBlur(work, work, 5);

    const cv::Mat barrier = mbd_raster_scan(work);
    cv::Mat sum = border_contrast_map(unfiltered, 0.1f);
    cv::scaleAdd(barrier, 1.0, sum, sum);

    cv::Mat map;
    if (centre_bias) {
        map = apply_centre_bias(sum);
    } else {
        cv::normalize(sum, sum, 0.0, 255.0, cv::NORM_MINMAX);
        sum.convertTo(map, CV_8U, 1.0, 0.0);
    }
    const cv::Mat element =
        cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(3, 3), cv::Point(1, 1));
    map = reconstruct_by_dilation(map, element, 5);
    map = reconstruct_by_erosion(map, element, 5);

    cv::Mat result;
    map.convertTo(result, CV_32F, 1.0, 0.0);
    cv::normalize(result, result, 0.0, 1.0, cv::NORM_MINMAX);
    cv::normalize(result, result, 0.0, 1.0, cv::NORM_MINMAX);
    cv::resize(result, result, cv::Size(source.cols, source.rows), 0, 0, cv::INTER_LINEAR);
    return result;
}

}  // namespace smartCrop
