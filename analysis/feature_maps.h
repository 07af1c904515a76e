// The seven low-level maps of one work-size image: frame contrast with and
// without the per-channel terms plus saliency, coarse edges gated by
// saliency, and the distance from each of the four border strips.
#ifndef SMARTCROP_ANALYSIS_FEATURE_MAPS_H
#define SMARTCROP_ANALYSIS_FEATURE_MAPS_H

#include <cstdint>
#include <vector>

#include "CommonStructures.h"

namespace smartCrop {

// `outputs` are seven caller-owned buffers of width * height floats: saliency,
// edges, contrast, then the top, bottom, left and right strip distances.
// `rectangles` are in work coordinates with inclusive ends.
void extract_feature_maps(const uint8_t* pixels, int pixelStride, int width, int height,
                          int channels, float* const outputs[7], int fullOutputs,
                          const std::vector<RectOfInterest>& rectangles,
                          const SmartCropParams& params);

// Sets the rectangle's pixels of a width x height plane to `value`.
void paint_rect(float* plane, int rowStride, int height, const RectOfInterest& rect, float value);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_FEATURE_MAPS_H
