// The whole road from a host's request to ranked crops, through the interface.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "SmartCrop.h"
#include "kernels/rect_geometry.h"
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
    std::vector<CropRect> Suggest(const SuggestionParams& request, SelectionParams selection = {},
                                  eErrorCode* code = nullptr) {
        return test::Suggestions(crop, request, selection, code);
    }
    // The code of a failing query, which must leave the answer untouched, and its text.
    std::pair<eErrorCode, std::string> Failure(const SuggestionParams& request,
                                               SelectionParams selection = {}, bool all = false) {
        ICropRects* out = reinterpret_cast<ICropRects*>(0x1);
        const eErrorCode code = all ? crop->GetAllCrops(&out, &request)
                                    : crop->GetSuggestions(&out, &selection, &request);
        EXPECT_EQ(out, reinterpret_cast<ICropRects*>(0x1));
        return {code, crop->GetLastErrorText()};
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

double aspect(const CropRect& c) {
    return (c.right - c.left + 1) / double(c.bottom - c.top + 1);
}

RectOfInterest roi(int left, int top, int right, int bottom, uint32_t kind = eRoiWanted) {
    RectOfInterest r;
    r.left = left, r.top = top, r.right = right, r.bottom = bottom, r.kind = kind;
    return r;
}

TEST(SuggestionQueries, SuggestionsAreRankedInsideAndDiverse) {
    Engine e(600, 400);
    eErrorCode code;
    const auto s = e.Suggest({}, {}, &code);
    ASSERT_EQ(code, eSuccess);
    ASSERT_EQ(s.size(), 5u);
    for (size_t i = 0; i < s.size(); ++i) {
        EXPECT_TRUE(s[i].left >= 0 && s[i].right < 600 && s[i].bottom < 400 && s[i].analysed);
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
    // Too large to fit, or a width alone: no size; the ratio is honoured.
    auto s = e.Suggest(Size(400, 100, 1.5));
    ASSERT_FALSE(s.empty());
    for (const auto& c : s) EXPECT_NEAR(aspect(c), 1.5, 0.02);
    EXPECT_FALSE(e.Suggest(Size(100, 0)).empty());

    // A fitting size answers crops of exactly that size, and its new ratio stays listed.
    s = e.Suggest(Size(120, 90));
    ASSERT_FALSE(s.empty());
    for (const auto& c : s) EXPECT_TRUE(c.right - c.left == 119 && c.bottom - c.top == 89);
    uint64_t count = 0;
    const RatioEntry* aspects = e.crop->GetAspectRatios(&count);
    ASSERT_EQ(count, 4u);
    EXPECT_NEAR(aspects[3].ratio, 120.0 / 90.0, 1e-12);
    EXPECT_TRUE(aspects[3].enabled);

    ASSERT_EQ(e.crop->SetScaleRatio(0.5, false), eSuccess);
    ASSERT_EQ(e.crop->SetAspectRatio(0.75, false), eSuccess);
    SelectionParams per;
    per.perAspectRatio = true;
    // A size is refused with perAspectRatio or a ratio, in both operations;
    // a disabled entry is refused too.
    const std::pair<eErrorCode, std::string> perAspect = {eInvalidRequest,
                                                          "SmartCrop:  perAspectRatio was true"};
    EXPECT_EQ(e.Failure(Size(120, 90), per), perAspect);
    EXPECT_EQ(e.Failure(Size(120, 90), {}, true), perAspect);
    EXPECT_EQ(e.Failure(Size(120, 90, 1.5)),
              std::make_pair(eInvalidRequest,
                             std::string("SmartCrop:  inSuggestionParams aspectRatio > 0")));
    EXPECT_EQ(e.Failure(Size(150, 100)),  // ratio 1.5, scale 0.5
              std::make_pair(eInvalidRequest, std::string("SmartCrop: input aspect ratio or "
                                                          "scale ratio is disabled")));
    EXPECT_EQ(
        e.Failure(Size(0, 0, 0.75)),
        std::make_pair(eInvalidRequest, std::string("SmartCrop: input aspect ratio is disabled")));

    // The object stays usable after every failure.
    eErrorCode code;
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
    for (size_t i = 0; i < s.size(); ++i) EXPECT_NEAR(aspect(s[i]), ratios[i / 2], 0.02);

    // No ratios, or ratios without scales (rows without cells): no candidates.
    Engine none(300, 200, {}, {}), noScales(300, 200, {{1.0, true}}, {});
    for (Engine* empty : {&none, &noScales}) {
        eErrorCode code;
        EXPECT_TRUE(empty->Suggest({}, {}, &code).empty());
        EXPECT_EQ(code, eSuccess);
    }
    ICropRects* all = nullptr;
    const SuggestionParams request;
    ASSERT_EQ(none.crop->GetAllCrops(&all, &request), eSuccess);
    EXPECT_EQ(all->GetCount(), 0u);
    EXPECT_EQ(all->GetRects(), nullptr);
    all->Release();
}

TEST(SuggestionQueries, AllCropsCarryFeaturesInTableOrder) {
    Engine e(300, 200, {{1.0, true}, {1.5, false}}, {{1.0, true}, {0.5, true}});
    const auto all = test::AllCrops(e.crop);
    ASSERT_GT(all.size(), 1u);
    EXPECT_EQ(all[0].right - all[0].left + 1, 200);  // aspect 1, scale 1 first
    for (const CropRect& r : all) {
        EXPECT_TRUE(r.analysed);
        EXPECT_EQ(r.roiScore, 1.0);
        EXPECT_EQ(r.right - r.left, r.bottom - r.top);  // the disabled 1.5 is left out
    }
}

TEST(SuggestionQueries, RectanglesOfInterestSteerAndFilter) {
    const RectOfInterest required = roi(20, 50, 80, 120, eRoiRequired);
    Engine e(600, 400, {{1.0, true}, {1.5, true}}, {{1.0, true}, {0.7, true}, {0.5, true}},
             {required});
    const RectOfInterest forbidden = roi(500, 300, 520, 310, eRoiForbidden);
    ASSERT_EQ(e.crop->AddRectOfInterest(&forbidden), eSuccess);
    SelectionParams many;
    many.count = 50;
    const auto s = e.Suggest({}, many);
    ASSERT_FALSE(s.empty());
    for (const auto& c : s) {
        EXPECT_EQ(covered_fraction(c, required), 1.0f);
        EXPECT_EQ(intersection_area(c, forbidden), 0);
    }
    const auto rois = test::RectsOfInterest(e.crop);
    ASSERT_EQ(rois.size(), 2u);
    EXPECT_EQ(rois[0].kind, eRoiRequired);  // the parameters' first
    EXPECT_EQ(rois[1].kind, eRoiForbidden);
    const RectOfInterest inverted = roi(600, 300, 520, 310);
    EXPECT_EQ(e.crop->AddRectOfInterest(&inverted), eInvalidRequest);
}

TEST(SuggestionQueries, SoftRectanglesAndFaces) {
    Engine plain(600, 400), wanted(600, 400), face(600, 400);
    RectOfInterest left = roi(10, 100, 150, 250);
    ASSERT_EQ(wanted.crop->AddRectOfInterest(&left), eSuccess);
    // With weights[5] = 0 the soft rectangle changes nothing.
    SelectionParams noRoi;
    noRoi.weights[5] = 0.0;
    const auto a = plain.Suggest({}, noRoi), b = wanted.Suggest({}, noRoi);
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i)
        EXPECT_TRUE(a[i].left == b[i].left && a[i].score == b[i].score);
    // With its default weight it pulls the best suggestion over it.
    EXPECT_LE(wanted.Suggest({})[0].left, 10 + 15);

    // A host rectangle marked as a face counts only in queries with useFaces.
    left.isFace = true;
    ASSERT_EQ(face.crop->AddRectOfInterest(&left), eSuccess);
    SuggestionParams request;
    for (const CropRect& r : test::AllCrops(face.crop, request)) ASSERT_EQ(r.roiScore, 1.0);
    request.useFaces = true;
    bool anyBelow = false;
    for (const CropRect& r : test::AllCrops(face.crop, request)) anyBelow |= r.roiScore < 1.0;
    EXPECT_TRUE(anyBelow);
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
            ASSERT_TRUE(c.left >= 0 && c.top >= 0 && c.right < W && c.bottom < H);
            const double w = c.right - c.left + 1, h = c.bottom - c.top + 1;
            // One side is rounded from the other by the size rule.
            ASSERT_LE(std::fabs(w - r * h), std::max(0.5, 0.5 * r) + 1e-9)
                << W << "x" << H << " " << r;
        }
    }
}

// A scale above 1 cannot be cut from the image: every query that builds it
// fails with code 1 and no text, and the object stays usable.
TEST(SuggestionQueries, ScaleAboveOneFailsWithoutText) {
    Engine big(300, 200, {{1.0, true}}, {{1.0, true}});
    ASSERT_EQ(big.crop->SetScaleRatio(1.5, false), eSuccess);
    EXPECT_EQ(big.Failure({}), std::make_pair(eUnexpected, std::string()));
    CropRect whole;
    whole.right = 299;
    whole.bottom = 199;
    EXPECT_EQ(big.crop->ScoreCrop(&whole), eSuccess);
}

}  // namespace
}  // namespace smartCrop
