#include "analysis/frame_contrast.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "analysis/cholesky_inverse.h"
#include "analysis/vector_math.h"
#include "kernels/cpu_features.h"

namespace smartCrop {

FrameStrips frame_strips(int width, int height, float fraction) {
    const int W = width, H = height;
    const int B =
        std::max(1, static_cast<int>(std::floor(static_cast<float>(std::min(W, H)) * fraction)));
    const int hB = (H - 1 < B - 1) ? H : B;
    const int wB = (W - 1 < B - 1) ? W : B;
    FrameStrips s;
    s.top = {0, 0, W - 1, hB - 1, hB * W};
    const int bottomY = std::max(H - B, 0);
    s.bottom = {0, bottomY, W - 1, H - 1, (H - bottomY) * W};
    s.left = {0, 0, wB - 1, H - 1, wB * H};
    const int rightX = std::max(W - B, 0);
    s.right = {rightX, 0, W - 1, H - 1, (W - rightX) * H};
    return s;
}

TableLines frame_strip_lines(int width, int height, std::initializer_list<float> fractions) {
    TableLines lines;
    for (float fraction : fractions) {
        const FrameStrips s = frame_strips(width, height, fraction);
        for (const RegionRect& r : {s.top, s.bottom, s.left, s.right}) {
            lines.rows.push_back(r.y0);
            lines.rows.push_back(r.y1 + 1);
            lines.cols.push_back(r.x0);
            lines.cols.push_back(r.x1 + 1);
        }
    }
    return lines;
}

namespace {

// Model scratch: a K x 1 mean and a K x K covariance, released on scope exit.
struct ModelScratch {
    explicit ModelScratch(int K) : mean(K, 1, 1), covariance(K, K, 1) {}
    ScopedPlaneImage mean;
    ScopedPlaneImage covariance;
};

void distance_map(const PlaneImage& image, PlaneImage& out, ModelScratch& model, bool normalise,
                  bool add = false) {
    if (image.channels == 1) {
        scalar_distance_map(image, out, *model.mean, *model.covariance, normalise, add);
    } else {
        mahalanobis_map(image, out, *model.mean, *model.covariance, normalise, add);
    }
}

// Distance to the lone strip into `out`, plus distance to the pooled others.
void seeded_contrast(const PlaneImage& image, PlaneImage& out, const RegionRect& alone,
                     const std::vector<RegionRect>& others, bool innerNormalise,
                     bool normaliseResult) {
    ModelScratch a(image.channels), b(image.channels);
    region_statistics(image, *a.mean, *a.covariance, {alone});
    region_statistics(image, *b.mean, *b.covariance, others);
    distance_map(image, out, a, innerNormalise);
    if (innerNormalise) {
        ScopedPlaneImage d(image.width, image.height, 1);
        distance_map(image, *d, b, true);
        vs_add(out.planeSize, out.planes[0], d->planes[0], out.planes[0]);
    } else {
        // The second distance added as it is made: no map between.
        distance_map(image, out, b, false, true);
    }
    if (normaliseResult) normalize_image(out);
}

}  // namespace

void top_seeded_contrast(const PlaneImage& image, PlaneImage& out, float fraction,
                         bool innerNormalise, bool normaliseResult) {
    const FrameStrips s = frame_strips(image.width, image.height, fraction);
    seeded_contrast(image, out, s.top, {s.left, s.right, s.bottom}, innerNormalise,
                    normaliseResult);
}

void bottom_seeded_contrast(const PlaneImage& image, PlaneImage& out, float fraction,
                            bool innerNormalise, bool normaliseResult) {
    const FrameStrips s = frame_strips(image.width, image.height, fraction);
    seeded_contrast(image, out, s.bottom, {s.left, s.right, s.top}, innerNormalise,
                    normaliseResult);
}

void per_strip_contrast(const PlaneImage& image, PlaneImage* outs, float fraction,
                        bool innerNormalise) {
    const FrameStrips s = frame_strips(image.width, image.height, fraction);
    const RegionRect strips[4] = {s.top, s.bottom, s.left, s.right};
    ModelScratch model(image.channels);
    for (int k = 0; k < 4; ++k) {
        region_statistics(image, *model.mean, *model.covariance, {strips[k]});
        distance_map(image, outs[k], model, innerNormalise);
    }
}

void regularised_inverse(const float* matrix, float* out, int n, float ridge) {
    if (n == 1) {
        out[0] = 1.0f / (ridge + matrix[0]);
        return;
    }
    std::copy(matrix, matrix + n * n, out);
    for (int i = 0; i < n; ++i) out[i * n + i] += ridge;
    const float d = out[0];
    if (cholesky_inverse_lower(out, n)) {
        // Column-major lower triangle: (i, j) with i >= j sits at i + j * n.
        for (int j = 0; j < n; ++j) {
            for (int i = j + 1; i < n; ++i) out[j + i * n] = out[i + j * n];
        }
        return;
    }
    // Not positive definite even with the ridge: the first diagonal element,
    // ridge added twice, stands for every channel.
    std::fill(out, out + n * n, 0.0f);
    for (int i = 0; i < n; ++i) out[i * n + i] = 1.0f / (d + ridge);
}

namespace {

// Per pixel of three channels: x = pixel - mean, y = x S with each sum over k
// in ascending order from zero, q = y . x, then the square root of q raised
// to 0 (rounding can leave a vanishing distance a hair below zero, whose
// root would be a NaN that every later normalisation spreads). The same
// roundings as a matrix product into a zeroed result followed by the
// quadratic form. The matrix and mean are copied into locals so that the
// loop vectorises; IEEE arithmetic gives the same bits at every width.
// `add`: each distance is added to what `out` holds instead of replacing it.
inline __attribute__((always_inline)) void colour_distances_into(const float* p0, const float* p1,
                                                                 const float* p2, const float* mean,
                                                                 const float* S, int n, float* out,
                                                                 bool add) {
    const float m0 = mean[0], m1 = mean[1], m2 = mean[2];
    const float s00 = S[0], s01 = S[1], s02 = S[2], s10 = S[3], s11 = S[4], s12 = S[5], s20 = S[6],
                s21 = S[7], s22 = S[8];
    for (int i = 0; i < n; ++i) {
        const float x0 = p0[i] - m0, x1 = p1[i] - m1, x2 = p2[i] - m2;
        const float y0 = 0.0f + ((0.0f + x0 * s00) + x1 * s10 + x2 * s20);
        const float y1 = 0.0f + ((0.0f + x0 * s01) + x1 * s11 + x2 * s21);
        const float y2 = 0.0f + ((0.0f + x0 * s02) + x1 * s12 + x2 * s22);
        const float q = y0 * x0 + y1 * x1 + y2 * x2;
        const float distance = std::sqrt(std::max(q, 0.0f));
        out[i] = add ? out[i] + distance : distance;
    }
}

#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target("avx2"))) void colour_distances_avx2(const float* p0, const float* p1,
                                                           const float* p2, const float* mean,
                                                           const float* S, int n, float* out,
                                                           bool add) {
    if (add) return colour_distances_into(p0, p1, p2, mean, S, n, out, true);
    colour_distances_into(p0, p1, p2, mean, S, n, out, false);
}
#endif

void colour_distances(const float* p0, const float* p1, const float* p2, const float* mean,
                      const float* S, int n, float* out, bool add) {
#if defined(__x86_64__) && defined(__GNUC__)
    if (kernels::vector_level() >= kernels::VectorLevel::Avx2)
        return colour_distances_avx2(p0, p1, p2, mean, S, n, out, add);
#endif
    if (add) return colour_distances_into(p0, p1, p2, mean, S, n, out, true);
    colour_distances_into(p0, p1, p2, mean, S, n, out, false);
}

}  // namespace

void mahalanobis_map(const PlaneImage& image, PlaneImage& out, const PlaneImage& mean,
                     const PlaneImage& covariance, bool normalise, bool add) {
    const int K = image.channels;
    const int N = image.planeSize;
    ScopedPlaneImage inverse(K, K, 1);
    regularised_inverse(covariance.planes[0], inverse->planes[0], K, 10.0f);
    // The symmetric inverse from its lower triangle (column-major), whole.
    const float* a = inverse->planes[0];
    std::vector<float> S(static_cast<size_t>(K) * K);
    for (int k = 0; k < K; ++k)
        for (int c = 0; c < K; ++c) S[k * K + c] = a[std::max(k, c) + std::min(k, c) * K];
    const float* m = mean.planes[0];
    float* o = out.planes[0];
    // One pass over the image instead of a matrix product and three more;
    // other channel counts in the same order of sums (see colour_distances).
    if (K == 3) {
        colour_distances(image.planes[0], image.planes[1], image.planes[2], m, S.data(), N, o, add);
    } else {
        std::vector<float> x(static_cast<size_t>(K));
        for (int i = 0; i < N; ++i) {
            for (int c = 0; c < K; ++c) x[c] = image.planes[c][i] - m[c];
            float q = 0.0f;
            for (int c = 0; c < K; ++c) {
                float sum = 0.0f + x[0] * S[c];
                for (int k = 1; k < K; ++k) sum = sum + x[k] * S[k * K + c];
                const float yc = 0.0f + sum;
                q = c == 0 ? yc * x[0] : q + yc * x[c];
            }
            // Rounding can leave a vanishing distance a hair below zero; its
            // square root would be a NaN that every later normalisation spreads.
            const float distance = std::sqrt(std::max(q, 0.0f));
            o[i] = add ? o[i] + distance : distance;
        }
    }
    if (normalise && !add) normalize_min_max(o, N);
}

void scalar_distance_map(const PlaneImage& image, PlaneImage& out, const PlaneImage& mean,
                         const PlaneImage& variance, bool normalise, bool add) {
    const int N = image.planeSize;
    const float* plane = image.planes[0];
    float* o = out.planes[0];
    const float negMean = -mean.planes[0][0];
    const float scale = 1.0f / sqrtf(variance.planes[0][0] + 10.0f);
    if (add) {
        for (int i = 0; i < N; ++i) o[i] = o[i] + std::fabs(plane[i] + negMean) * scale;
        return;
    }
    for (int i = 0; i < N; ++i) o[i] = std::fabs(plane[i] + negMean) * scale;
    if (normalise) normalize_min_max(o, N);
}

}  // namespace smartCrop
