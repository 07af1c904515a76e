// The per-image object: everything the crop engine reads, computed once from
// the source image, and the crop engine's own per-query state.
#ifndef SMARTCROP_ANALYSIS_CROP_ANALYZER_H
#define SMARTCROP_ANALYSIS_CROP_ANALYZER_H

#include <array>
#include <memory>
#include <vector>

#include "CommonStructures.h"
#include "RandomCropGenerator.h"
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

    struct WorkRect {
        int r0, c0, r1, c1;
    };
    // The crop in work coordinates, clamped into the maps.
    WorkRect work_rect(const CropRect& crop) const;

    // The five features of a crop and its aesthetic score, once per record.
    void compute_features(CropRect& crop);
    // How much the crop's edges (work coordinates) run along contrast.
    float border_cost(int r0, int c0, int r1, int c1) const;
    // How well the crop treats the soft rectangles of interest `rects`,
    // whose bounding rectangle is `bounds`.
    float roi_score(const CropRect& crop, const std::vector<RectOfInterest>& rects,
                    const RectOfInterest& bounds) const;

    // Features of every record of the range and, at every query, roiScore
    // against the soft rectangles that apply.
    void score_candidates(bool useFaces, CropTable& table, uint32_t aspect, uint32_t scale);
    // Drops the records that break a hard rectangle, ranks the rest and picks
    // a diverse list of up to `count`.
    std::vector<CropRect>& select_suggestions(uint32_t count, const CropTable& table, bool useFaces,
                                              uint32_t mode, std::array<double, 6> weights,
                                              uint32_t aspect, uint32_t scale);
    std::vector<CropRect>& rank_candidates(uint32_t count, std::vector<CropRect>& candidates,
                                           const std::array<double, 6>& weights);
    // `order`: (score, index into candidates), best first.
    std::vector<CropRect>& pick_diverse(std::vector<CropRect>& candidates,
                                        const std::vector<std::pair<double, uint32_t>>& order,
                                        uint32_t count, float overlapLimit, float keepFraction,
                                        float reachFraction, uint32_t mode);
    // Adds the faces of the high-resolution copy to roiList, once.
    void detect_faces();

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

// Ranks of values by their order: log(k + 1) / log(n) for the k-th smallest.
void log_rank(std::vector<std::pair<float, uint32_t>>& pairs, std::vector<float>& out);

// The stages of the analysis, exposed for the benchmarks' per-stage figures.
namespace analysis_stages {
void gradient_map(const ByteImage& workImage, FloatMap& gradientMap);
}

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_CROP_ANALYZER_H
