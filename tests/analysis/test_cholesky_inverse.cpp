// The library's own small linear algebra: the colour models' inverse and the
// score model's dot product, held bit for bit to what OpenBLAS's SSE3 kernels
// give (ctest runs this binary with OPENBLAS_CORETYPE=Prescott), so that the
// library's answers are those it always gave, on every processor.
#include <cblas.h>
#include <gtest/gtest.h>
#include <lapacke.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "analysis/cholesky_inverse.h"
#include "analysis/vector_math.h"

namespace smartCrop {
namespace {

uint32_t bits(float v) {
    uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

void expect_sse3_kernels() {
    ASSERT_EQ(std::string(openblas_get_corename()), "Prescott")
        << "run with OPENBLAS_CORETYPE=Prescott, as ctest does";
}

// Colour covariances as the analysis makes them (Lab-like spreads, strong
// and weak correlation, tiny and huge variances) plus the ridge of 10.
TEST(CholeskyInverse, AsOpenBlasSse3) {
    expect_sse3_kernels();
    // A pivot at or below zero, or not a number, refuses.
    float semi[4] = {1, 1, 1, 1}, nan[4] = {NAN, 0, 0, 1};
    EXPECT_FALSE(cholesky_inverse_lower(semi, 2));
    EXPECT_FALSE(cholesky_inverse_lower(nan, 2));
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f), scale(-6.0f, 8.0f);
    for (int n = 1; n <= 3; ++n) {
        for (int trial = 0; trial < 100000; ++trial) {
            float g[9], a[9], ours[9], theirs[9];
            for (float& v : g) v = unit(random) * std::exp2(scale(random));
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j) {
                    float s = 0.0f;
                    for (int k = 0; k < n; ++k) s += g[i * 3 + k] * g[j * 3 + k];
                    a[i + j * n] = s + (i == j ? 10.0f : 0.0f);
                }
            std::memcpy(ours, a, sizeof a);
            std::memcpy(theirs, a, sizeof a);
            const bool ok = cholesky_inverse_lower(ours, n);
            const int info = LAPACKE_spotrf(LAPACK_COL_MAJOR, 'L', n, theirs, n);
            ASSERT_EQ(ok, info == 0) << n << " " << trial;
            if (!ok) continue;
            LAPACKE_spotri(LAPACK_COL_MAJOR, 'L', n, theirs, n);
            for (int j = 0; j < n; ++j)
                for (int i = j; i < n; ++i) {
                    ASSERT_EQ(bits(ours[i + j * n]), bits(theirs[i + j * n]))
                        << n << " " << trial << " (" << i << "," << j << ")";
                    if (i > j) {
                        ASSERT_EQ(ours[j + i * n], a[j + i * n]);  // upper: untouched
                    }
                }
        }
    }
}

// Every length up to four rounds of sixteen and a tail, and the score
// model's 304, with magnitudes that make the order of the sums show.
TEST(DotProduct, AsOpenBlasSse3) {
    expect_sse3_kernels();
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f), scale(-12.0f, 12.0f);
    for (int n = 0; n <= 304; n = n < 70 ? n + 1 : n + 39) {
        for (int trial = 0; trial < 200; ++trial) {
            std::vector<float> x(n), y(n);
            for (int i = 0; i < n; ++i) {
                x[i] = unit(random) * std::exp2(scale(random));
                y[i] = unit(random);
            }
            ASSERT_EQ(bits(dot_product(n, x.data(), y.data())),
                      bits(cblas_sdot(n, x.data(), 1, y.data(), 1)))
                << n << " " << trial;
        }
    }
}

}  // namespace
}  // namespace smartCrop
