// The smart-crop object's lifecycle, stored parameters and ratio lists.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <vector>

#include "SmartCrop.h"
#include "test_images.h"

namespace {

using namespace smartCrop;

std::vector<RatioEntry> aspects_of(ISmartCrop* crop) {
    uint64_t count = 0;
    const RatioEntry* entries = crop->GetAspectRatios(&count);
    return entries == nullptr ? std::vector<RatioEntry>()
                              : std::vector<RatioEntry>(entries, entries + count);
}

TEST(SmartCropObject, EmptyListsWorkAndAnUnbuiltObjectAnswersEight) {
    test::Image image(64, 48);
    SmartCropParams params;
    ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    uint64_t count = 99;
    EXPECT_EQ(crop->GetAspectRatios(&count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(crop->Reserved12(), eSuccess);
    EXPECT_EQ(crop->SetAspectRatio(1.5, true), eSuccess);
    EXPECT_EQ(crop->SetScaleRatio(0.5, false), eSuccess);
    const RatioEntry* aspects = crop->GetAspectRatios(&count);
    ASSERT_EQ(count, 1u);
    EXPECT_TRUE(aspects[0].ratio == 1.5 && aspects[0].enabled);
    const RatioEntry* scales = crop->GetScaleRatios(&count);
    ASSERT_EQ(count, 1u);
    EXPECT_FALSE(scales[0].enabled);
    EXPECT_STREQ(crop->GetLastErrorText(), "");
    EXPECT_EQ(crop->Release(), 1u);

    crop = CreateSmartCropObj(image.get(), nullptr);
    ASSERT_NE(crop, nullptr);  // the failed Init is reported through the text
    EXPECT_STREQ(crop->GetLastErrorText(), "SmartCrop: params is null");
    EXPECT_EQ(crop->InitDefaults(image.get()), eSuccess);
    EXPECT_EQ(crop->SetAspectRatio(1.0, true), eNotInitialised);
    EXPECT_EQ(crop->SetScaleRatio(1.0, true), eNotInitialised);
    IRectsOfInterest* rois = nullptr;
    EXPECT_EQ(crop->GetRectsOfInterest(&rois), eNotInitialised);
    EXPECT_EQ(rois, nullptr);
    count = 5;
    EXPECT_EQ(crop->GetAspectRatios(&count), nullptr);
    EXPECT_EQ(count, 0u);
    crop->Release();
}

TEST(SmartCropObject, InitRefusesWhatItCannotAnalyse) {
    test::Image image(64, 48);
    SmartCropParams params;
    ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    const uint64_t offsets[4] = {0, 1, 2, 3};
    const std::pair<IImage*, const char*> cases[] = {
        {nullptr, "SmartCrop: image is null"},
        {CreateImageObj(0, 10, 4, offsets, nullptr), "SmartCrop: the image is empty"},
        {CreateImageObj(10, 10, 3, offsets, nullptr), "SmartCrop: the image must have 4 channels"},
    };
    for (const auto& [bad, text] : cases) {
        EXPECT_EQ(crop->Init(bad, &params), eInvalidRequest);
        EXPECT_STREQ(crop->GetLastErrorText(), text);
        if (bad != nullptr) bad->Release();
    }
    params.aspectRatioCount = 3;  // with no array
    EXPECT_EQ(crop->Init(image.get(), &params), eInvalidRequest);
    EXPECT_STREQ(crop->GetLastErrorText(),
                 "SmartCrop: params has a null array with a non-zero count");
    crop->Release();
}

// The host's arrays are copied in, whether they come in a record of its own
// or are put into the stored record in place; a second Init replaces all.
TEST(SmartCropObject, StoresADeepCopyOfTheParameters) {
    test::Image image(300, 200);
    std::vector<RatioEntry> aspects = {{1.0, true}, {2.0, false}}, scales = {{1.0, true}};
    std::vector<RectOfInterest> rects(1);
    rects[0].right = 10;
    SmartCropParams params = test::ParamsOf(aspects, scales, rects);
    params.marginTop = 0.25f;
    params.ownsArrays = 0;
    ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    aspects[0].ratio = 9.0;
    aspects.clear();
    aspects.shrink_to_fit();
    const SmartCropParams* stored = crop->GetParams();
    EXPECT_NE(stored->aspectRatios, params.aspectRatios);
    ASSERT_EQ(stored->aspectRatioCount, 2u);
    EXPECT_EQ(stored->aspectRatios[0].ratio, 1.0);
    EXPECT_EQ(stored->rectsOfInterest[0].right, 10);
    EXPECT_EQ(stored->marginTop, 0.25f);
    EXPECT_EQ(stored->ownsArrays, 1u);
    ASSERT_EQ(aspects_of(crop).size(), 2u);
    EXPECT_EQ(aspects_of(crop)[1].ratio, 2.0);

    ASSERT_EQ(crop->InitDefaults(image.get()), eSuccess);
    SmartCropParams* p = crop->GetParams();
    EXPECT_EQ(p->gridBudget, 50u);
    EXPECT_EQ(p->aspectRatios, nullptr);
    RatioEntry hostAspects[] = {{1.5, true}, {0.5, true}, {1.0, false}};
    p->aspectRatios = hostAspects;  // the host's own array, never freed by the object
    p->aspectRatioCount = 3;
    ASSERT_EQ(crop->Init(image.get(), p), eSuccess);
    EXPECT_NE(crop->GetParams()->aspectRatios, hostAspects);
    const std::vector<RatioEntry> three = aspects_of(crop);
    ASSERT_EQ(three.size(), 3u);
    EXPECT_TRUE(three[1].ratio == 0.5 && !three[2].enabled);

    SmartCropParams fresh;
    ASSERT_EQ(crop->Init(image.get(), &fresh), eSuccess);
    EXPECT_TRUE(aspects_of(crop).empty());
    crop->Release();
}

// The analysis runs OpenCV on the caller's thread alone and gives the host
// its own thread setting back afterwards.
TEST(SmartCropObject, HostsOpenCvThreadSettingIsRestored) {
    cv::setNumThreads(3);
    test::Image image(200, 150, test::Image::Photo(200, 150));
    SmartCropParams params;
    ISmartCrop* crop = CreateSmartCropObj(image.get(), &params);
    ASSERT_NE(crop, nullptr);
    EXPECT_EQ(cv::getNumThreads(), 3);
    crop->Release();
    cv::setNumThreads(-1);
}

}  // namespace
