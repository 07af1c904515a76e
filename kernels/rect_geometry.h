// Areas and overlaps of rectangles with inclusive ends (any record with
// left, right, top and bottom), for the crop engine and the host alike.
// Products are taken in 64 bits so that a host's extreme coordinates cannot
// overflow; the engine's ratios are single precision, as it ranks by them.
#ifndef SMARTCROP_KERNELS_RECT_GEOMETRY_H
#define SMARTCROP_KERNELS_RECT_GEOMETRY_H

#include <algorithm>
#include <cstdint>

namespace smartCrop {

template <class A, class B>
int64_t intersection_area(const A& a, const B& b) {
    const int64_t iw =
        std::max<int64_t>(0, int64_t{std::min(a.right, b.right)} - std::max(a.left, b.left) + 1);
    const int64_t ih =
        std::max<int64_t>(0, int64_t{std::min(a.bottom, b.bottom)} - std::max(a.top, b.top) + 1);
    return iw * ih;
}

template <class R>
int64_t pixel_area(const R& r) {
    return (int64_t{r.right} - r.left + 1) * (int64_t{r.bottom} - r.top + 1);
}

// The share of b that lies inside a.
template <class A, class B>
float covered_fraction(const A& a, const B& b) {
    return static_cast<float>(intersection_area(a, b)) / static_cast<float>(pixel_area(b));
}

// Intersection over union, in single precision (the engine's) and double.
template <class A, class B>
double overlap_iou_exact(const A& a, const B& b) {
    const double inter = static_cast<double>(intersection_area(a, b));
    return inter / (static_cast<double>(pixel_area(a) + pixel_area(b)) - inter);
}
template <class A, class B>
float overlap_iou(const A& a, const B& b) {
    const int64_t inter = intersection_area(a, b);
    return static_cast<float>(inter) / static_cast<float>(pixel_area(a) + pixel_area(b) - inter);
}

}  // namespace smartCrop

#endif  // SMARTCROP_KERNELS_RECT_GEOMETRY_H
