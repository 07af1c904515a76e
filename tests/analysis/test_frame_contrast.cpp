// Distances from the frame's colour models.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "analysis/frame_contrast.h"

namespace smartCrop {
namespace {

TEST(FrameContrast, StripGeometry) {
    const FrameStrips s = frame_strips(30, 20, 0.25f);  // B = 5
    EXPECT_EQ(s.top.y1, 4);
    EXPECT_EQ(s.top.area, 150);
    EXPECT_EQ(s.bottom.y0, 15);
    EXPECT_EQ(s.bottom.area, 150);
    EXPECT_EQ(s.left.x1, 4);
    EXPECT_EQ(s.left.area, 100);
    EXPECT_EQ(s.right.x0, 25);
    EXPECT_EQ(s.right.area, 100);
    // A fraction below one pixel still gives a strip of 1; a 1 by 1 image one pixel.
    EXPECT_EQ(frame_strips(3, 3, 0.25f).top.y1, 0);
    const FrameStrips one = frame_strips(1, 1, 0.25f);
    EXPECT_EQ(one.top.area, 1);
    EXPECT_EQ(one.right.x0, 0);
}

TEST(FrameContrast, RegularisedInverse) {
    // [[4,1],[1,3]] + 10 I = [[14,1],[1,13]], inverse [[13,-1],[-1,14]] / 181.
    const float m[] = {4, 1, 1, 3};
    float inv[4];
    regularised_inverse(m, inv, 2, 10.0f);
    EXPECT_NEAR(inv[0], 13.0f / 181, 1e-6f);
    EXPECT_NEAR(inv[1], -1.0f / 181, 1e-6f);
    EXPECT_NEAR(inv[2], -1.0f / 181, 1e-6f);
    EXPECT_NEAR(inv[3], 14.0f / 181, 1e-6f);
    // Not positive definite even with the ridge: 1 / (d + ridge) with d taken
    // after the ridge was added, on every diagonal element.
    const float bad[] = {-30, 0, 0, 1};
    regularised_inverse(bad, inv, 2, 10.0f);
    EXPECT_FLOAT_EQ(inv[0], 1.0f / (-20.0f + 10.0f));
    EXPECT_FLOAT_EQ(inv[3], inv[0]);
    EXPECT_EQ(inv[1], 0.0f);
    const float single[] = {6};
    regularised_inverse(single, inv, 1, 10.0f);
    EXPECT_FLOAT_EQ(inv[0], 1.0f / 16);
}

TEST(FrameContrast, ConstantImageIsAllZero) {
    for (int K : {1, 3}) {
        ScopedPlaneImage image(40, 30, K);
        for (int c = 0; c < K; ++c) std::fill_n(image->planes[c], 1200, 77.0f);
        build_region_integrals(*image);
        ScopedPlaneImage out(40, 30, 1);
        top_seeded_contrast(*image, *out, 0.25f, false);
        for (int i = 0; i < 1200; ++i) ASSERT_EQ(out->planes[0][i], 0.0f) << K;
        bottom_seeded_contrast(*image, *out, 0.25f, true);
        for (int i = 0; i < 1200; ++i) ASSERT_EQ(out->planes[0][i], 0.0f) << K;
    }
}

// Each pixel's distance against a plain per-pixel reference in double
// precision, with the same regularised inverse: the single-precision sums
// agree to 1e-5 relative, over 5,000 pixels and two or three channels.
TEST(FrameContrast, MahalanobisAcrossBlocks) {
    const int W = 100, H = 50, N = W * H;
    for (int K : {3, 2}) {
        SCOPED_TRACE(K);
        ScopedPlaneImage image(W, H, K), out(W, H, 1), mean(K, 1, 1), covariance(K, K, 1);
        for (int c = 0; c < K; ++c) {
            for (int i = 0; i < N; ++i)
                image->planes[c][i] = static_cast<float>((i * (7 + 3 * c)) % 251) - 40.0f * c;
            mean->planes[0][c] = 90.0f + c;  // one plane of K values
        }
        const float cov[9] = {400, 35, -20, 35, 300, 15, -20, 15, 250};
        for (int r = 0; r < K; ++r)
            for (int c = 0; c < K; ++c) covariance->planes[0][r * K + c] = cov[r * 3 + c];
        mahalanobis_map(*image, *out, *mean, *covariance, false);
        std::vector<float> inverse(K * K);
        regularised_inverse(covariance->planes[0], inverse.data(), K, 10.0f);
        for (int i : {0, 1, 4095, 4096, 4097, N - 1, 2222, 4500}) {
            double q = 0;
            for (int r = 0; r < K; ++r)
                for (int c = 0; c < K; ++c)  // one triangle holds the symmetric inverse
                    q += (image->planes[r][i] - mean->planes[0][r]) *
                         inverse[std::min(r, c) * K + std::max(r, c)] *
                         (image->planes[c][i] - mean->planes[0][c]);
            const double expected = std::sqrt(std::max(q, 0.0));
            EXPECT_NEAR(out->planes[0][i], expected, 1e-5 * expected + 1e-6) << i;
        }
        // And bit for bit the order of a matrix product into zeros followed by
        // the quadratic form, whatever vector width the build picked.
        for (int i = 0; i < N; ++i) {
            float x[3], q = 0.0f;
            for (int c = 0; c < K; ++c) x[c] = image->planes[c][i] - mean->planes[0][c];
            for (int c = 0; c < K; ++c) {
                float y = 0.0f;
                for (int k = 0; k < K; ++k)
                    y = y + x[k] * inverse[std::min(k, c) * K + std::max(k, c)];
                q = c == 0 ? y * x[0] : q + y * x[c];
            }
            ASSERT_EQ(out->planes[0][i], std::sqrt(std::max(q, 0.0f))) << i;
        }
        // Added to what the map holds: each sum as the two maps added after.
        ScopedPlaneImage sum(W, H, 1);
        for (int i = 0; i < N; ++i) sum->planes[0][i] = 0.37f * static_cast<float>(i % 97);
        const std::vector<float> before(sum->planes[0], sum->planes[0] + N);
        mahalanobis_map(*image, *sum, *mean, *covariance, false, true);
        for (int i = 0; i < N; ++i)
            ASSERT_EQ(sum->planes[0][i], before[i] + out->planes[0][i]) << i;
    }
}

}  // namespace
}  // namespace smartCrop
