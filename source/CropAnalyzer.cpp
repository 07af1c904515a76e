#include "source/CropAnalyzer.h"
#include "source/ScoreModel.h"

#include <algorithm>
#include <string>
#include <utility>

#include "faces/cascade_model.h"
#include "faces/face_detector.h"
#include "kernels/library_contract.h"
#include "source/WeftyException.h"

namespace smartCrop {

CropAnalyzer::CropAnalyzer(IImage& image, const SmartCropParams& params,
                           const std::vector<RectOfInterest>& rects)
    : analysisParams(params), roiList(rects), scoringScratch(new float[kPooledFeatureCount]()) {
    // Only the scalars are read; the arrays belong to the caller's record.
    analysisParams.aspectRatios = nullptr;
    analysisParams.scaleRatios = nullptr;
    analysisParams.rectsOfInterest = nullptr;
    analyze_image(image, analysisParams, roiList, maps);
}

bool widened_face(const FaceBox& f, float highScale, int32_t sourceWidth, int32_t sourceHeight,
                  RectOfInterest& r) {
    const float s = highScale;
    // 1.5 times the box about its centre, in the copy's integer pixels (the
    // conversion truncates), then back to the source.
    auto widen = [s](int32_t lo, int32_t hi) {
        const float q = static_cast<float>(lo + hi) * 0.5f * 0.5f;
        return std::pair<float, float>(
            static_cast<float>(
                static_cast<int>(static_cast<float>(lo) * contract::kFaceWidening - q + 0.5f)) /
                s,
            static_cast<float>(
                static_cast<int>(static_cast<float>(hi) * contract::kFaceWidening - q + 0.5f)) /
                s);
    };
    auto [left, right] = widen(f.x, f.x + f.width);
    auto [top, bottom] = widen(f.y, f.y + f.height);
    // One-sided clamps: the low ends at 0, the high ends at the last pixel.
    left = std::max(left, 0.0f);
    top = std::max(top, 0.0f);
    right = std::min(right, static_cast<float>(sourceWidth - 1));
    bottom = std::min(bottom, static_cast<float>(sourceHeight - 1));
    r = RectOfInterest();
    r.left = static_cast<int32_t>(left);
    r.right = static_cast<int32_t>(right);
    r.top = static_cast<int32_t>(top);
    r.bottom = static_cast<int32_t>(bottom);
    r.kind = eRoiWanted;
    r.isFace = true;
    r.active = true;
    // A box the clamps leave inverted would be no rectangle at all.
    return r.left <= r.right && r.top <= r.bottom;
}

void CropAnalyzer::detect_faces() {
    if (facesDone) return;
    std::vector<FaceBox> faces;
    try {
        faces = find_faces(maps.highImage.data.data(), maps.highImage.width, maps.highImage.height);
    } catch (const CasCNNModel::ModelNotFoundException& e) {
        // The text must outlive the exception that carries it.
        static thread_local std::string text;
        text = e.what();
        throw Wefty::exception(eModelMissing, text.c_str(), 16, "include/CommonStructures");
    }
    for (const FaceBox& f : faces) {
        RectOfInterest r;
        if (widened_face(f, maps.highScale, maps.sourceWidth, maps.sourceHeight, r))
            roiList.push_back(r);
    }
    facesDone = true;
}

}  // namespace smartCrop
