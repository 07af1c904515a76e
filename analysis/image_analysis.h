// What the analysis of one image yields, once: the maps and summed-area
// tables the crop engine reads, their totals, and the copies the face step
// reads. A plain result; the stages that fill it are named functions.
#ifndef SMARTCROP_ANALYSIS_IMAGE_ANALYSIS_H
#define SMARTCROP_ANALYSIS_IMAGE_ANALYSIS_H

#include <vector>

#include "CommonStructures.h"
#include "SmartCrop.h"
#include "analysis/map_containers.h"

namespace smartCrop {

// The analysis works at 640 pixels on the long side; faces are looked for
// on a copy of 1024.
constexpr int kWorkSize = 640;
constexpr int kHighSize = 1024;

struct AnalysisSizes {
    float workScale, highScale;
    int workWidth, workHeight, highWidth, highHeight;
};
// Both sizes from the source's, rounded; small sources are enlarged.
AnalysisSizes analysis_sizes(int sourceWidth, int sourceHeight);

struct ImageAnalysis {
    int32_t sourceWidth = 0, sourceHeight = 0;
    int32_t workWidth = 0, workHeight = 0;
    float workScale = 0.0f, highScale = 0.0f;
    int32_t borderStripWidth = 0;
    float saliencyMaskTotal = 0.0f;
    float contrastTotal = 0.0f;
    float gradientTotal = 0.0f;
    float contrastPeakTotal = 0.0f;
    float borderInverseMeans[4] = {0, 0, 0, 0};  // top, bottom, left, right
    ByteImage workImage;                         // 4 bytes a pixel
    ByteImage highImage;  // red, green, blue; empty unless faces may be detected
    FloatMap saliencyMap, edgeMap, saliencyMask, contrastMap, contrastPeakMap, gradientMap;
    DoubleMap saliencyIntegral, edgeIntegral, saliencyMaskIntegral, contrastIntegral,
        contrastPeakIntegral, gradientIntegral;
    FloatMap borderMaps[4];
    DoubleMap borderIntegrals[4];

    // False after the extreme-aspect message: the image was too thin to analyse.
    bool has_maps() const { return workWidth >= 1 && workHeight >= 1; }
    // A crop of the source in work coordinates, clamped into the maps.
    WorkRect work_rect(const CropRect& crop) const;
};

// Queries read the tables, the totals and the high-resolution copy. The work
// image and the maps the tables are built from are freed as the tables are
// built (each map as soon as its table is there, so the maps and all ten
// tables never live together), unless a caller looks at them.
enum class KeepMaps { No, Yes };

// The whole analysis. `params` gives the fills that paint `rects` (source
// pixels) into the maps.
void analyze_image(const IImage& source, const SmartCropParams& params,
                   const std::vector<RectOfInterest>& rects, ImageAnalysis& out,
                   KeepMaps keep = KeepMaps::No);

// Only face detection reads the high-resolution copy, and it runs only for
// parameters that allow it, which are fixed for the object's life: without
// them the copy would be 2 to 3 MB held for nothing.
enum class HighCopy { No, Yes };

// The stages, in order.
void resize_sources(const uint8_t* pixels, ImageAnalysis& a, HighCopy high);
void extract_maps(const SmartCropParams& params, const std::vector<RectOfInterest>& rects,
                  ImageAnalysis& a);
void gradient_map(const ByteImage& workImage, FloatMap& gradientMap);
void build_tables(ImageAnalysis& a, KeepMaps keep);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_IMAGE_ANALYSIS_H
