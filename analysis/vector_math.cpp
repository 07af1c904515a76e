#include "analysis/vector_math.h"

#include <cmath>
#include <cstdlib>
#include <new>

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

}  // namespace smartCrop
