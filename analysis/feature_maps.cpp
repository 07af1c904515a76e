#include "analysis/feature_maps.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "analysis/edge_map.h"
#include "analysis/frame_contrast.h"
#include "analysis/plane_image.h"
#include "saliency/mbd_saliency.h"

namespace smartCrop {

namespace {

// How thick the background strips are: for the seeded contrasts, and for
// the per-strip maps the border costs read.
constexpr float kSeedFraction = 0.25f;
constexpr float kStripFraction = 0.2f;

}  // namespace

void paint_rect(float* plane, int rowStride, int height, const RectOfInterest& rect, float value) {
    // Clipped to the plane: a host's rectangle may reach outside its image.
    const int top = std::max(rect.top, 0);
    const int bottom = std::min(rect.bottom, height - 1);
    const int left = std::max(rect.left, 0);
    const int right = std::min(rect.right, rowStride - 1);
    if (top > bottom || left > right) return;
    for (int y = top; y <= bottom; ++y) {
        float* row = plane + static_cast<size_t>(y) * rowStride;
        std::fill(row + left, row + right + 1, value);
    }
}

void extract_feature_maps(const uint8_t* pixels, int pixelStride, int width, int height,
                          int channels, float* const outputs[7], int fullOutputs,
                          const std::vector<RectOfInterest>& rectangles,
                          const SmartCropParams& params) {
    const int W = width, H = height, K = channels, N = W * H;
    // The saliency stage views the buffer as three bytes a pixel.
    if (pixelStride != 3)
        throw std::invalid_argument("extract_feature_maps(): pixel stride must be 3");

    PlaneImage firstEstimate = wrap_plane(W, H, outputs[0]);
    ScopedPlaneImage colourPlanes(W, H, K);
    if (K == 1) {
        for (int i = 0; i < N; ++i) colourPlanes->planes[0][i] = pixels[i];
    } else {
        for (int c = 0; c < std::min(K, 3); ++c) {
            float* plane = colourPlanes->planes[c];
            for (int i = 0; i < N; ++i) plane[i] = pixels[static_cast<size_t>(i) * pixelStride + c];
        }
    }

    ScopedPlaneImage secondEstimate(W, H, 1);
    ScopedPlaneImage smoothPlanes(W, H, K);
    smooth_planes(*colourPlanes, *smoothPlanes, static_cast<double>(0.7f));
    // Only the frame strips are ever summed: their lines are all the tables keep.
    build_region_integrals(*smoothPlanes, frame_strip_lines(W, H, {kSeedFraction, kStripFraction}));

    const cv::Mat colour(H, W, CV_8UC3, const_cast<uint8_t*>(pixels));
    const cv::Mat saliencyMat = compute_mbd_saliency(colour, false);
    PlaneImage saliency = wrap_plane(W, H, const_cast<float*>(saliencyMat.ptr<float>(0)));

    top_seeded_contrast(*smoothPlanes, firstEstimate, kSeedFraction, false);
    bottom_seeded_contrast(*smoothPlanes, *secondEstimate, kSeedFraction, false);

    if (fullOutputs == 1) {
        const float* first = firstEstimate.planes[0];
        const float* second = secondEstimate->planes[0];
        for (int i = 0; i < N; ++i) outputs[2][i] = std::min(first[i], second[i]);
        PlaneImage contrast = wrap_plane(W, H, outputs[2]);
        accumulate_image(saliency, contrast);
        normalize_image(contrast);
    }

    if (K > 1) {
        ScopedPlaneImage channelScratch(W, H, 1);
        const float alpha = 1.0f / static_cast<float>(K);
        // Each channel's contrast normalised on its way into the sum.
        for (const PlaneImage& view : split_channels(*smoothPlanes)) {
            top_seeded_contrast(view, *channelScratch, kSeedFraction, false, false);
            scale_accumulate_normalised(*channelScratch, firstEstimate, alpha);
            bottom_seeded_contrast(view, *channelScratch, kSeedFraction, false, false);
            scale_accumulate_normalised(*channelScratch, *secondEstimate, alpha);
        }
    }

    normalize_image(*secondEstimate);
    normalize_image(firstEstimate);
    {
        float* first = firstEstimate.planes[0];
        const float* second = secondEstimate->planes[0];
        for (int i = 0; i < N; ++i) first[i] = std::min(second[i], first[i]);
    }
    accumulate_image(saliency, firstEstimate);
    normalize_image(firstEstimate);

    const bool haveRects = !rectangles.empty();
    if (params.saliencyFill >= 0 && haveRects) {
        for (const RectOfInterest& r : rectangles) {
            paint_rect(outputs[0], W, H, r, params.saliencyFill);
            if (fullOutputs == 1) paint_rect(outputs[2], W, H, r, params.saliencyFill);
        }
        if (params.saliencyFill > 1.0f) {
            normalize_image(firstEstimate);
            if (fullOutputs == 1) {
                PlaneImage contrast = wrap_plane(W, H, outputs[2]);
                normalize_image(contrast);
            }
        }
    }
    normalize_image(firstEstimate);
    if (fullOutputs != 1) return;

    PlaneImage edges = wrap_plane(W, H, outputs[1]);
    multi_scale_edge_map(*colourPlanes, edges, {0.04f, 0.2f}, false, false);
    multiply_images(edges, firstEstimate, edges);
    normalize_image(edges);
    if (params.edgeFill >= 0 && haveRects) {
        for (const RectOfInterest& r : rectangles) paint_rect(outputs[1], W, H, r, params.edgeFill);
        if (params.edgeFill > 1.0f) normalize_image(edges);
    }

    PlaneImage strips[4] = {wrap_plane(W, H, outputs[3]), wrap_plane(W, H, outputs[4]),
                            wrap_plane(W, H, outputs[5]), wrap_plane(W, H, outputs[6])};
    per_strip_contrast(*smoothPlanes, strips, kStripFraction, true);
    if (params.borderFill >= 0 && haveRects) {
        for (const RectOfInterest& r : rectangles) {
            for (int k = 0; k < 4; ++k) paint_rect(outputs[3 + k], W, H, r, params.borderFill);
        }
    }
}

}  // namespace smartCrop
