// Relative thresholds and centre weighting of maps.
#ifndef SMARTCROP_ANALYSIS_MAP_THRESHOLDS_H
#define SMARTCROP_ANALYSIS_MAP_THRESHOLDS_H

#include "analysis/map_containers.h"

namespace smartCrop {

// Zeroes elements at or below `fraction` of the map's largest magnitude.
void threshold_relative(FloatMap& map, float fraction);
// Weights the columns in `bands` vertical bands, 1 in the centre falling to 0.2.
void weight_centre_bands(FloatMap& map, int bands);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_MAP_THRESHOLDS_H
