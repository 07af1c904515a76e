// The program's heap on 2 MiB pages. An analysis writes some 40 MB of fresh
// maps and tables; on 4 KiB pages that is over ten thousand page faults, a
// tenth of a 12-megapixel run. Where the kernel offers transparent huge
// pages on request, one fault maps 512 pages.
#ifndef SMARTCROP_TOOLS_SMARTCROP_HEAP_POLICY_H
#define SMARTCROP_TOOLS_SMARTCROP_HEAP_POLICY_H

#include <cstddef>

namespace cli {

// Call first in main, before the heap grows: keeps every buffer below 32 MiB
// in one heap that is never trimmed, grows that heap by `bytes` (address
// space only) and asks for huge pages there. A no-op where the C library or
// the kernel lacks the means; the program's answers are the same either way.
void use_huge_page_heap(size_t bytes);

}  // namespace cli

#endif  // SMARTCROP_TOOLS_SMARTCROP_HEAP_POLICY_H
