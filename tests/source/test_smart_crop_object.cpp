// The smart-crop object's lifecycle, stored parameters and ratio lists.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <vector>

#include "SmartCrop.h"
#include "test_images.h"

namespace {

using smartCrop::eErrorCode;
using smartCrop::RatioEntry;

TEST(SmartCropObject, EmptyListsGiveAWorkingObject) {
    test::Image image(64, 48);
    smartCrop::SmartCropParams params;
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    EXPECT_STREQ(crop->GetLastErrorText(), "");
    uint64_t count = 99;
    EXPECT_EQ(crop->GetAspectRatios(&count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(crop->GetScaleRatios(&count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(crop->Reserved12(), smartCrop::eSuccess);
    EXPECT_EQ(crop->SetAspectRatio(1.5, true), smartCrop::eSuccess);
    const RatioEntry* ratios = crop->GetAspectRatios(&count);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(ratios[0].ratio, 1.5);
    EXPECT_TRUE(ratios[0].enabled);
    EXPECT_EQ(crop->SetScaleRatio(0.5, false), smartCrop::eSuccess);
    ratios = crop->GetScaleRatios(&count);
    ASSERT_EQ(count, 1u);
    EXPECT_FALSE(ratios[0].enabled);
    EXPECT_STREQ(crop->GetLastErrorText(), "");
    EXPECT_EQ(crop->Release(), 1u);
}

TEST(SmartCropObject, NotBuiltObjectAnswersEight) {
    test::Image image(64, 48);
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image.get(), nullptr);
    ASSERT_NE(crop, nullptr);  // the failed Init is reported through the text
    EXPECT_STREQ(crop->GetLastErrorText(), "SmartCrop: params is null");
    EXPECT_EQ(crop->InitDefaults(image.get()), smartCrop::eSuccess);
    EXPECT_EQ(crop->SetAspectRatio(1.0, true), smartCrop::eNotInitialised);
    EXPECT_EQ(crop->SetScaleRatio(1.0, true), smartCrop::eNotInitialised);
    smartCrop::IRectsOfInterest* rois = nullptr;
    EXPECT_EQ(crop->GetRectsOfInterest(&rois), smartCrop::eNotInitialised);
    EXPECT_EQ(rois, nullptr);
    uint64_t count = 5;
    EXPECT_EQ(crop->GetAspectRatios(&count), nullptr);
    EXPECT_EQ(count, 0u);
    crop->Release();
}

TEST(SmartCropObject, InitRefusesWhatItCannotAnalyse) {
    test::Image image(64, 48);
    smartCrop::SmartCropParams params;
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    const uint64_t offsets[4] = {0, 1, 2, 3};
    struct Case {
        smartCrop::IImage* image;
        const char* text;
    } cases[] = {
        {nullptr, "SmartCrop: image is null"},
        {CreateImageObj(0, 10, 4, offsets, nullptr), "SmartCrop: the image is empty"},
        {CreateImageObj(10, 10, 3, offsets, nullptr), "SmartCrop: the image must have 4 channels"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(crop->Init(c.image, &params), smartCrop::eInvalidRequest);
        EXPECT_STREQ(crop->GetLastErrorText(), c.text);
        if (c.image != nullptr) c.image->Release();
    }
    smartCrop::RatioEntry* missing = nullptr;
    params.aspectRatios = missing;
    params.aspectRatioCount = 3;
    EXPECT_EQ(crop->Init(image.get(), &params), smartCrop::eInvalidRequest);
    EXPECT_STREQ(crop->GetLastErrorText(),
                 "SmartCrop: params has a null array with a non-zero count");
    crop->Release();
}

TEST(SmartCropObject, StoresADeepCopyOfTheParameters) {
    test::Image image(200, 100);
    std::vector<RatioEntry> aspects = {{1.0, true}, {2.0, false}};
    std::vector<RatioEntry> scales = {{1.0, true}};
    std::vector<smartCrop::RectOfInterest> rects(1);
    rects[0].right = 10;
    smartCrop::SmartCropParams params;
    params.aspectRatios = aspects.data();
    params.aspectRatioCount = 2;
    params.scaleRatios = scales.data();
    params.scaleRatioCount = 1;
    params.rectsOfInterest = rects.data();
    params.rectsOfInterestCount = 1;
    params.marginTop = 0.25f;
    params.ownsArrays = 0;
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    aspects[0].ratio = 9.0;  // the host's arrays are not kept
    aspects.clear();
    aspects.shrink_to_fit();

    const smartCrop::SmartCropParams* stored = crop->GetParams();
    EXPECT_NE(stored->aspectRatios, params.aspectRatios);
    ASSERT_EQ(stored->aspectRatioCount, 2u);
    EXPECT_EQ(stored->aspectRatios[0].ratio, 1.0);
    EXPECT_FALSE(stored->aspectRatios[1].enabled);
    EXPECT_EQ(stored->rectsOfInterest[0].right, 10);
    EXPECT_EQ(stored->marginTop, 0.25f);
    EXPECT_EQ(stored->ownsArrays, 1u);
    uint64_t count = 0;
    const RatioEntry* listed = crop->GetAspectRatios(&count);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(listed[1].ratio, 2.0);
    crop->Release();
}

TEST(SmartCropObject, InitDefaultsThenEditInPlaceThenInit) {
    test::Image image(300, 200);
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image.get(), nullptr);
    ASSERT_NE(crop, nullptr);
    ASSERT_EQ(crop->InitDefaults(image.get()), smartCrop::eSuccess);
    smartCrop::SmartCropParams* p = crop->GetParams();
    EXPECT_EQ(p->gridBudget, 50u);
    EXPECT_EQ(p->aspectRatios, nullptr);
    RatioEntry hostAspects[] = {{1.5, true}, {0.5, true}, {1.0, false}};
    p->aspectRatios = hostAspects;  // the host's own array, never freed by the object
    p->aspectRatioCount = 3;
    p->gridBudget = 10;
    ASSERT_EQ(crop->Init(image.get(), p), smartCrop::eSuccess);
    EXPECT_NE(crop->GetParams()->aspectRatios, hostAspects);
    uint64_t count = 0;
    const RatioEntry* listed = crop->GetAspectRatios(&count);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(listed[1].ratio, 0.5);
    EXPECT_FALSE(listed[2].enabled);

    // A second Init replaces what the first built.
    smartCrop::SmartCropParams fresh;
    ASSERT_EQ(crop->Init(image.get(), &fresh), smartCrop::eSuccess);
    EXPECT_EQ(crop->GetAspectRatios(&count), nullptr);
    EXPECT_EQ(count, 0u);
    crop->Release();
}

// The analysis runs OpenCV on the caller's thread alone and gives the host
// its own thread setting back afterwards.
TEST(SmartCropObject, HostsOpenCvThreadSettingIsRestored) {
    cv::setNumThreads(3);
    test::Image image(200, 150, test::Image::Photo(200, 150));
    smartCrop::SmartCropParams params;
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    EXPECT_EQ(cv::getNumThreads(), 3);
    crop->Release();
    cv::setNumThreads(-1);
}

}  // namespace
