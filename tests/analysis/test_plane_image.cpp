// Summed-area tables, pooled region statistics and the normalisations.
#include <gtest/gtest.h>

#include <cblas.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "analysis/plane_image.h"
#include "analysis/vector_math.h"
#include "failure_text.h"

namespace smartCrop {
namespace {

// Statistics are sums of a few single-precision table reads of small integers:
// exact up to the final divisions, so a few ulps.
constexpr float kStatTolerance = 1e-5f;

void fill(PlaneImage& image, int c, const std::vector<float>& values) {
    std::copy(values.begin(), values.end(), image.planes[c]);
}

TEST(PlaneImage, OnePixelTablesAndStatistics) {
    ScopedPlaneImage image(1, 1, 1);
    fill(*image, 0, {5.0f});
    build_region_integrals(*image);
    const float* t = image->integrals[0];
    EXPECT_EQ(t[0], 0.0f);
    EXPECT_EQ(t[1], 0.0f);
    EXPECT_EQ(t[2], 0.0f);
    EXPECT_EQ(t[3], 5.0f);
    EXPECT_EQ(image->crossIntegrals[0][3], 25.0f);
    ScopedPlaneImage mean(1, 1, 1), cov(1, 1, 1);
    region_statistics(*image, *mean, *cov, {{0, 0, 0, 0, 1}});
    EXPECT_EQ(mean->planes[0][0], 5.0f);
    EXPECT_EQ(cov->planes[0][0], 0.0f);
}

// 3 by 2 image, two channels; the top row and the left column share the
// corner pixel, which counts twice:
//   plane 0: 1 2 3 / 4 5 6   pooled 1 2 3 | 1 4   -> mean 2.2, variance 1.36
//   plane 1: 2 0 1 / 1 1 1   pooled 2 0 1 | 2 1   -> mean 1.2, variance 0.56
//   cross: (2 + 0 + 3 + 2 + 4) / 5 - 2.2 * 1.2 = -0.44
TEST(PlaneImage, PooledStatisticsCountCornersTwice) {
    ScopedPlaneImage image(3, 2, 2);
    fill(*image, 0, {1, 2, 3, 4, 5, 6});
    fill(*image, 1, {2, 0, 1, 1, 1, 1});
    build_region_integrals(*image);
    ASSERT_EQ(image->crossIntegrals.size(), 3u);
    ScopedPlaneImage mean(2, 1, 1), cov(2, 2, 1);
    region_statistics(*image, *mean, *cov, {{0, 0, 2, 0, 3}, {0, 0, 0, 1, 2}});
    EXPECT_NEAR(mean->planes[0][0], 2.2f, kStatTolerance);
    EXPECT_NEAR(mean->planes[0][1], 1.2f, kStatTolerance);
    const float* c = cov->planes[0];
    EXPECT_NEAR(c[0], 1.36f, kStatTolerance);
    EXPECT_NEAR(c[1], -0.44f, kStatTolerance);
    EXPECT_EQ(c[2], c[1]);
    EXPECT_NEAR(c[3], 0.56f, kStatTolerance);

    // The whole image reads the last table element minus zeros.
    region_statistics(*image, *mean, *cov, {{0, 0, 2, 1, 6}});
    EXPECT_NEAR(mean->planes[0][0], 3.5f, kStatTolerance);

    // Views of single channels share the tables of the image.
    const std::vector<PlaneImage> views = split_channels(*image);
    ASSERT_EQ(views.size(), 2u);
    EXPECT_EQ(views[1].planes[0], image->planes[1]);
    EXPECT_EQ(views[1].crossIntegrals[0], image->crossIntegrals[self_product_index(2, 1)]);
    ScopedPlaneImage m1(1, 1, 1), v1(1, 1, 1);
    region_statistics(views[1], *m1, *v1, {{0, 0, 2, 0, 3}, {0, 0, 0, 1, 2}});
    EXPECT_NEAR(v1->planes[0][0], 0.56f, kStatTolerance);
}

// Tables keeping only some lines give the whole tables' statistics bit for
// bit over rectangles between kept lines, and refuse any other.
TEST(PlaneImage, KeptLinesOnly) {
    const int W = 37, H = 23;
    ScopedPlaneImage full(W, H, 3);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < W * H; ++i)
            full->planes[c][i] = static_cast<float>((i * 7919 + c * 31) % 255) / 7.0f;
    ScopedPlaneImage sparse(W, H, 3);
    for (int c = 0; c < 3; ++c) std::copy_n(full->planes[c], W * H, sparse->planes[c]);
    build_region_integrals(*full);
    // Line 18 follows the second row of a pair, 5 and 17 the first.
    build_region_integrals(*sparse,
                           {{H, 5, 0, 17, 18, 5, -3, H + 4}, {21, 0, W, 3, W + 1, -2, 21}});
    EXPECT_EQ(sparse->integralRows, (std::vector<int32_t>{0, 5, 17, 18, H}));
    EXPECT_EQ(sparse->integralCols, (std::vector<int32_t>{0, 3, 21, W}));
    // The whole tables against their definition, row by row: each row's
    // running sum from the left, plus the line above (the first row alone).
    for (int c = 0; c < 3; ++c) {
        std::vector<float> run(W + 1, 0.0f);
        for (int y = 0; y < H; ++y) {
            float sum = 0.0f;
            for (int x = 0; x < W; ++x) {
                sum += full->planes[c][y * W + x];
                run[x + 1] = y == 0 ? sum : sum + run[x + 1];
            }
            for (int x = 0; x <= W; ++x)
                ASSERT_EQ(full->integrals[c][(y + 1) * (W + 1) + x], run[x]) << c << " " << y;
        }
    }
    const std::vector<RegionRect> rects{{0, 0, W - 1, 4, 5 * W},
                                        {3, 5, 20, 16, 18 * 12},
                                        {0, 17, W - 1, H - 1, W * (H - 17)},
                                        {3, 0, W - 1, 17, (W - 3) * 18}};
    ScopedPlaneImage m1(3, 1, 1), c1(3, 3, 1), m2(3, 1, 1), c2(3, 3, 1);
    region_statistics(*full, *m1, *c1, rects);
    region_statistics(*sparse, *m2, *c2, rects);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(m1->planes[0][k], m2->planes[0][k]);
    for (int k = 0; k < 9; ++k) EXPECT_EQ(c1->planes[0][k], c2->planes[0][k]);
    const std::vector<PlaneImage> views = split_channels(*sparse);
    region_statistics(views[2], *m2, *c2, {rects[1]});
    region_statistics(split_channels(*full)[2], *m1, *c1, {rects[1]});
    EXPECT_EQ(m1->planes[0][0], m2->planes[0][0]);
    EXPECT_EQ(c1->planes[0][0], c2->planes[0][0]);
    EXPECT_EQ(test::FailureOf([&] {
                  region_statistics(*sparse, *m2, *c2, {{0, 0, 3, 3, 16}});
              }),
              "region_statistics(): table row 4 was not kept");
    EXPECT_EQ(test::FailureOf([&] {
                  region_statistics(*sparse, *m2, *c2, {{0, 0, 3, 4, 20}});
              }),
              "region_statistics(): table column 4 was not kept");
}

TEST(PlaneImage, NormalizeMinMax) {
    float same[] = {3, 3, 3};
    normalize_min_max(same, 3);
    for (float v : same) EXPECT_EQ(v, 0.0f);
    float spread[] = {1, 3, 5};
    normalize_min_max(spread, 3);
    EXPECT_EQ(spread[0], 0.0f);
    EXPECT_EQ(spread[1], 0.5f);
    EXPECT_EQ(spread[2], 1.0f);
    normalize_min_max(spread, 0);  // an empty array is left alone
}

// Normalised on its way into a weighted sum: the bits of normalising first,
// for spread values, a constant (the range floor) and an infinite range
// (which clears).
TEST(PlaneImage, ScaleAccumulateNormalised) {
    const std::vector<std::vector<float>> sources = {
        {3.5f, -1.25f, 7.0f, 0.1f, 2.0f},
        {4.0f, 4.0f, 4.0f, 4.0f, 4.0f},
        {1.0f, std::numeric_limits<float>::infinity(), 0.0f, 2.0f, 5.0f}};
    for (const std::vector<float>& values : sources) {
        std::vector<float> source = values, target = {0.3f, -0.0f, 1.7f, 2.9f, -4.1f};
        std::vector<float> normalised = values, expected = target;
        normalize_min_max(normalised.data(), 5);
        for (int i = 0; i < 5; ++i) expected[i] = expected[i] + 0.33333334f * normalised[i];
        PlaneImage in = wrap_plane(5, 1, source.data()), out = wrap_plane(5, 1, target.data());
        scale_accumulate_normalised(in, out, 0.33333334f);
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(std::signbit(target[i]), std::signbit(expected[i])) << i;
            EXPECT_EQ(target[i], expected[i]) << i;
        }
        EXPECT_EQ(source, values);  // left as it was
    }
}

// The normalisations take the elements BLAS's isamax and isamin point at:
// the first of equal magnitudes, whatever the sign (-0 and +0 included), at
// every length and place (vector bodies and scalar tails), without signs at
// all (no search), and past NaNs (all NaN: the first element).
TEST(PlaneImage, MagnitudeExtremesAsBlas) {
    std::mt19937 random(7);
    const float values[] = {0.0f, 1.0f, 0.5f, 2.5f, -0.0f, -1.0f, -2.5f, 1e-30f, 3e38f};
    const auto bits = [](float v) {
        uint32_t b;
        std::memcpy(&b, &v, sizeof b);
        return b;
    };
    for (int n : {1, 2, 7, 8, 15, 16, 17, 33, 100, 1000, 100003}) {
        for (int trial = 0; trial < 24; ++trial) {
            std::vector<float> x(n);
            // Few distinct values, so that ties are the rule; the first four
            // carry no sign; some trials without the extreme ones, so that
            // they fall anywhere.
            const int distinct = trial % 3 == 0 ? 4 : 2 + trial % 8;
            for (float& v : x) v = values[random() % distinct];
            if (trial % 5 == 4) x[random() % n] = std::numeric_limits<float>::infinity();
            // A NaN is passed over: the answer is BLAS's for the rest.
            std::vector<float> numbers = x;
            if (trial % 10 == 9 && n > 1) x.insert(x.begin() + random() % n, NAN);
            const MagnitudeExtremes found = magnitude_extremes(x.data(), int(x.size()));
            const int m = int(numbers.size());
            ASSERT_EQ(bits(found.largest), bits(numbers[cblas_isamax(m, numbers.data(), 1)]))
                << n << " " << trial;
            ASSERT_EQ(bits(found.smallest), bits(numbers[cblas_isamin(m, numbers.data(), 1)]))
                << n << " " << trial;
        }
    }
    // One sign in the whole array, wherever a vector's lanes put it.
    for (int at = 0; at < 40; ++at) {
        std::vector<float> x(40, 1.0f);
        x[at] = -0.0f;
        const int other = 39 - at / 2;
        if (other == at) continue;
        x[other] = 0.0f;
        const float first = at < other ? -0.0f : 0.0f;
        EXPECT_EQ(bits(magnitude_extremes(x.data(), 40).smallest), bits(first)) << at;
    }
    const float nothing[3] = {NAN, -NAN, NAN};
    EXPECT_EQ(bits(magnitude_extremes(nothing, 3).smallest), bits(nothing[0]));
}

TEST(PlaneImage, NormalizeRowsDampsStrongRows) {
    // Width 4: the floor is 0.04. Row 0 is weak (nothing above 0.05), row 1 strong.
    std::vector<float> plane = {0.01f, 0.02f, 0.05f, 0.03f, 1.0f, 0.5f, 0.01f, 2.0f};
    PlaneImage image = wrap_plane(4, 2, plane.data());
    normalize_rows(image);
    const float floor = 4 * 0.01f;
    EXPECT_FLOAT_EQ(plane[0], 0.01f / floor);
    EXPECT_FLOAT_EQ(plane[2], 0.05f / floor);
    EXPECT_FLOAT_EQ(plane[4], 1.0f / (3.5f + floor));
    EXPECT_FLOAT_EQ(plane[6], 0.01f / (3.5f + floor));
}

TEST(PlaneImage, SobelOnARampAndReplicatedBorders) {
    // f(x, y) = 2x: the x derivative of the 3 by 3 Sobel kernel is 8 * 2 inside,
    // half that at the replicated left and right borders; the y derivative is 0.
    const int W = 5, H = 4;
    std::vector<float> plane(W * H), dx(W * H), dy(W * H);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) plane[y * W + x] = 2.0f * x;
    sobel_x(plane.data(), dx.data(), W, H);
    sobel_y(plane.data(), dy.data(), W, H);
    for (int y = 0; y < H; ++y) {
        EXPECT_EQ(dx[y * W + 0], 8.0f);
        EXPECT_EQ(dx[y * W + 2], 16.0f);
        EXPECT_EQ(dx[y * W + 4], 8.0f);
        for (int x = 0; x < W; ++x) EXPECT_EQ(dy[y * W + x], 0.0f);
    }
}

}  // namespace
}  // namespace smartCrop
