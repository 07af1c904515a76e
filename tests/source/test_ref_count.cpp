// Counting rules shared by every public object.
#include <gtest/gtest.h>

#include "SmartCrop.h"
#include "source/RectLists.h"

namespace {

const uint64_t kOffsets[4] = {0, 1, 2, 3};

// Each kind of public object counts from 1, returns the count before the
// change, and is destroyed through its interface at the last Release (the
// sanitizer build sees no leak).
TEST(RefCount, EveryObjectCountsAndDiesThroughItsInterface) {
    smartCrop::IImage* image = CreateImageObj(4, 4, 4, kOffsets, nullptr);
    ASSERT_NE(image, nullptr);
    auto* crops = new smartCrop::CCropRects;
    auto* rois = new smartCrop::CRectsOfInterest;
    for (smartCrop::IBaseClass* object : std::initializer_list<smartCrop::IBaseClass*>{
             image, static_cast<smartCrop::ICropRects*>(crops),
             static_cast<smartCrop::IRectsOfInterest*>(rois)}) {
        EXPECT_EQ(object->AddRef(), 1u);
        EXPECT_EQ(object->Release(), 2u);
        EXPECT_EQ(object->Release(), 1u);
    }
}

}  // namespace
