#include "analysis/vector_math.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

#include "kernels/cpu_features.h"

namespace smartCrop {

float* aligned_floats(size_t count) {
    void* p = nullptr;
    // One element at least, so that an empty plane is still a valid pointer.
    const size_t bytes = (count > 0 ? count : 1) * sizeof(float);
    if (count > static_cast<size_t>(-1) / sizeof(float) || posix_memalign(&p, 64, bytes) != 0) {
        throw std::bad_alloc();
    }
    return static_cast<float*>(p);
}

void aligned_free(void* p) {
    std::free(p);
}

void vs_add(int n, const float* a, const float* b, float* out) {
    for (int i = 0; i < n; ++i) out[i] = a[i] + b[i];
}

void vs_sub(int n, const float* a, const float* b, float* out) {
    for (int i = 0; i < n; ++i) out[i] = a[i] - b[i];
}

void vs_mul(int n, const float* a, const float* b, float* out) {
    for (int i = 0; i < n; ++i) out[i] = a[i] * b[i];
}

void vs_l1(int n, const float* a, const float* b, float* out) {
    for (int i = 0; i < n; ++i) out[i] = std::fabs(a[i]) + std::fabs(b[i]);
}

void vs_add_l1(int n, const float* a, const float* b, float* acc) {
    for (int i = 0; i < n; ++i) acc[i] = acc[i] + (std::fabs(a[i]) + std::fabs(b[i]));
}

void vs_powx(int n, const float* a, float exponent, float* out) {
    for (int i = 0; i < n; ++i) out[i] = powf(a[i], exponent);
}

namespace {

struct MagnitudeRange {
    float largest = 0.0f, smallest = std::numeric_limits<float>::infinity();
    bool nan = false, signed_ = false;  // any NaN; any sign bit set (-0 too)
};

// The first index at or after `i` whose magnitude is m (one that is there).
size_t find_magnitude_plain(const float* x, size_t i, float m) {
    while (std::fabs(x[i]) != m) ++i;
    return i;
}

MagnitudeRange magnitude_range_plain(const float* x, size_t n) {
    MagnitudeRange r;
    for (size_t i = 0; i < n; ++i) {
        const float a = std::fabs(x[i]);
        if (a != a) r.nan = true;
        if (std::signbit(x[i])) r.signed_ = true;
        if (a > r.largest) r.largest = a;
        if (a < r.smallest) r.smallest = a;
    }
    return r;
}

#if defined(__x86_64__) && defined(__GNUC__)
// Eight lanes, two vectors at a time; a NaN in any lane is noted, as the
// minimum and maximum instructions would pass over it, and so is any sign.
__attribute__((target("avx2"))) MagnitudeRange magnitude_range_avx2(const float* x, size_t n) {
    const __m256 sign = _mm256_set1_ps(-0.0f);
    __m256 hi0 = _mm256_setzero_ps(), hi1 = hi0;
    __m256 lo0 = _mm256_set1_ps(std::numeric_limits<float>::infinity()), lo1 = lo0;
    __m256 nan = _mm256_setzero_ps(), signs = _mm256_setzero_ps();
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m256 rawA = _mm256_loadu_ps(x + i), rawB = _mm256_loadu_ps(x + i + 8);
        signs = _mm256_or_ps(signs, _mm256_or_ps(rawA, rawB));
        const __m256 a = _mm256_andnot_ps(sign, rawA);
        const __m256 b = _mm256_andnot_ps(sign, rawB);
        hi0 = _mm256_max_ps(hi0, a);
        hi1 = _mm256_max_ps(hi1, b);
        lo0 = _mm256_min_ps(lo0, a);
        lo1 = _mm256_min_ps(lo1, b);
        nan = _mm256_or_ps(nan, _mm256_cmp_ps(a, b, _CMP_UNORD_Q));
    }
    alignas(32) float h[8], l[8];
    _mm256_store_ps(h, _mm256_max_ps(hi0, hi1));
    _mm256_store_ps(l, _mm256_min_ps(lo0, lo1));
    MagnitudeRange r = magnitude_range_plain(x + i, n - i);
    r.nan = r.nan || _mm256_movemask_ps(nan) != 0;
    r.signed_ = r.signed_ || _mm256_movemask_ps(signs) != 0;
    for (int k = 0; k < 8; ++k) {
        if (h[k] > r.largest) r.largest = h[k];
        if (l[k] < r.smallest) r.smallest = l[k];
    }
    return r;
}

__attribute__((target("avx2"))) size_t find_magnitude_avx2(const float* x, size_t n, float m) {
    const __m256 sign = _mm256_set1_ps(-0.0f), wanted = _mm256_set1_ps(m);
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 a = _mm256_andnot_ps(sign, _mm256_loadu_ps(x + i));
        const int hits = _mm256_movemask_ps(_mm256_cmp_ps(a, wanted, _CMP_EQ_OQ));
        if (hits != 0) return i + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(hits)));
    }
    return find_magnitude_plain(x, i, m);
}
#endif

bool has_avx2() {
    return kernels::vector_level() >= kernels::VectorLevel::Avx2;
}

MagnitudeRange magnitude_range(const float* x, size_t n) {
#if defined(__x86_64__) && defined(__GNUC__)
    if (has_avx2()) return magnitude_range_avx2(x, n);
#endif
    return magnitude_range_plain(x, n);
}

// NaNs are passed over: they come from no 8-bit picture, and a map holding
// one should still give its other elements' extremes (all NaN: the first).
MagnitudeExtremes magnitude_extremes_past_nans(const float* x, size_t n) {
    size_t hi = n, lo = n;
    for (size_t i = 0; i < n; ++i) {
        const float a = std::fabs(x[i]);
        if (a != a) continue;
        if (hi == n || a > std::fabs(x[hi])) hi = i;
        if (lo == n || a < std::fabs(x[lo])) lo = i;
    }
    if (hi == n) return {x[0], x[0]};
    return {x[hi], x[lo]};
}

size_t find_magnitude(const float* x, size_t n, float m) {
#if defined(__x86_64__) && defined(__GNUC__)
    if (has_avx2()) return find_magnitude_avx2(x, n, m);
#endif
    return find_magnitude_plain(x, 0, m);
}

}  // namespace

MagnitudeExtremes magnitude_extremes(const float* x, int n) {
    const size_t count = static_cast<size_t>(n);
    const MagnitudeRange r = magnitude_range(x, count);
    if (r.nan) return magnitude_extremes_past_nans(x, count);
    // Without a sign anywhere each magnitude is its element; with one, the
    // first element of that magnitude says whether it is +m or -m.
    if (!r.signed_) return {r.largest, r.smallest};
    return {x[find_magnitude(x, count, r.largest)], x[find_magnitude(x, count, r.smallest)]};
}

float dot_product(int n, const float* x, const float* y) {
    float lane[4][4] = {};
    int i = 0;
    for (; i + 16 <= n; i += 16)
        for (int v = 0; v < 4; ++v)
            for (int l = 0; l < 4; ++l)
                lane[v][l] = lane[v][l] + x[i + 4 * v + l] * y[i + 4 * v + l];
    float sum[4];
    for (int l = 0; l < 4; ++l) sum[l] = (lane[0][l] + lane[1][l]) + (lane[2][l] + lane[3][l]);
    for (; i + 4 <= n; i += 4)
        for (int l = 0; l < 4; ++l) sum[l] = sum[l] + x[i + l] * y[i + l];
    float dot = (sum[0] + sum[1]) + (sum[2] + sum[3]);
    for (; i < n; ++i) dot = dot + y[i] * x[i];
    return dot;
}

}  // namespace smartCrop
