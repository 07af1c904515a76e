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

}  // namespace
