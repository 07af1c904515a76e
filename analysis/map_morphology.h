// Erosion and dilation of maps with rectangular kernels.
#ifndef SMARTCROP_ANALYSIS_MAP_MORPHOLOGY_H
#define SMARTCROP_ANALYSIS_MAP_MORPHOLOGY_H

#include "analysis/map_containers.h"

namespace smartCrop {

void erode_map(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight);
void dilate_map(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_MAP_MORPHOLOGY_H
