// What every answer of the public interface must satisfy, for the fuzz
// targets: defined codes, a list exactly on success, crops inside the image
// and, for suggestions, the hard rectangles honoured.
#ifndef SMARTCROP_TESTS_FUZZ_FUZZ_CHECKS_H
#define SMARTCROP_TESTS_FUZZ_FUZZ_CHECKS_H

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "SmartCrop.h"

// Names the broken condition before stopping, so that a crash explains itself.
#define require(condition) \
    ((condition)           \
         ? void(0)         \
         : (std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition), std::abort()))

inline void check_code(smartCrop::eErrorCode code) {
    switch (code) {
        case smartCrop::eSuccess:
        case smartCrop::eUnexpected:
        case smartCrop::eInvalidRequest:
        case smartCrop::eOutOfMemory:
        case smartCrop::eModelMissing:
        case smartCrop::eNotInitialised:
            return;
    }
    require(!"an undefined error code");
}

// Checks and releases a query's answer. `hard` are the active hard
// rectangles, honoured by suggestions (not by the list of all crops).
inline void check_answer(smartCrop::eErrorCode code, smartCrop::ICropRects* out, uint64_t width,
                         uint64_t height, const std::vector<smartCrop::RectOfInterest>* hard) {
    check_code(code);
    require((code == smartCrop::eSuccess) == (out != nullptr));
    if (out == nullptr) return;
    for (uint64_t i = 0; i < out->GetCount(); ++i) {
        const smartCrop::CropRect& c = out->GetRects()[i];
        require(c.left >= 0 && c.top >= 0 && c.left <= c.right && c.top <= c.bottom &&
                static_cast<uint64_t>(c.right) < width && static_cast<uint64_t>(c.bottom) < height);
        for (const smartCrop::RectOfInterest* r = hard ? hard->data() : nullptr;
             hard && r != hard->data() + hard->size(); ++r) {
            const bool overlaps = c.left <= r->right && c.right >= r->left && c.top <= r->bottom &&
                                  c.bottom >= r->top;
            const bool contains = c.left <= r->left && c.right >= r->right && c.top <= r->top &&
                                  c.bottom >= r->bottom;
            require(r->kind == smartCrop::eRoiRequired ? contains : !overlaps);
        }
    }
    out->Release();
}

#endif  // SMARTCROP_TESTS_FUZZ_FUZZ_CHECKS_H
