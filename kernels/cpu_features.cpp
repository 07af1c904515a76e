#include "kernels/cpu_features.h"

#include <atomic>

namespace smartCrop::kernels {

namespace {

std::atomic<bool> forced{false};

// Asked on first use rather than while the library loads, when the
// processor's features may not have been read yet.
VectorLevel processor_level() {
#if defined(__x86_64__) && defined(__GNUC__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f")) return VectorLevel::Avx512;
    if (__builtin_cpu_supports("avx2")) return VectorLevel::Avx2;
    return VectorLevel::Sse2;  // every x86-64 has it
#else
    return VectorLevel::Portable;
#endif
}

}  // namespace

VectorLevel vector_level() {
    static const VectorLevel best = processor_level();
    return forced.load(std::memory_order_relaxed) ? VectorLevel::Portable : best;
}

void force_portable_paths(bool portable) {
    forced.store(portable, std::memory_order_relaxed);
}

}  // namespace smartCrop::kernels
