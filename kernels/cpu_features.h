// The one question every vectorised path asks: how wide may it go. The
// processor is read once; a switch forces every site onto its portable path,
// so that the test suite runs both ways and no path ships untested.
#ifndef SMARTCROP_KERNELS_CPU_FEATURES_H
#define SMARTCROP_KERNELS_CPU_FEATURES_H

namespace smartCrop::kernels {

enum class VectorLevel { Portable = 0, Sse2 = 1, Avx2 = 2, Avx512 = 3 };

// The widest level the processor offers, or Portable while forced.
VectorLevel vector_level();

// Every vectorised site takes its portable path while set. Not part of the
// binary interface: for tests and benchmarks inside the build.
void force_portable_paths(bool portable);

}  // namespace smartCrop::kernels

#endif  // SMARTCROP_KERNELS_CPU_FEATURES_H
