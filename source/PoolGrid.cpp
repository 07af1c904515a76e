#include "source/PoolGrid.h"

#include <cmath>

#include "kernels/cpu_features.h"

namespace smartCrop {

namespace {

// The L + 1 cell boundaries from `first` to `last`, stepped in single
// precision; each cell spans from its boundary to the next, both included.
void cell_bounds(int first, int last, int L, int* bounds) {
    const float step = static_cast<float>(last - first) / static_cast<float>(L);
    float f = static_cast<float>(first);
    bounds[0] = static_cast<int>(std::floor(f));
    for (int i = 1; i <= L; ++i) {
        f += step;
        bounds[i] = static_cast<int>(std::floor(f));
    }
}

// The divisions are most of a candidate's time and independent of each
// other: with wider vectors where the processor has them. IEEE division is
// correctly rounded at every width, so each build gives the same bits.
inline __attribute__((always_inline)) void divide_into(const double* sums, const float* counts,
                                                       int n, float* out) {
    for (int k = 0; k < n; ++k) out[k] = static_cast<float>(sums[k] / counts[k]);
}

#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target("avx512f"))) void divide_avx512(const double* sums, const float* counts,
                                                      int n, float* out) {
    divide_into(sums, counts, n, out);
}
__attribute__((target("avx2"))) void divide_avx2(const double* sums, const float* counts, int n,
                                                 float* out) {
    divide_into(sums, counts, n, out);
}
#endif

void divide_cells(const double* sums, const float* counts, int n, float* out) {
#if defined(__x86_64__) && defined(__GNUC__)
    const kernels::VectorLevel level = kernels::vector_level();
    if (level == kernels::VectorLevel::Avx512) return divide_avx512(sums, counts, n, out);
    if (level == kernels::VectorLevel::Avx2) return divide_avx2(sums, counts, n, out);
#endif
    divide_into(sums, counts, n, out);
}

}  // namespace

float* pool_cells(const DoubleMap& table, int L, const WorkRect& crop, float* out) {
    const auto [r0, c0, r1, c1] = crop;
    int rows[kMaxGrid + 1], cols[kMaxGrid + 1];
    cell_bounds(r0, r1, L, rows);
    cell_bounds(c0, c1, L, cols);
    double sums[kMaxGrid * kMaxGrid];
    float counts[kMaxGrid * kMaxGrid];
    for (int i = 0, k = 0; i < L; ++i) {
        const int top = rows[i], bottom = rows[i + 1];
        const float height = static_cast<float>(bottom - top + 1);
        for (int j = 0; j < L; ++j, ++k) {
            const int left = cols[j], right = cols[j + 1];
            counts[k] = static_cast<float>(right - left + 1) * height;
            sums[k] = region_sum(table, top, bottom, left, right);
        }
    }
    divide_cells(sums, counts, L * L, out);
    return out + L * L;
}

}  // namespace smartCrop
