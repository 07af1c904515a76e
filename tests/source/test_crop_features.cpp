// The five features of a crop, the model step, pooling and roiScore.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "SmartCrop.h"
#include "kernels/rect_geometry.h"
#include "random_maps.h"
#include "source/CropAnalyzer.h"
#include "source/PoolGrid.h"
#include "source/ScoreModel.h"
#include "test_images.h"

namespace smartCrop {
namespace {

struct Object {
    explicit Object(const test::Image& image) {
        SmartCropParams params;
        crop = CreateSmartCropObj(image.get(), &params);
    }
    ~Object() { crop->Release(); }
    ISmartCrop* crop;
};

TEST(CropFeatures, WholeImageIsFullyCovered) {
    test::Image image(480, 320, test::Image::Photo(480, 320));
    Object o(image);
    CropRect whole = test::Rect(0, 0, 479, 319);
    ASSERT_EQ(o.crop->ScoreCrop(&whole), eSuccess);
    EXPECT_TRUE(whole.analysed && whole.wellCovered);
    EXPECT_NEAR(whole.coverageScore, 1.0, 1e-6);
    EXPECT_NEAR(whole.peakShare, 1.0, 1e-6);
    EXPECT_TRUE(whole.aestheticScore >= 0.0 && whole.aestheticScore <= 1.0);

    // A second call leaves the record exactly as it is.
    const CropRect before = whole;
    ASSERT_EQ(o.crop->ScoreCrop(&whole), eSuccess);
    EXPECT_EQ(std::memcmp(&before, &whole, sizeof whole), 0);
}

TEST(CropFeatures, ConstantImageHasNoMassAndCleanBorders) {
    test::Image image(300, 200, [](int, int) { return test::Rgb{120, 130, 140}; });
    Object o(image);
    for (const CropRect& r :
         {test::Rect(0, 0, 299, 199), test::Rect(40, 30, 140, 130), test::Rect(150, 0, 299, 99)}) {
        CropRect c = r;
        ASSERT_EQ(o.crop->ScoreCrop(&c), eSuccess);
        EXPECT_EQ(c.coverageScore, 0.0);
        EXPECT_EQ(c.peakShare, 0.0);
        EXPECT_EQ(c.borderScore, 1.0);
        EXPECT_FALSE(c.wellCovered);
    }
}

TEST(CropFeatures, ScoreCropRefusesWhatItCannotScore) {
    test::Image image(300, 200, test::Image::Photo(300, 200));
    Object o(image);
    CropRect inverted = test::Rect(50, 50, 40, 60);
    EXPECT_EQ(o.crop->ScoreCrop(&inverted), eInvalidRequest);
    EXPECT_STREQ(o.crop->GetLastErrorText(), "SmartCrop: the crop rectangle is empty or inverted");
    CropRect outside = test::Rect(300, 0, 400, 50);
    EXPECT_EQ(o.crop->ScoreCrop(&outside), eInvalidRequest);
    EXPECT_FALSE(outside.analysed);
    EXPECT_EQ(o.crop->ScoreCrop(nullptr), eInvalidRequest);
    CropRect partly = test::Rect(-100, -100, 150, 120);  // scored on its part inside
    EXPECT_EQ(o.crop->ScoreCrop(&partly), eSuccess);
    EXPECT_TRUE(partly.analysed);

    // An object without maps never reads its empty tables.
    test::Image thin(3000, 1);
    std::streambuf* old = std::cerr.rdbuf(nullptr);
    Object none(thin);
    std::cerr.rdbuf(old);
    CropRect any = test::Rect(0, 0, 10, 0);
    EXPECT_EQ(none.crop->ScoreCrop(&any), eUnexpected);
    EXPECT_STREQ(
        none.crop->GetLastErrorText(),
        "SmartCrop: the image has no analysis: it is too thin (aspect ratio beyond 1:1280)");
}

TEST(CropFeatures, ModelClampsExactly) {
    float x[kPooledFeatureCount], zero[kPooledFeatureCount] = {}, one[kPooledFeatureCount];
    float weight[kPooledFeatureCount];
    std::fill_n(one, kPooledFeatureCount, 1.0f);
    std::fill_n(weight, kPooledFeatureCount, 0.1f);
    std::fill_n(x, kPooledFeatureCount, 1.0f);  // z = 30.4 - bias
    EXPECT_EQ(aesthetic_score(x, zero, one, weight, 0.0f), 1.0f);
    std::fill_n(x, kPooledFeatureCount, 1.0f);
    EXPECT_EQ(aesthetic_score(x, zero, one, weight, 40.0f), 0.0f);
    std::fill_n(x, kPooledFeatureCount, 2.0f);  // standardised: (2 - 1) * 1 = 1, z = 30.4 - 30.4
    EXPECT_NEAR(aesthetic_score(x, one, one, weight, 30.4f), 0.5f, 1e-5f);
}

// Cell means computed independently: cells of a grid share their boundary
// line, their edges found by stepping a float position by (r1 - r0) / L.
// Each is the brute-force mean, and bit for bit one table read per cell and
// one division in double, whatever vector width divides: crops touching row
// and column 0, narrower than the grid, and ordinary ones, on every grid.
TEST(PoolGrid, AgreesWithBruteForceCellMeans) {
    FloatMap map;
    DoubleMap table;
    test::random_map_with_table(40, 50, 11, map, table);
    std::mt19937 rng(5);
    for (int trial = 0; trial < 60; ++trial) {
        const int a = static_cast<int>(rng() % 40), b = static_cast<int>(rng() % 40);
        const int c = static_cast<int>(rng() % 50), d = static_cast<int>(rng() % 50);
        const WorkRect w{trial % 7 == 0 ? 0 : std::min(a, b), trial % 5 == 0 ? 0 : std::min(c, d),
                         std::max(a, b), std::max(c, d)};
        for (int L : {4, 8, 12}) {
            std::vector<float> cells(L * L);
            pool_cells(table, L, w, cells.data());
            std::vector<int> rows{w.r0}, cols{w.c0};
            float fr = static_cast<float>(w.r0), fc = static_cast<float>(w.c0);
            for (int i = 0; i < L; ++i) {
                fr += static_cast<float>(w.r1 - w.r0) / L;
                fc += static_cast<float>(w.c1 - w.c0) / L;
                rows.push_back(static_cast<int>(std::floor(fr)));
                cols.push_back(static_cast<int>(std::floor(fc)));
            }
            for (int i = 0; i < L; ++i) {
                for (int j = 0; j < L; ++j) {
                    double sum = 0;
                    int n = 0;
                    for (int r = rows[i]; r <= rows[i + 1]; ++r)
                        for (int col = cols[j]; col <= cols[j + 1]; ++col, ++n)
                            sum += map.at(r, col);
                    const float got = cells[i * L + j];
                    ASSERT_NEAR(got, sum / n, 1e-6) << trial << " " << L << " " << i << "," << j;
                    const double read =
                        region_sum(table, rows[i], rows[i + 1], cols[j], cols[j + 1]);
                    ASSERT_EQ(got, static_cast<float>(read / static_cast<float>(n))) << trial;
                }
            }
        }
    }
    // A crop of one work pixel reads that pixel in every cell of every grid.
    std::vector<float> single(kPooledFeatureCount);
    pool_model_features(table, table, WorkRect{12, 20, 12, 20}, single.data());
    for (float v : single) EXPECT_FLOAT_EQ(v, map.at(12, 20));
}

TEST(RoiScore, HandWorkedCases) {
    test::Image image(200, 100, test::Image::Photo(200, 100));
    const SmartCropParams params;  // margins 0.1 side, 0.05 top, 0.15 bottom; placement 0.01
    CropAnalyzer a(*image.get(), params, {});
    const CropRect crop = test::Rect(0, 0, 99, 99);

    // Filling the inner area exactly: ov 1, one hit, value 1; the placement
    // term (coverage of the bounds above 0.98) with headroom 1 and the
    // subject at x 0.2475 of the image but 0.495 of the crop.
    RectOfInterest inner;
    inner.left = 10;
    inner.right = 89;
    inner.top = 5;
    inner.bottom = 84;
    const float dx = 49.5f / 200 - 49.5f / 100;
    const float placement = static_cast<float>(std::exp(-(dx * dx)) * 0.5 + 1.0) / 1.5f;
    EXPECT_NEAR(a.roi_score(crop, {inner}, inner), (1.0f + 0.01f * placement) / 1.01f, 1e-6f);

    // Unwanted and wholly outside: sum 1, one hit, and no placement term.
    RectOfInterest away;
    away.left = 150;
    away.right = 190;
    away.top = 10;
    away.bottom = 20;
    away.kind = eRoiUnwanted;
    EXPECT_NEAR(a.roi_score(crop, {away}, away), 1.0f / 1.01f, 1e-6f);

    // Wanted but only half inside: no hit, no placement: (0.5 / 1 + 0) / 2.
    RectOfInterest half = away;
    half.kind = eRoiWanted;
    half.left = 50;
    half.right = 129;
    half.top = 20;
    half.bottom = 30;
    const float ov = covered_fraction(RectOfInterest{10, 89, 5, 84}, half);
    EXPECT_NEAR(a.roi_score(crop, {half}, half), (ov / 1 + 0) / 2 / 1.01f, 1e-6f);
}

// A face box of the 1024-pixel copy widened 1.5 times about its centre in the
// copy's integer pixels, then taken to the source (scale 0.5 here), worked
// by hand: x 100..160 -> q 65, 100 * 1.5 - 65 = 85, 160 * 1.5 - 65 = 175,
// halved back: 170..350; y 40..120 -> q 40, 20 and 140: 40..280.
TEST(FaceWidening, HandWorkedBoxesAndClamps) {
    RectOfInterest r;
    ASSERT_TRUE(widened_face(FaceBox{100, 40, 60, 80, 0.9f}, 0.5f, 2048, 1536, r));
    EXPECT_EQ(std::vector<int>({r.left, r.top, r.right, r.bottom}),
              std::vector<int>({170, 40, 350, 280}));
    EXPECT_TRUE(r.isFace && r.active && r.kind == eRoiWanted);
    // Near the corner: x 2..42 -> q 11, 3 - 11 + 0.5 truncates to -7 (-14 in the
    // source), 63 - 11 + 0.5 to 52 (104); y 10..50 -> 0 and 60 (120). Clamped at
    // 0 on the low sides and at the last pixel, 99, on the high sides.
    ASSERT_TRUE(widened_face(FaceBox{2, 10, 40, 40, 0.9f}, 0.5f, 100, 100, r));
    EXPECT_EQ(std::vector<int>({r.left, r.top, r.right, r.bottom}),
              std::vector<int>({0, 0, 99, 99}));
    // Clamped on one side only, a box below the image turns inverted: refused.
    EXPECT_FALSE(widened_face(FaceBox{2, 60, 40, 40, 0.9f}, 0.5f, 100, 100, r));
}

}  // namespace
}  // namespace smartCrop
