// The 64-byte aligned planes and the elementwise single-precision loops of
// the analysis, in one place. The loops are plain so that the compiler
// vectorises them; in and out may be the same array.
#ifndef SMARTCROP_ANALYSIS_VECTOR_MATH_H
#define SMARTCROP_ANALYSIS_VECTOR_MATH_H

#include <cstddef>

namespace smartCrop {

// 64-byte aligned floats; throws std::bad_alloc instead of returning null.
float* aligned_floats(size_t count);
void aligned_free(void* p);

void vs_add(int n, const float* a, const float* b, float* out);
void vs_sub(int n, const float* a, const float* b, float* out);
void vs_mul(int n, const float* a, const float* b, float* out);
void vs_powx(int n, const float* a, float exponent, float* out);
// |a| + |b|, and acc + (|a| + |b|): a gradient's L1 magnitude, alone or summed
// over channels, in one pass instead of three or four.
void vs_l1(int n, const float* a, const float* b, float* out);
void vs_add_l1(int n, const float* a, const float* b, float* acc);

// The elements of the largest and of the smallest magnitude among x[0..n),
// n > 0, the first of each where several share it: x[isamax] and x[isamin]
// in BLAS's terms, NaNs passed over (all NaN: the first element). One pass
// over the data, and a search only where some element carries a sign (then
// whether +m or -m comes first matters).
struct MagnitudeExtremes {
    float largest, smallest;
};
MagnitudeExtremes magnitude_extremes(const float* x, int n);

// x . y in one fixed order, whatever the processor: four accumulators of four
// lanes take sixteen elements a round (each lane adds its product rounded),
// then (a0 + a1) + (a2 + a3), then a lane pair at a time, (l0 + l1) + (l2 +
// l3); what a round of four leaves, one element at a time. It is the order
// of OpenBLAS's SSE3 kernel, which made the library's answers until its
// kernel choice was found to vary them with the processor.
float dot_product(int n, const float* x, const float* y);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_VECTOR_MATH_H
