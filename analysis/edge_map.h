// Gradient energy at coarse scales only: the image is shrunk to a few
// percent, differentiated there, smoothed and brought back, so that broad
// structure counts and fine texture does not.
#ifndef SMARTCROP_ANALYSIS_EDGE_MAP_H
#define SMARTCROP_ANALYSIS_EDGE_MAP_H

#include <vector>

#include "analysis/plane_image.h"

namespace smartCrop {

void multi_scale_edge_map(const PlaneImage& image, PlaneImage& out,
                          const std::vector<float>& scales, bool normaliseResult,
                          bool normaliseRows);
struct LevelSize {
    int width, height;
};
// The pyramid levels of a width x height image: one per scale whose level is
// at least one pixel on both sides.
std::vector<LevelSize> edge_level_sizes(int width, int height, const std::vector<float>& scales);

// Bilinear resize of every plane to the target's own size.
void resize_planes(const PlaneImage& source, PlaneImage& target);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_EDGE_MAP_H
