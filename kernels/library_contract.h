// What the library does with what a host hands it and what it hands back,
// written once where both sides read it: the engine applies these rules,
// and a host that works on the library's lists undoes or repeats them from
// here rather than from its own copy.
#ifndef SMARTCROP_KERNELS_LIBRARY_CONTRACT_H
#define SMARTCROP_KERNELS_LIBRARY_CONTRACT_H

#include <cmath>
#include <cstdint>

#include "kernels/rect_geometry.h"

namespace smartCrop::contract {

// A face counts as the detector's box widened this many times about its
// centre (forehead, hair and chin belong to a face's crop). The faces
// GetRectsOfInterest lists are the widened boxes.
constexpr float kFaceWidening = 1.5f;

// A crop honours a hard rectangle when a required one lies wholly inside it
// and a forbidden one wholly outside. GetSuggestions drops every candidate
// that breaks one; GetAllCrops lists them all, so a host ranking that list
// applies this itself. Judged by the covered share in single precision, as
// the engine ranks.
template <class Crop, class Rect>
bool honours_hard_rect(const Crop& crop, const Rect& rect, bool required) {
    const float inside = covered_fraction(crop, rect);
    return required ? inside == 1.0f : inside == 0.0f;
}

// The detector's box that a widened face rectangle of the library stands
// for, in inclusive pixels (the inverse of the widening, up to rounding).
template <class Box>
Box tight_face(const Box& widened) {
    const double cx = (widened.left + widened.right) / 2.0,
                 cy = (widened.top + widened.bottom) / 2.0;
    const double hw = (widened.right - widened.left + 1) / (2.0 * kFaceWidening),
                 hh = (widened.bottom - widened.top + 1) / (2.0 * kFaceWidening);
    Box tight = widened;
    tight.left = static_cast<int32_t>(std::lround(cx - hw + 0.5));
    tight.top = static_cast<int32_t>(std::lround(cy - hh + 0.5));
    tight.right = static_cast<int32_t>(std::lround(cx + hw - 0.5));
    tight.bottom = static_cast<int32_t>(std::lround(cy + hh - 0.5));
    return tight;
}

}  // namespace smartCrop::contract

#endif  // SMARTCROP_KERNELS_LIBRARY_CONTRACT_H
