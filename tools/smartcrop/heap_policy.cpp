#include "heap_policy.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace cli {

void use_huge_page_heap(size_t bytes) {
#if defined(__GLIBC__) && defined(MADV_HUGEPAGE)
    constexpr size_t kChunk = 16u << 20, kHuge = 2u << 20;
    // One arena for all threads: the advice covers the main heap only, and
    // an analysis makes too few allocations for the lock to matter. Buffers
    // below 32 MiB stay in it (glibc would otherwise map each one afresh,
    // and give every freed one back), and freed memory is kept for the next
    // image instead of being trimmed.
    if (mallopt(M_ARENA_MAX, 1) != 1 || mallopt(M_MMAP_THRESHOLD, 32 << 20) != 1 ||
        mallopt(M_TRIM_THRESHOLD, 1 << 30) != 1)
        return;
    const uintptr_t start = reinterpret_cast<uintptr_t>(sbrk(0));
    // Grown through malloc so that glibc owns the space; freed chunks join
    // its top, untouched apart from their headers.
    std::vector<void*> chunks;
    for (size_t grown = 0; grown < bytes; grown += kChunk) {
        void* p = std::malloc(kChunk);
        if (p == nullptr) break;
        chunks.push_back(p);
    }
    for (auto it = chunks.rbegin(); it != chunks.rend(); ++it) std::free(*it);
    const uintptr_t end = reinterpret_cast<uintptr_t>(sbrk(0));
    const uintptr_t first = (start + kHuge - 1) & ~(kHuge - 1), last = end & ~(kHuge - 1);
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)bytes;
#endif
}

}  // namespace cli
