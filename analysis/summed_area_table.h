// Summed-area tables of maps, and sums and means over their rectangles.
#ifndef SMARTCROP_ANALYSIS_SUMMED_AREA_TABLE_H
#define SMARTCROP_ANALYSIS_SUMMED_AREA_TABLE_H

#include "analysis/map_containers.h"

namespace smartCrop {

// The summed-area tables of several maps of one size at once: each entry is
// (above + left - above-left) + the map's value in double precision, the
// first row and column from their one neighbour; the independent running
// sums interleave instead of waiting on one another.
void integral_images(const FloatMap* const* maps, DoubleMap* const* tables, int count);
// Sum over rows r0..r1 and columns c0..c1 inclusive; bounds are the caller's.
// Inline: the crop engine calls it over a thousand times per candidate.
inline double region_sum(const DoubleMap& t, int r0, int r1, int c0, int c1) {
    const double a = t.at(r1, c1);
    const double b = r0 >= 1 ? t.at(r0 - 1, c1) : 0.0;
    const double c = c0 >= 1 ? t.at(r1, c0 - 1) : 0.0;
    const double d = (r0 >= 1 && c0 >= 1) ? t.at(r0 - 1, c0 - 1) : 0.0;
    return a - b - c + d;
}

inline double region_mean(const DoubleMap& t, int r0, int r1, int c0, int c1) {
    return region_sum(t, r0, r1, c0, c1) / ((r1 - r0 + 1) * (c1 - c0 + 1));
}

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_SUMMED_AREA_TABLE_H
