// The per-image object: everything the crop engine reads, computed once from
// the source image, and the crop engine's own per-query state.
#ifndef SMARTCROP_ANALYSIS_CROP_ANALYZER_H
#define SMARTCROP_ANALYSIS_CROP_ANALYZER_H

#include <memory>
#include <vector>

#include "CommonStructures.h"
#include "SmartCrop.h"
#include "analysis_maps.h"

namespace smartCrop {

class CropAnalyzer {
public:
    static constexpr int kWorkSize = 640;
    static constexpr int kHighSize = 1024;
    static constexpr int kFeatureCount = 304;

    // Copies the parameters and the rectangles, then analyses the image.
    CropAnalyzer(IImage& image, const SmartCropParams& params,
                 const std::vector<RectOfInterest>& rects);

    struct Sizes {
        float workScale, highScale;
        int workWidth, workHeight, highWidth, highHeight;
    };
    // Work size 640 and high size 1024 on the long side, both from the source.
    static Sizes sizes_for(int sourceWidth, int sourceHeight);

    // False after the extreme-aspect message: the image was too thin to analyse.
    bool has_maps() const { return workWidth >= 1 && workHeight >= 1; }

    bool facesDone = false;
    int32_t workWidth = 0;
    int32_t workHeight = 0;
    int32_t sourceWidth = 0;
    int32_t sourceHeight = 0;
    std::unique_ptr<float[]> scoringScratch;
    int32_t borderStripWidth = 0;
    float workScale = 0.0f;
    float highScale = 0.0f;
    float saliencyMaskTotal = 0.0f;
    float contrastTotal = 0.0f;
    float gradientTotal = 0.0f;
    float contrastPeakTotal = 0.0f;
    float borderInverseMeans[4] = {0, 0, 0, 0};  // top, bottom, left, right
    ByteImage workImage;                         // 4 bytes a pixel
    ByteImage highImage;                         // red, green, blue
    FloatMap saliencyMap, edgeMap, saliencyMask, contrastMap, contrastPeakMap;
    DoubleMap saliencyIntegral, edgeIntegral, saliencyMaskIntegral, contrastIntegral,
        contrastPeakIntegral;
    FloatMap gradientMap;
    DoubleMap gradientIntegral;
    FloatMap borderMaps[4];
    DoubleMap borderIntegrals[4];
    std::vector<RectOfInterest> roiList;
    std::vector<CropRect> suggestions;
    SmartCropParams analysisParams;

private:
    void analyze_image(const IImage& source);
    void resize_sources(const uint8_t* pixels);
    void extract_maps();
    void build_gradient_map();
    void build_tables();
};

// The stages of the analysis, exposed for the benchmarks' per-stage figures.
namespace analysis_stages {
void gradient_map(const ByteImage& workImage, FloatMap& gradientMap);
}

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_CROP_ANALYZER_H
