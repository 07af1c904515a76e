// The features of one crop, in constant time from the analysis tables.
#include <algorithm>
#include <cmath>

#include "kernels/rect_geometry.h"
#include "source/CropAnalyzer.h"
#include "source/PoolGrid.h"
#include "source/ScoreModel.h"

namespace smartCrop {

namespace {

// The 32-bit constants of the coverage blend, widened.
constexpr double kFourTenths = static_cast<double>(0.4f);
constexpr double kTwoTenths = static_cast<double>(0.2f);

}  // namespace

void CropAnalyzer::compute_features(CropRect& crop) {
    if (crop.analysed) return;
    const WorkRect w = maps.work_rect(crop);
    const auto [r0, c0, r1, c1] = w;

    const double shareMask =
        region_sum(maps.saliencyMaskIntegral, r0, r1, c0, c1) / maps.saliencyMaskTotal;
    const double shareContrast =
        region_sum(maps.contrastIntegral, r0, r1, c0, c1) / maps.contrastTotal;
    const double shareGradient =
        region_sum(maps.gradientIntegral, r0, r1, c0, c1) / maps.gradientTotal;
    crop.coverageScore = static_cast<float>(shareContrast * kFourTenths + shareMask * kTwoTenths +
                                            shareGradient * kFourTenths);
    crop.peakShare = static_cast<float>(region_sum(maps.contrastPeakIntegral, r0, r1, c0, c1) /
                                        maps.contrastPeakTotal);

    const float m = 0.66999996f;  // 1 - 0.33 in single precision
    const float mr = static_cast<float>(r0 + r1) * 0.5f * m;
    const float mc = static_cast<float>(c0 + c1) * 0.5f * m;
    const int cr0 = static_cast<int>(static_cast<float>(r0) * 0.33f + mr + 0.5f);
    const int cr1 = static_cast<int>(static_cast<float>(r1) * 0.33f + mr + 0.5f);
    const int cc0 = static_cast<int>(static_cast<float>(c0) * 0.33f + mc + 0.5f);
    const int cc1 = static_cast<int>(static_cast<float>(c1) * 0.33f + mc + 0.5f);
    crop.centreShare = static_cast<float>(
        region_sum(maps.contrastPeakIntegral, cr0, cr1, cc0, cc1) / maps.contrastPeakTotal);

    crop.borderScore = static_cast<float>(std::exp(-static_cast<double>(border_cost(w)) / 10.0));

    float* x = scoringScratch.get();
    pool_model_features(maps.saliencyIntegral, maps.edgeIntegral, w, x);
    crop.aestheticScore = aesthetic_score(x);

    crop.analysed = true;
    if (shareMask >= 0.4 && shareContrast >= 0.4 && shareGradient >= 0.4) crop.wellCovered = true;
}

float CropAnalyzer::border_cost(const WorkRect& crop) const {
    const auto [r0, c0, r1, c1] = crop;
    const int band = std::max(1, static_cast<int>(maps.borderStripWidth * 0.5));
    const int H = maps.workHeight, W = maps.workWidth;
    auto inside = [&](int first, int last, int limit) { return first >= 0 && last <= limit - 1; };
    auto term = [&](int k, int rowFirst, int rowLast, int colFirst, int colLast) {
        float value = 1e10f;
        if (inside(rowFirst, rowLast, H) && inside(colFirst, colLast, W)) {
            value = static_cast<float>(
                region_sum(maps.borderIntegrals[k], rowFirst, rowLast, colFirst, colLast) / band);
        }
        return value * maps.borderInverseMeans[k];
    };
    const float T = term(0, r0, r0 + band - 1, c0, c1);
    const float B = term(1, r1 - band + 1, r1, c0, c1);
    const float L = term(2, r0, r1, c0, c0 + band - 1);
    const float R = term(3, r0, r1, c1 - band + 1, c1);
    const float h = static_cast<float>(r1 - r0 + 1);
    const float w = static_cast<float>(c1 - c0 + 1);
    return (L + R) / h + (T + B) / w + (T + B + L + R) / (h + w);
}

float CropAnalyzer::roi_score(const CropRect& crop, const std::vector<RectOfInterest>& rects,
                              const RectOfInterest& bounds) const {
    if (rects.empty()) return 1.0f;
    const float sw = static_cast<float>(maps.sourceWidth),
                sh = static_cast<float>(maps.sourceHeight);
    float leftRoom = sw, rightRoom = sw, topRoom = sh, bottomRoom = sh;
    for (const RectOfInterest& e : rects) {
        leftRoom = std::min(leftRoom, static_cast<float>(e.left));
        rightRoom = std::min(rightRoom, sw - static_cast<float>(e.right) - 1.0f);
        topRoom = std::min(topRoom, static_cast<float>(e.top));
        bottomRoom = std::min(bottomRoom, sh - static_cast<float>(e.bottom) - 1.0f);
    }

    const float cw = static_cast<float>(crop.right - crop.left + 1);
    const float ch = static_cast<float>(crop.bottom - crop.top + 1);
    const float sideMargin = static_cast<float>(static_cast<int>(cw * analysisParams.marginSide));
    const float topMargin = static_cast<float>(static_cast<int>(ch * analysisParams.marginTop));
    const float bottomMargin =
        static_cast<float>(static_cast<int>(ch * analysisParams.marginBottom));
    RectOfInterest inner;
    inner.left =
        static_cast<int32_t>(static_cast<float>(crop.left) + std::min(leftRoom, sideMargin));
    inner.right =
        static_cast<int32_t>(static_cast<float>(crop.right) - std::min(rightRoom, sideMargin));
    inner.top = static_cast<int32_t>(static_cast<float>(crop.top) + std::min(topRoom, topMargin));
    inner.bottom =
        static_cast<int32_t>(static_cast<float>(crop.bottom) - std::min(bottomRoom, bottomMargin));

    float placement = 0.0f;
    if (static_cast<double>(covered_fraction(crop, bounds)) > 0.98) {
        const float d = static_cast<float>(bounds.top - crop.top);
        const float headroom = d / ch > 0.4f ? 1.0f - d * 0.5f / ch : 1.0f;
        const double bx = (static_cast<double>(bounds.left) + bounds.right) * 0.5;
        const double by = (static_cast<double>(bounds.top) + bounds.bottom) * 0.5;
        const float dx =
            static_cast<float>(bx / maps.sourceWidth) - static_cast<float>((bx - crop.left) / cw);
        const float dy =
            static_cast<float>(by / maps.sourceHeight) - static_cast<float>((by - crop.top) / ch);
        const float sum = static_cast<float>(std::exp(-(dx * dx + dy * dy)) * 0.5 + headroom);
        placement = sum / 1.5f;
    }

    float sum = 0.0f;
    int hits = 0;
    for (const RectOfInterest& e : rects) {
        const float ov = covered_fraction(inner, e);
        if (e.kind == eRoiWanted) {
            sum += ov;
            if (static_cast<double>(ov) > 0.98) ++hits;
        } else if (e.kind == eRoiUnwanted) {
            sum += 1.0f - ov;
            if (ov == 0.0f) ++hits;
        }
    }
    const float n = static_cast<float>(rects.size());
    const float value = (sum / n + static_cast<float>(hits)) / (n + 1.0f);
    const float pw = analysisParams.placementWeight;
    return (value + pw * placement) / (pw + 1.0f);
}

}  // namespace smartCrop
