// The per-image object of the crop engine: the image's analysis, the
// rectangles of interest (the host's and, once asked for, the faces), and the
// scoring, ranking and picking of candidates over them.
#ifndef SMARTCROP_SOURCE_CROP_ANALYZER_H
#define SMARTCROP_SOURCE_CROP_ANALYZER_H

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "CommonStructures.h"
#include "SmartCrop.h"
#include "analysis/image_analysis.h"
#include "faces/face_boxes.h"
#include "source/RandomCropGenerator.h"

namespace smartCrop {

class CropAnalyzer {
public:
    // Copies the parameters' scalars and the rectangles, then analyses the image.
    CropAnalyzer(IImage& image, const SmartCropParams& params,
                 const std::vector<RectOfInterest>& rects);

    const ImageAnalysis& analysis() const { return maps; }
    bool has_maps() const { return maps.has_maps(); }
    const std::vector<RectOfInterest>& rects() const { return roiList; }
    void add_rect(const RectOfInterest& rect) { roiList.push_back(rect); }
    void set_rects(const std::vector<RectOfInterest>& rects) { roiList = rects; }

    // The five features of a crop and its aesthetic score, once per record.
    void compute_features(CropRect& crop);
    // How much the crop's edges (work coordinates) run along contrast.
    float border_cost(const WorkRect& crop) const;
    // How well the crop treats the soft rectangles of interest `rects`,
    // whose bounding rectangle is `bounds`.
    float roi_score(const CropRect& crop, const std::vector<RectOfInterest>& rects,
                    const RectOfInterest& bounds) const;

    // Features of every record of the cells and, at every query, roiScore
    // against the soft rectangles that apply.
    void score_candidates(bool useFaces, const CellRange& cells);
    // Drops the records that break a hard rectangle, ranks the rest and picks
    // a diverse list of up to `count`.
    std::vector<CropRect>& select_suggestions(uint32_t count, const ConstCellRange& cells,
                                              bool useFaces, uint32_t mode,
                                              std::array<double, 6> weights);
    // The records are read in place; only the picked ones are copied out,
    // with the blended score of this query.
    std::vector<CropRect>& rank_candidates(uint32_t count,
                                           const std::vector<const CropRect*>& candidates,
                                           const std::array<double, 6>& weights);
    // `order`: (score, index into candidates), best first.
    std::vector<CropRect>& pick_diverse(const std::vector<const CropRect*>& candidates,
                                        const std::vector<std::pair<double, uint32_t>>& order,
                                        uint32_t count, float overlapLimit, float keepFraction,
                                        float reachFraction, uint32_t mode);
    // The face step of queries: adds the faces of the high-resolution copy,
    // widened, to the rectangles of interest, once.
    void detect_faces();

private:
    // The ranks of one feature over the last candidates ranked.
    struct RankMemo {
        std::vector<float> values, ranks;
    };
    // The blended scores of the last candidates ranked, before and after
    // sorting: the same scores sort to the same order.
    struct OrderMemo {
        std::vector<std::pair<double, uint32_t>> scores, sorted;
    };

    ImageAnalysis maps;
    SmartCropParams analysisParams;
    std::vector<RectOfInterest> roiList;
    std::vector<CropRect> suggestions;
    std::unique_ptr<float[]> scoringScratch;
    bool facesDone = false;
    std::array<RankMemo, 5> rankMemos;
    OrderMemo orderMemo;
};

// The rectangle of interest a face box of the high-resolution copy stands
// for: widened 1.5 times about its centre, in source pixels, clamped into the
// image. False when the clamps leave it empty.
bool widened_face(const FaceBox& box, float highScale, int32_t sourceWidth, int32_t sourceHeight,
                  RectOfInterest& out);

// Ranks of values by their order: log(k + 1) / log(n) for the k-th smallest.
void log_rank(std::vector<std::pair<float, uint32_t>>& pairs, std::vector<float>& out);

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_CROP_ANALYZER_H
