// Block means of a crop on square grids, read from summed-area tables: the
// input vector of the aesthetic model.
#ifndef SMARTCROP_SOURCE_POOLGRID_H
#define SMARTCROP_SOURCE_POOLGRID_H

#include <cstddef>

#include "analysis/summed_area_table.h"

namespace smartCrop {

// The largest grid pool_cells takes.
constexpr int kMaxGrid = 16;

// The L x L cell means (L <= kMaxGrid) of the crop (work coordinates) on one
// table, row by row from `out`; returns the end. Neighbouring cells share
// their boundary line.
float* pool_cells(const DoubleMap& table, int L, const WorkRect& crop, float* out);

// For each grid size of `gridsA` on table `a`, then of `gridsB` on `b`.
template <size_t NA, size_t NB>
void pool_grid(const DoubleMap& a, const int (&gridsA)[NA], const DoubleMap& b,
               const int (&gridsB)[NB], const WorkRect& crop, float* out) {
    for (int L : gridsA) out = pool_cells(a, L, crop, out);
    for (int L : gridsB) out = pool_cells(b, L, crop, out);
}

// The grids of the aesthetic model: saliency on 4 and 8, edges on 4, 8 and 12.
constexpr int kSaliencyGrids[] = {4, 8};
constexpr int kEdgeGrids[] = {4, 8, 12};
static_assert(kSaliencyGrids[1] <= kMaxGrid && kEdgeGrids[2] <= kMaxGrid);

template <size_t N>
constexpr int cell_count(const int (&grids)[N]) {
    int n = 0;
    for (int L : grids) n += L * L;
    return n;
}
// The length of the model's feature vector, and of every table of the model.
constexpr int kPooledFeatureCount = cell_count(kSaliencyGrids) + cell_count(kEdgeGrids);

inline void pool_model_features(const DoubleMap& saliency, const DoubleMap& edges,
                                const WorkRect& crop, float* out) {
    pool_grid(saliency, kSaliencyGrids, edges, kEdgeGrids, crop, out);
}

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_POOLGRID_H
