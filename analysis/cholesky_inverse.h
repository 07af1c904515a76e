// The inverse of a small symmetric positive definite matrix through its
// Cholesky factor, written out instead of asked of LAPACK: the library's
// colour models must not change with the kernels the BLAS library picks for
// the processor it finds.
#ifndef SMARTCROP_ANALYSIS_CHOLESKY_INVERSE_H
#define SMARTCROP_ANALYSIS_CHOLESKY_INVERSE_H

namespace smartCrop {

// In place on the lower triangle of the column-major n by n array `a` (the
// upper one is neither read nor written): L with L L^T = A, then L^-1, then
// L^-T L^-1 = A^-1. false, with `a` half-done, when a pivot is not positive.
// The steps and their roundings are those of OpenBLAS's unblocked potf2,
// trti2 and lauu2 on its SSE3 kernels, which made the library's earlier
// answers; up to three channels exactly so (a test holds them to it).
bool cholesky_inverse_lower(float* a, int n);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_CHOLESKY_INVERSE_H
