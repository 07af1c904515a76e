// The rules the library and the host share, held from both sides: the
// geometry they measure with, the face widening the host undoes, and the
// hard rectangles the host applies to GetAllCrops as GetSuggestions does.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "SmartCrop.h"
#include "kernels/library_contract.h"
#include "kernels/rect_geometry.h"
#include "source/CropAnalyzer.h"
#include "test_images.h"

namespace smartCrop {
namespace {

TEST(RectGeometry, CoverageAndOverlap) {
    const CropRect a = test::Rect(0, 0, 9, 9);
    EXPECT_FLOAT_EQ(covered_fraction(a, test::Rect(5, 5, 14, 14)), 0.25f);
    EXPECT_FLOAT_EQ(overlap_iou(a, test::Rect(5, 5, 14, 14)), 25.0f / 175.0f);
    EXPECT_DOUBLE_EQ(overlap_iou_exact(a, test::Rect(5, 5, 14, 14)), 25.0 / 175.0);
    EXPECT_EQ(covered_fraction(a, test::Rect(10, 0, 12, 9)),
              0.0f);  // touching edges do not overlap
    EXPECT_FLOAT_EQ(covered_fraction(a, test::Rect(9, 9, 9, 9)),
                    1.0f);  // one shared pixel is overlap
    RectOfInterest huge{-1000000000, 1000000000, -1000000000, 1000000000};
    EXPECT_GT(covered_fraction(huge, a), 0.99f);  // no overflow on extreme coordinates
}

// The host's tight box of a library face is the detector's box again: the
// widening truncates to the copy's pixels, so a side may be one pixel off,
// but no more, and without a lean to either side.
TEST(LibraryContract, TightFaceUndoesTheWidening) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pos(200, 1800), size(12, 400);
    constexpr int kBoxes = 2000;
    double lean[4] = {0, 0, 0, 0};
    for (int i = 0; i < kBoxes; ++i) {
        const FaceBox box{pos(rng), pos(rng), size(rng), size(rng), 0.9f};
        RectOfInterest widened;
        ASSERT_TRUE(widened_face(box, 1.0f, 4096, 4096, widened));
        const RectOfInterest tight = contract::tight_face(widened);
        const int error[4] = {tight.left - box.x, tight.top - box.y,
                              tight.right - (box.x + box.width),
                              tight.bottom - (box.y + box.height)};
        for (int side = 0; side < 4; ++side) {
            ASSERT_LE(std::abs(error[side]), 1) << i << " side " << side;
            lean[side] += error[side];
        }
    }
    for (double sum : lean) EXPECT_LT(std::fabs(sum / kBoxes), 0.3) << sum / kBoxes;
}

// GetSuggestions keeps only candidates that honour the hard rectangles by
// the contract's rule; GetAllCrops lists the others too, which is why a
// host ranking that list must apply the rule itself.
TEST(LibraryContract, HardRectanglesAsGetSuggestionsAppliesThem) {
    test::Image image(320, 200, test::Image::Photo(320, 200));
    std::vector<RatioEntry> aspects = {{1.0, true}}, scales = {{0.7, true}, {0.5, true}};
    std::vector<RectOfInterest> rects(2);
    rects[0] = RectOfInterest{140, 170, 80, 110};  // required
    rects[0].kind = eRoiRequired;
    rects[1] = RectOfInterest{0, 40, 0, 199};  // forbidden: the left strip
    rects[1].kind = eRoiForbidden;
    const SmartCropParams params = test::ParamsOf(aspects, scales, rects);
    ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    const auto honours = [&](const CropRect& c) {
        return contract::honours_hard_rect(c, rects[0], true) &&
               contract::honours_hard_rect(c, rects[1], false);
    };
    SelectionParams selection;
    selection.count = 1000;
    const std::vector<CropRect> suggested = test::Suggestions(crop, SuggestionParams{}, selection);
    const std::vector<CropRect> all = test::AllCrops(crop);
    crop->Release();
    ASSERT_FALSE(suggested.empty());
    for (const CropRect& c : suggested) EXPECT_TRUE(honours(c));
    size_t kept = 0;
    for (const CropRect& c : all) kept += honours(c);
    EXPECT_LT(kept, all.size());  // the full list breaks the rule somewhere
    EXPECT_GE(kept, suggested.size());
}

}  // namespace
}  // namespace smartCrop
