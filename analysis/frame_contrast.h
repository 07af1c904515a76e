// How far each pixel's colour lies from the colours of the image's frame:
// strips along the edges model the background, and every pixel gets its
// Mahalanobis distance from such a model.
#ifndef SMARTCROP_ANALYSIS_FRAME_CONTRAST_H
#define SMARTCROP_ANALYSIS_FRAME_CONTRAST_H

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "analysis/plane_image.h"

namespace smartCrop {

struct FrameStrips {
    RegionRect top, bottom, left, right;
};

// The four strips of a width x height image, `fraction` of the short side thick.
FrameStrips frame_strips(int width, int height, float fraction);
// The summed-area table lines that the strips of these fractions read.
TableLines frame_strip_lines(int width, int height, std::initializer_list<float> fractions);

// Distance to the top strip plus distance to the other three pooled,
// normalised unless `normaliseResult` is false.
void top_seeded_contrast(const PlaneImage& image, PlaneImage& out, float fraction,
                         bool innerNormalise, bool normaliseResult = true);
// The same with the bottom strip standing alone.
void bottom_seeded_contrast(const PlaneImage& image, PlaneImage& out, float fraction,
                            bool innerNormalise, bool normaliseResult = true);
// Distance to each strip alone, into outs[0..3] in the order top, bottom, left, right.
void per_strip_contrast(const PlaneImage& image, PlaneImage* outs, float fraction,
                        bool innerNormalise);

// Each pixel's distance to the model into `out`, normalised or not; with
// `add`, added to what `out` holds (and not normalised).
void mahalanobis_map(const PlaneImage& image, PlaneImage& out, const PlaneImage& mean,
                     const PlaneImage& covariance, bool normalise, bool add = false);
void scalar_distance_map(const PlaneImage& image, PlaneImage& out, const PlaneImage& mean,
                         const PlaneImage& variance, bool normalise, bool add = false);
// Inverse of matrix + ridge * I by Cholesky; a diagonal fallback when even the
// ridge does not make it positive definite.
void regularised_inverse(const float* matrix, float* out, int n, float ridge);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_FRAME_CONTRAST_H
