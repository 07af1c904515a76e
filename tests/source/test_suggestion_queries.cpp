// The whole road from a host's request to ranked crops, through the interface.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "SmartCrop.h"
#include "source/CropGeometry.h"
#include "test_images.h"

namespace smartCrop {
namespace {

// A smart-crop object over a photo-like image with ratios and scales.
struct Engine {
    Engine(int W, int H, std::vector<RatioEntry> aspects = {{1.0, true}, {1.5, true}, {0.75, true}},
           std::vector<RatioEntry> scales = {{1.0, true}, {0.8, true}, {0.6, true}},
           std::vector<RectOfInterest> rects = {})
        : image(W, H, test::Image::Photo(W, H)) {
        SmartCropParams p = test::ParamsOf(aspects, scales, rects);
        crop = CreateSmartCropObj(image.get(), &p);
    }
    ~Engine() { crop->Release(); }

    // The suggestions as a vector; the code through `code`.
    std::vector<CropRect> Suggest(const SuggestionParams& request, SelectionParams selection = {},
                                  eErrorCode* code = nullptr) {
        ICropRects* out = nullptr;
        const eErrorCode c = crop->GetSuggestions(&out, &selection, &request);
        if (code != nullptr) *code = c;
        std::vector<CropRect> result;
        if (out != nullptr) {
            result.assign(out->GetRects(), out->GetRects() + out->GetCount());
            out->Release();
        }
        return result;
    }

    test::Image image;
    ISmartCrop* crop;
};

SuggestionParams Size(double w, double h, double ratio = 0) {
    SuggestionParams r;
    r.width = w;
    r.height = h;
    r.aspectRatio = ratio;
    return r;
}

TEST(SuggestionQueries, SuggestionsAreRankedInsideAndDiverse) {
    Engine e(600, 400);
    eErrorCode code;
    const auto s = e.Suggest({}, {}, &code);
    ASSERT_EQ(code, eSuccess);
    ASSERT_EQ(s.size(), 5u);
    for (size_t i = 0; i < s.size(); ++i) {
        EXPECT_GE(s[i].left, 0);
        EXPECT_LT(s[i].right, 600);
        EXPECT_LT(s[i].bottom, 400);
        EXPECT_TRUE(s[i].analysed);
        if (i > 0) {
            EXPECT_GE(s[i - 1].score, s[i].score);
        }
        for (size_t j = 0; j < i; ++j) EXPECT_LE(overlap_iou(s[i], s[j]), 0.83f);
    }
    // The salient object lies inside the best suggestion.
    EXPECT_LE(s[0].left, 600 * 0.6);
    EXPECT_GE(s[0].right, 600 * 0.8);
}

TEST(SuggestionQueries, ExactSizesAndTheirMessages) {
    Engine e(300, 200);
    // Too large to fit: no size, the ratio is honoured.
    auto s = e.Suggest(Size(400, 100, 1.5));
    ASSERT_FALSE(s.empty());
    for (const auto& c : s)
        EXPECT_NEAR((c.right - c.left + 1) / double(c.bottom - c.top + 1), 1.5, 0.02);
    // Width without height: no size either.
    EXPECT_FALSE(e.Suggest(Size(100, 0)).empty());

    // A fitting size answers crops of exactly that size, and its new ratio stays listed.
    eErrorCode code;
    s = e.Suggest(Size(120, 90), {}, &code);
    ASSERT_EQ(code, eSuccess);
    ASSERT_FALSE(s.empty());
    for (const auto& c : s) {
        EXPECT_EQ(c.right - c.left + 1, 120);
        EXPECT_EQ(c.bottom - c.top + 1, 90);
    }
    uint64_t count = 0;
    const RatioEntry* aspects = e.crop->GetAspectRatios(&count);
    ASSERT_EQ(count, 4u);
    EXPECT_NEAR(aspects[3].ratio, 120.0 / 90.0, 1e-12);
    EXPECT_TRUE(aspects[3].enabled);

    // With perAspectRatio or an aspect ratio the size is refused, in both slots.
    SelectionParams per;
    per.perAspectRatio = true;
    e.Suggest(Size(120, 90), per, &code);
    EXPECT_EQ(code, eInvalidRequest);
    EXPECT_STREQ(e.crop->GetLastErrorText(), "SmartCrop:  perAspectRatio was true");
    ICropRects* out = reinterpret_cast<ICropRects*>(0x1);  // must stay untouched
    const SuggestionParams size = Size(120, 90);
    EXPECT_EQ(e.crop->GetAllCrops(&out, &size), eInvalidRequest);
    EXPECT_STREQ(e.crop->GetLastErrorText(), "SmartCrop:  perAspectRatio was true");
    EXPECT_EQ(out, reinterpret_cast<ICropRects*>(0x1));
    e.Suggest(Size(120, 90, 1.5), {}, &code);
    EXPECT_EQ(code, eInvalidRequest);
    EXPECT_STREQ(e.crop->GetLastErrorText(), "SmartCrop:  inSuggestionParams aspectRatio > 0");

    // A disabled entry: code 4 and the answer left alone.
    ASSERT_EQ(e.crop->SetScaleRatio(0.5, false), eSuccess);
    const SuggestionParams disabled = Size(150, 100);  // ratio 1.5, scale 0.5
    SelectionParams selection;
    EXPECT_EQ(e.crop->GetSuggestions(&out, &selection, &disabled), eInvalidRequest);
    EXPECT_STREQ(e.crop->GetLastErrorText(),
                 "SmartCrop: input aspect ratio or scale ratio is disabled");
    EXPECT_EQ(out, reinterpret_cast<ICropRects*>(0x1));
    ASSERT_EQ(e.crop->SetAspectRatio(0.75, false), eSuccess);
    e.Suggest(Size(0, 0, 0.75), {}, &code);
    EXPECT_EQ(code, eInvalidRequest);
    EXPECT_STREQ(e.crop->GetLastErrorText(), "SmartCrop: input aspect ratio is disabled");

    // The object stays usable after every failure.
    EXPECT_FALSE(e.Suggest({}, {}, &code).empty());
    EXPECT_EQ(code, eSuccess);
}

TEST(SuggestionQueries, PerAspectRatioGroupsAndEmptyLists) {
    Engine e(300, 200);
    SelectionParams per;
    per.perAspectRatio = true;
    per.count = 2;
    const auto s = e.Suggest(Size(0, 0, 1.5), per);  // the ratio restricts nothing here
    ASSERT_EQ(s.size(), 6u);
    const double ratios[] = {1.0, 1.5, 0.75};
    for (size_t i = 0; i < s.size(); ++i) {
        EXPECT_NEAR((s[i].right - s[i].left + 1) / double(s[i].bottom - s[i].top + 1),
                    ratios[i / 2], 0.02);
    }
    Engine none(300, 200, {}, {});
    eErrorCode code;
    EXPECT_TRUE(none.Suggest({}, {}, &code).empty());
    EXPECT_EQ(code, eSuccess);
    ICropRects* all = nullptr;
    const SuggestionParams request;
    ASSERT_EQ(none.crop->GetAllCrops(&all, &request), eSuccess);
    EXPECT_EQ(all->GetCount(), 0u);
    EXPECT_EQ(all->GetRects(), nullptr);
    all->Release();
    // Ratios without scales: rows without cells, no candidates.
    Engine noScales(300, 200, {{1.0, true}}, {});
    EXPECT_TRUE(noScales.Suggest({}, {}, &code).empty());
    EXPECT_EQ(code, eSuccess);
}

TEST(SuggestionQueries, AllCropsCarryFeaturesInTableOrder) {
    Engine e(300, 200, {{1.0, true}, {1.5, false}}, {{1.0, true}, {0.5, true}});
    ICropRects* all = nullptr;
    const SuggestionParams request;
    ASSERT_EQ(e.crop->GetAllCrops(&all, &request), eSuccess);
    ASSERT_GT(all->GetCount(), 1u);
    const CropRect* r = all->GetRects();
    EXPECT_EQ(r[0].right - r[0].left + 1, 200);  // aspect 1, scale 1 first
    for (uint64_t i = 0; i < all->GetCount(); ++i) {
        EXPECT_TRUE(r[i].analysed);
        EXPECT_EQ(r[i].roiScore, 1.0);
        EXPECT_EQ(r[i].right - r[i].left, r[i].bottom - r[i].top);  // the disabled 1.5 is left out
    }
    all->Release();
}

TEST(SuggestionQueries, RectanglesOfInterestSteerAndFilter) {
    RectOfInterest required;
    required.left = 20;
    required.right = 80;
    required.top = 50;
    required.bottom = 120;
    required.kind = eRoiRequired;
    Engine e(600, 400, {{1.0, true}, {1.5, true}}, {{1.0, true}, {0.7, true}, {0.5, true}},
             {required});
    RectOfInterest forbidden;
    forbidden.left = 500;
    forbidden.right = 520;
    forbidden.top = 300;
    forbidden.bottom = 310;
    forbidden.kind = eRoiForbidden;
    ASSERT_EQ(e.crop->AddRectOfInterest(&forbidden), eSuccess);
    SelectionParams many;
    many.count = 50;
    const auto s = e.Suggest({}, many);
    ASSERT_FALSE(s.empty());
    for (const auto& c : s) {
        EXPECT_EQ(covered_fraction(c, required), 1.0f);
        EXPECT_EQ(intersection_area(c, forbidden), 0);
    }
    IRectsOfInterest* rois = nullptr;
    ASSERT_EQ(e.crop->GetRectsOfInterest(&rois), eSuccess);
    ASSERT_EQ(rois->GetCount(), 2u);
    EXPECT_EQ(rois->GetRects()[0].kind, eRoiRequired);  // the parameters' first
    EXPECT_EQ(rois->GetRects()[1].kind, eRoiForbidden);
    rois->Release();

    RectOfInterest inverted = forbidden;
    inverted.left = 600;
    EXPECT_EQ(e.crop->AddRectOfInterest(&inverted), eInvalidRequest);
}

TEST(SuggestionQueries, SoftRectanglesAndFaces) {
    Engine plain(600, 400);
    Engine wanted(600, 400);
    RectOfInterest left;
    left.left = 10;
    left.right = 150;
    left.top = 100;
    left.bottom = 250;
    ASSERT_EQ(wanted.crop->AddRectOfInterest(&left), eSuccess);
    // With weights[5] = 0 the soft rectangle changes nothing.
    SelectionParams noRoi;
    noRoi.weights[5] = 0.0;
    const auto a = plain.Suggest({}, noRoi), b = wanted.Suggest({}, noRoi);
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].left, b[i].left);
        EXPECT_EQ(a[i].score, b[i].score);
    }
    // With its default weight it pulls the best suggestion over it.
    const auto steered = wanted.Suggest({});
    EXPECT_LE(steered[0].left, 10 + 15);

    // A host rectangle marked as a face counts only in queries with useFaces.
    Engine face(600, 400);
    RectOfInterest f = left;
    f.isFace = true;
    ASSERT_EQ(face.crop->AddRectOfInterest(&f), eSuccess);
    ICropRects* all = nullptr;
    SuggestionParams request;
    ASSERT_EQ(face.crop->GetAllCrops(&all, &request), eSuccess);
    for (uint64_t i = 0; i < all->GetCount(); ++i) ASSERT_EQ(all->GetRects()[i].roiScore, 1.0);
    all->Release();
    request.useFaces = true;
    ASSERT_EQ(face.crop->GetAllCrops(&all, &request), eSuccess);
    bool anyBelow = false;
    for (uint64_t i = 0; i < all->GetCount(); ++i) anyBelow |= all->GetRects()[i].roiScore < 1.0;
    EXPECT_TRUE(anyBelow);
    all->Release();
}

TEST(SuggestionQueries, PropertyEverySuggestionFitsItsRequest) {
    std::mt19937 rng(8);
    std::uniform_int_distribution<int> side(40, 900);
    std::uniform_real_distribution<double> ratio(0.3, 3.0), scale(0.3, 1.0);
    for (int round = 0; round < 12; ++round) {
        const int W = side(rng), H = side(rng);
        const double r = ratio(rng);
        Engine e(W, H, {{r, true}, {ratio(rng), true}}, {{scale(rng), true}, {1.0, true}});
        SelectionParams selection;
        selection.count = 8;
        eErrorCode code;
        const auto s = e.Suggest(Size(0, 0, r), selection, &code);
        ASSERT_EQ(code, eSuccess);
        for (const auto& c : s) {
            ASSERT_GE(c.left, 0);
            ASSERT_GE(c.top, 0);
            ASSERT_LT(c.right, W);
            ASSERT_LT(c.bottom, H);
            const double w = c.right - c.left + 1, h = c.bottom - c.top + 1;
            // One side is rounded from the other by the size rule.
            ASSERT_LE(std::fabs(w - r * h), std::max(0.5, 0.5 * r) + 1e-9)
                << W << "x" << H << " " << r;
        }
    }
}

// Odd ratios, sizes and weights are the public fuzz target's; this pins what
// the generator specifies for a scale above 1.
TEST(SuggestionQueries, ScaleAboveOneFailsWithoutText) {
    eErrorCode code;
    // A scale above 1 cannot be cut from the image: every query that builds
    // it fails with code 1 and no text, and the object stays usable.
    Engine big(300, 200, {{1.0, true}}, {{1.0, true}});
    ASSERT_EQ(big.crop->SetScaleRatio(1.5, false), eSuccess);
    big.Suggest({}, {}, &code);
    EXPECT_EQ(code, eUnexpected);
    EXPECT_STREQ(big.crop->GetLastErrorText(), "");
    CropRect whole;
    whole.right = 299;
    whole.bottom = 199;
    EXPECT_EQ(big.crop->ScoreCrop(&whole), eSuccess);
}

}  // namespace
}  // namespace smartCrop
