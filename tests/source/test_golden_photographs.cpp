// End to end on three committed photographs: the analysis's totals and the
// top suggestions with every feature, pinned, so that a swapped channel, a
// changed map or a retrained score table shows at once.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "SmartCrop.h"
#include "analysis/image_analysis.h"
#include "test_photographs.h"

namespace smartCrop {
namespace {

// The analysis and the features are computed in a fixed order in single and
// double precision, without fused or reordered arithmetic, so the release
// and sanitizer builds agree to the bit; the tolerance only keeps the printed
// digits (nine significant) from being mistaken for the values.
constexpr double kPrinted = 5e-9;

struct Golden {
    const char* file;
    float totals[8];  // saliency mask, contrast, gradient, peaks, border means t b l r
    struct Crop {
        int left, top, right, bottom;
        double score, aesthetic, coverage, border, peaks, centre;
    } crops[5];
};

// From the run that introduced this test; see the comment above.
const Golden kGolden[] = {
#include "golden_photographs.inc"
};

TEST(GoldenPhotographs, TotalsAndTopSuggestions) {
    for (const Golden& g : kGolden) {
        SCOPED_TRACE(g.file);
        const auto photo = test::Photograph(g.file);
        IImage* image = photo->get();
        ASSERT_NE(image, nullptr);
        // The program's defaults: seven ratios, six scales.
        std::vector<RatioEntry> aspects = {{1.0, true},     {4.0 / 3, true}, {3.0 / 4, true},
                                           {1.5, true},     {2.0 / 3, true}, {16.0 / 9, true},
                                           {9.0 / 16, true}},
                                scales = {{1.0, true}, {0.9, true}, {0.8, true},
                                          {0.7, true}, {0.6, true}, {0.5, true}};
        std::vector<RectOfInterest> none;
        SmartCropParams params = test::ParamsOf(aspects, scales, none);
        ImageAnalysis analysis;
        analyze_image(*image, params, {}, analysis);
        const float totals[8] = {analysis.saliencyMaskTotal,     analysis.contrastTotal,
                                 analysis.gradientTotal,         analysis.contrastPeakTotal,
                                 analysis.borderInverseMeans[0], analysis.borderInverseMeans[1],
                                 analysis.borderInverseMeans[2], analysis.borderInverseMeans[3]};
        if (std::getenv("SMARTCROP_PRINT_GOLDEN")) {
            for (float t : totals) std::printf("%.9g, ", t);
            std::printf("\n");
        }
        for (int k = 0; k < 8; ++k)
            EXPECT_NEAR(totals[k], g.totals[k], std::abs(g.totals[k]) * kPrinted) << k;

        ISmartCrop* crop = CreateSmartCropObj(image, &params);
        eErrorCode code;
        const std::vector<CropRect> top = test::Suggestions(crop, {}, {}, &code);
        ASSERT_EQ(code, eSuccess);
        ASSERT_EQ(top.size(), 5u);
        for (int k = 0; k < 5; ++k) {
            const CropRect& c = top[k];
            const Golden::Crop& e = g.crops[k];
            // Set to print the values of a deliberate change, for this file's table.
            if (std::getenv("SMARTCROP_PRINT_GOLDEN")) {
                std::printf("{%d, %d, %d, %d, %.9g, %.9g, %.9g, %.9g, %.9g, %.9g},\n", c.left,
                            c.top, c.right, c.bottom, c.score, c.aestheticScore, c.coverageScore,
                            c.borderScore, c.peakShare, c.centreShare);
            }
            EXPECT_EQ(std::vector<int>({c.left, c.top, c.right, c.bottom}),
                      std::vector<int>({e.left, e.top, e.right, e.bottom}))
                << k;
            const double got[6] = {c.score,       c.aestheticScore, c.coverageScore,
                                   c.borderScore, c.peakShare,      c.centreShare};
            const double want[6] = {e.score, e.aesthetic, e.coverage, e.border, e.peaks, e.centre};
            for (int f = 0; f < 6; ++f)
                EXPECT_NEAR(got[f], want[f], std::abs(want[f]) * kPrinted) << k << "," << f;
        }
        crop->Release();
    }
}

}  // namespace
}  // namespace smartCrop
