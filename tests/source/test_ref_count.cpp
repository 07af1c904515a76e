// Counting rules shared by every public object.
#include <gtest/gtest.h>

#include "SmartCrop.h"
#include "source/RectLists.h"

namespace {

const uint64_t kOffsets[4] = {0, 1, 2, 3};

template <class Object>
void ExpectCountingRules(Object* object) {
    EXPECT_EQ(object->AddRef(), 1u);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 3u);
    EXPECT_EQ(object->Release(), 2u);
    EXPECT_EQ(object->Release(), 1u);  // destroyed here: the sanitizer build sees no leak
}

TEST(RefCount, ImageCountsAndDiesThroughItsInterface) {
    smartCrop::IImage* image = CreateImageObj(4, 4, 4, kOffsets, nullptr);
    ASSERT_NE(image, nullptr);
    ExpectCountingRules(image);
}

TEST(RefCount, ListsCountAndDieThroughTheirInterfaces) {
    auto* crops = new smartCrop::CCropRects;
    crops->Append(smartCrop::CropRect{});
    ExpectCountingRules(static_cast<smartCrop::ICropRects*>(crops));

    auto* rois = new smartCrop::CRectsOfInterest;
    rois->Append(smartCrop::RectOfInterest{});
    ExpectCountingRules(static_cast<smartCrop::IRectsOfInterest*>(rois));
}

TEST(RefCount, InterfacePointerIsTheObjectPointer) {
    auto* crops = new smartCrop::CCropRects;
    EXPECT_EQ(static_cast<void*>(static_cast<smartCrop::ICropRects*>(crops)),
              static_cast<void*>(crops));
    crops->Release();
}

TEST(RectLists, AreDeepSnapshotsInFillingOrder) {
    auto* rois = new smartCrop::CRectsOfInterest;
    EXPECT_EQ(rois->GetCount(), 0u);
    EXPECT_EQ(rois->GetRects(), nullptr);
    smartCrop::RectOfInterest r;
    for (int i = 0; i < 3; ++i) {
        r.left = i;
        rois->Append(r);
    }
    r.left = 99;  // the list holds copies
    ASSERT_EQ(rois->GetCount(), 3u);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(rois->GetRects()[i].left, i);
    rois->Release();
}

}  // namespace
