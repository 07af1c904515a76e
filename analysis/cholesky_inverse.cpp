#include "analysis/cholesky_inverse.h"

#include <cmath>

#include "analysis/vector_math.h"

namespace smartCrop {

namespace {

// Column-major: row i, column j.
inline float& at(float* a, int n, int i, int j) {
    return a[i + j * n];
}

bool factor_lower(float* a, int n) {
    for (int j = 0; j < n; ++j) {
        // The row so far against itself, in order from a zero start.
        float dot = 0.0f;
        for (int k = 0; k < j; ++k) dot = dot + at(a, n, j, k) * at(a, n, j, k);
        const float pivot = at(a, n, j, j) - dot;
        if (!(pivot > 0.0f)) return false;  // NaN too
        const float ljj = std::sqrt(pivot);
        at(a, n, j, j) = ljj;
        // The column below, less its rows' products with this row, times the
        // pivot's reciprocal (a multiplication, not a division).
        const float reciprocal = 1.0f / ljj;
        for (int i = j + 1; i < n; ++i) {
            float sum = 0.0f;
            for (int k = 0; k < j; ++k) sum = sum + at(a, n, i, k) * at(a, n, j, k);
            at(a, n, i, j) = (at(a, n, i, j) - sum) * reciprocal;
        }
    }
    return true;
}

// L^-1 in place, from the last column back.
void invert_lower(float* a, int n) {
    for (int j = n - 1; j >= 0; --j) {
        const float inverse = 1.0f / at(a, n, j, j);
        at(a, n, j, j) = inverse;
        // The column below times the inverted block below-right (a
        // triangular product from its last row up), then times -inverse.
        float* x = &at(a, n, j + 1, j);
        const int m = n - j - 1;
        for (int step = 0; step < m; ++step) {
            const int r = m - 1 - step;
            for (int k = r + 1; k < m; ++k) x[k] = x[k] + x[r] * at(a, n, j + 1 + k, j + 1 + r);
            x[r] = x[r] * at(a, n, j + 1 + r, j + 1 + r);
        }
        for (int k = 0; k < m; ++k) x[k] = x[k] * -inverse;
    }
}

// W^T W in place of the lower triangular W.
void lower_gram(float* a, int n) {
    for (int i = 0; i < n; ++i) {
        const float wii = at(a, n, i, i);
        for (int k = 0; k <= i; ++k) at(a, n, i, k) = at(a, n, i, k) * wii;
        if (i == n - 1) break;
        const float* below = &at(a, n, i + 1, i);
        const int m = n - i - 1;
        at(a, n, i, i) = at(a, n, i, i) + dot_product(m, below, below);
        for (int k = 0; k < i; ++k) {
            float sum = 0.0f;
            for (int r = 0; r < m; ++r) sum = sum + at(a, n, i + 1 + r, k) * below[r];
            at(a, n, i, k) = at(a, n, i, k) + sum;
        }
    }
}

}  // namespace

bool cholesky_inverse_lower(float* a, int n) {
    if (!factor_lower(a, n)) return false;
    invert_lower(a, n);
    lower_gram(a, n);
    return true;
}

}  // namespace smartCrop
