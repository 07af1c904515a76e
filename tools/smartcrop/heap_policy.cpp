#include "heap_policy.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>
#endif

namespace cli {

void keep_heap() {
#if defined(__GLIBC__)
    // One arena for all threads: an analysis makes too few allocations for
    // the lock to matter, and its freed buffers then serve the next image
    // whichever thread runs it. Buffers below 32 MiB stay in the heap (glibc
    // would otherwise map each one afresh and give every freed one back),
    // and freed memory is kept for the next image instead of being trimmed.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
}

void prefault_heap_for(uint32_t width, uint32_t height) {
#if defined(__GLIBC__) && defined(MADV_POPULATE_WRITE)
    // The library analyses a copy 640 pixels on its long side; its maps,
    // scratch and tables, and the host's sharpness map, come to some 90
    // bytes a pixel of that copy (31.7 MB live at 640 by 480, measured).
    if (width == 0 || height == 0) return;
    const double longSide = std::max(width, height), shortSide = std::min(width, height);
    const size_t workPixels =
        static_cast<size_t>(640.0 * std::max(1.0, 640.0 * shortSide / longSide));
    const size_t wanted = 90 * workPixels;
    static std::atomic<size_t> done{0};
    size_t before = done.load();
    if (wanted <= before || !done.compare_exchange_strong(before, wanted)) return;
    // Taken from the heap's top and given back at once: the top is never
    // trimmed (keep_heap), so the next allocations find it mapped. In
    // blocks well below the mapping threshold, so that none is mapped on
    // its own; freed last first, each joins the top again.
    constexpr size_t kBlock = 8u << 20, kPage = 4096;
    std::vector<void*> blocks;
    for (size_t left = wanted - before; left > 0;) {
        const size_t n = std::min(left, kBlock);
        void* block = std::malloc(n);
        if (block == nullptr) break;
        blocks.push_back(block);
        const uintptr_t first = (reinterpret_cast<uintptr_t>(block) + kPage - 1) & ~(kPage - 1);
        const uintptr_t last = (reinterpret_cast<uintptr_t>(block) + n) & ~(kPage - 1);
        if (last > first)
            madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE);
        left -= n;
    }
    for (auto it = blocks.rbegin(); it != blocks.rend(); ++it) std::free(*it);
#else
    (void)width;
    (void)height;
#endif
}

}  // namespace cli
