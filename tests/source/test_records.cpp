// The public records start at the documented defaults.
#include <gtest/gtest.h>

#include "SmartCrop.h"

namespace {

TEST(Records, SmartCropParamsDefaults) {
    const smartCrop::SmartCropParams p;
    EXPECT_EQ(p.aspectRatios, nullptr);
    EXPECT_EQ(p.scaleRatios, nullptr);
    EXPECT_EQ(p.rectsOfInterest, nullptr);
    EXPECT_FLOAT_EQ(p.marginTop, 0.05f);
    EXPECT_FLOAT_EQ(p.marginSide, 0.1f);
    EXPECT_FLOAT_EQ(p.marginBottom, 0.15f);
    EXPECT_EQ(p.saliencyFill, -1.0f);
    EXPECT_EQ(p.edgeFill, -1.0f);
    EXPECT_EQ(p.borderFill, -1.0f);
    EXPECT_EQ(p.legacyA, 0.1875f);
    EXPECT_EQ(p.legacyB, 0.625f);
    EXPECT_EQ(p.legacyC, 0.1875f);
    EXPECT_EQ(p.legacyD, 100.0f);
    EXPECT_FLOAT_EQ(p.placementWeight, 0.01f);
    EXPECT_EQ(p.aspectRatioCount + p.scaleRatioCount + p.rectsOfInterestCount, 0u);
    EXPECT_EQ(p.gridBudget, 50u);
    EXPECT_FALSE(p.detectFaces);
    EXPECT_EQ(p.ownsArrays, 1u);
}

TEST(Records, SmallRecordDefaults) {
    const smartCrop::RatioEntry ratio;
    EXPECT_TRUE(ratio.enabled);
    const smartCrop::RectOfInterest roi;
    EXPECT_EQ(roi.kind, smartCrop::eRoiWanted);
    EXPECT_FALSE(roi.isFace);
    EXPECT_TRUE(roi.active);
    const smartCrop::CropRect crop;
    EXPECT_EQ(crop.roiScore, 1.0);
    EXPECT_FALSE(crop.analysed);
    EXPECT_FALSE(crop.wellCovered);
    const smartCrop::SuggestionParams request;
    EXPECT_EQ(request.width + request.height + request.aspectRatio, 0.0);
    EXPECT_FALSE(request.useFaces);
}

TEST(Records, ErrorCodeValuesAreFrozen) {
    EXPECT_EQ(smartCrop::eSuccess, 0u);
    EXPECT_EQ(smartCrop::eUnexpected, 1u);
    EXPECT_EQ(smartCrop::eInvalidRequest, 4u);
    EXPECT_EQ(smartCrop::eOutOfMemory, 6u);
    EXPECT_EQ(smartCrop::eModelMissing, 7u);
    EXPECT_EQ(smartCrop::eNotInitialised, 8u);
    EXPECT_EQ(smartCrop::kAllIndices, 0xEFFFFFFFu);
}

}  // namespace
