// Block means of a crop on square grids, read from summed-area tables: the
// input vector of the aesthetic model.
#ifndef SMARTCROP_SOURCE_POOLGRID_H
#define SMARTCROP_SOURCE_POOLGRID_H

#include <vector>

#include "analysis/summed_area_table.h"

namespace smartCrop {

// For each grid size L of `gridsA` on table `a`, then of `gridsB` on `b`,
// L x L cell means of the crop r0..r1, c0..c1 (work coordinates), row by
// row into `out`. Neighbouring cells share their boundary line.
void pool_grid(const DoubleMap& a, const std::vector<int>& gridsA, const DoubleMap& b,
               const std::vector<int>& gridsB, int r0, int c0, int r1, int c1, float* out);

// The feature vector of the model: saliency on 4 and 8, edges on 4, 8 and 12.
inline void pool_model_features(const DoubleMap& saliency, const DoubleMap& edges, int r0, int c0,
                                int r1, int c1, float* out) {
    pool_grid(saliency, {4, 8}, edges, {4, 8, 12}, r0, c0, r1, c1, out);
}

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_POOLGRID_H
