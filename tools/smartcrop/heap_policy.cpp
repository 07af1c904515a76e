#include "heap_policy.h"

#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
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

}  // namespace cli
