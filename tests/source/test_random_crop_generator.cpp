// The candidate grid: sizes, positions, matching, lazy cells and copying out.
#include <gtest/gtest.h>

#include <string>

#include "source/ErrorFunnel.h"
#include "source/RandomCropGenerator.h"

namespace {

using smartCrop::CropCell;
using smartCrop::kAllIndices;
using smartCrop::RandomCropGenerator;
using smartCrop::RatioEntry;

RandomCropGenerator MakeGenerator(uint64_t w, uint64_t h, std::vector<double> aspects,
                                  std::vector<double> scales, uint32_t steps = 25) {
    std::vector<RatioEntry> a, s;
    for (double r : aspects) a.push_back({r, true});
    for (double r : scales) s.push_back({r, true});
    return RandomCropGenerator(w, h, a, s, steps);
}

TEST(RandomCropGenerator, WorkedExampleGivesItsCountsAndPositions) {
    auto gen = MakeGenerator(1000, 800, {1.25}, {0.5});
    const CropCell& cell = gen.BuildCell(0, 0);
    ASSERT_EQ(cell.size(), 25u * 20u);
    for (const auto& c : cell) {
        ASSERT_EQ(c.right - c.left + 1, 500);
        ASSERT_EQ(c.bottom - c.top + 1, 400);
    }
    // Horizontal position is the outer loop: 20 tops per left.
    const int lefts[] = {0, 20, 41, 62};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(cell[i * 20].left, lefts[i]);
    const int tops[] = {0, 21, 42};
    for (int j = 0; j < 3; ++j) EXPECT_EQ(cell[j].top, tops[j]);
    EXPECT_EQ(cell.back().left, 500);
    EXPECT_EQ(cell.back().top, 400);
    EXPECT_FALSE(cell[0].analysed);
    EXPECT_EQ(cell[0].roiScore, 1.0);
}

// (image, aspect, scale) -> the number of positions, the first and the last
// one: scale 1 at the image's own aspect is the whole image; a range of 5
// gives 6 positions a pixel apart; no horizontal room gives one column; a
// crop that rounds to nothing has no position.
TEST(RandomCropGenerator, GridShapes) {
    const struct {
        uint64_t w, h;
        double aspect, scale;
        size_t count;
        int lastLeft, lastTop, lastRight, lastBottom;
    } cases[] = {
        {1000, 800, 1.25, 1.0, 1, 0, 0, 999, 799},   {105, 100, 1.0, 1.0, 6, 5, 0, 104, 99},
        {800, 1000, 1.0, 1.0, 25, 0, 200, 799, 999}, {1000, 800, 0.0001, 0.5, 0, 0, 0, 0, 0},
        {1000, 800, 0.0, 0.001, 0, 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        auto gen = MakeGenerator(c.w, c.h, {c.aspect}, {c.scale});
        const CropCell& cell = gen.BuildCell(0, 0);
        ASSERT_EQ(cell.size(), c.count) << c.w << "x" << c.h << " " << c.aspect;
        if (cell.empty()) continue;
        EXPECT_EQ(cell[0].left, 0);
        EXPECT_EQ(cell[0].top, 0);
        EXPECT_EQ(std::vector<int>(
                      {cell.back().left, cell.back().top, cell.back().right, cell.back().bottom}),
                  std::vector<int>({c.lastLeft, c.lastTop, c.lastRight, c.lastBottom}));
    }
}

TEST(RandomCropGenerator, ScaleAboveOneThrowsAndKeepsTheTable) {
    auto gen = MakeGenerator(640, 480, {1.0}, {0.5, 1.5});
    EXPECT_EQ(gen.BuildCell(0, 0).size(), 25u * 15u);  // 240 by 240 in 640 by 480
    const size_t before = gen.Cells(0, 0)[0]->size();
    (*gen.Cells(0, 0)[0])[3].analysed = true;  // as scoring does: a made cell is kept
    try {
        gen.BuildAspectRow(0);
        FAIL() << "expected a throw";
    } catch (const char* text) {
        EXPECT_STREQ(text, "RandomCropGenerator: error\n");
    }
    ASSERT_EQ(gen.Cells(0, kAllIndices).size(), 2u);
    EXPECT_EQ(gen.Cells(0, 0)[0]->size(), before);
    EXPECT_TRUE(gen.BuildCell(0, 0)[3].analysed);
    EXPECT_TRUE(gen.Cells(0, 1)[0]->empty());

    // Through the funnel it is code 1 with no text.
    std::string lastError;
    EXPECT_EQ(smartCrop::RunFunnelled(lastError, [&] { gen.BuildAll(); }), smartCrop::eUnexpected);
    EXPECT_EQ(lastError, "");
}

TEST(RandomCropGenerator, MatchesWithinToleranceAndAppendsNewRatios) {
    auto gen = MakeGenerator(1000, 500, {1.5}, {1.0});
    const double tol = 0.001 / 1000;  // a thousandth of a pixel of the long side
    gen.SetAspectRatio(1.5, false);
    gen.SetAspectRatio(1.5 + tol / 2, false);
    ASSERT_EQ(gen.GetAspectRatios().size(), 1u);
    EXPECT_FALSE(gen.GetAspectRatios()[0].enabled);
    gen.SetAspectRatio(1.5 + tol * 2, true);
    ASSERT_EQ(gen.GetAspectRatios().size(), 2u);

    uint32_t index = 99;
    gen.CropsForAspect(1.5 + tol / 3, index);
    EXPECT_EQ(index, 0u);
    gen.CropsForAspect(0.75, index);
    EXPECT_EQ(index, 2u);
    ASSERT_EQ(gen.GetAspectRatios().size(), 3u);
    EXPECT_TRUE(gen.GetAspectRatios()[2].enabled);
    EXPECT_FALSE(gen.Cells(2, 0)[0]->empty());

    // An exact size finds or appends both its ratio and its scale.
    uint32_t a = 0, s = 0;
    const CropCell& cell = gen.CropsForSize(600, 400, a, s);
    EXPECT_EQ(a, 0u);
    EXPECT_EQ(s, 1u);
    EXPECT_DOUBLE_EQ(gen.GetScaleRatios()[1].ratio, 0.8);
    ASSERT_FALSE(cell.empty());
    EXPECT_EQ(cell[0].right - cell[0].left + 1, 600);
    EXPECT_EQ(cell[0].bottom - cell[0].top + 1, 400);
    gen.CropsForSize(600, 400, a, s);
    EXPECT_EQ(gen.GetScaleRatios().size(), 2u);
    gen.CropsForSize(300, 300, a, s);
    EXPECT_EQ(a, 3u);
    EXPECT_EQ(s, 2u);
    EXPECT_EQ(gen.GetAspectRatios().size(), 4u);
}

TEST(RandomCropGenerator, EnabledFlagsActOnlyWhenHandingOut) {
    auto gen = MakeGenerator(400, 300, {1.0, 1.5, 0.75}, {1.0, 0.8});
    gen.BuildAll();
    const size_t cellSize = gen.Cells(1, 1)[0]->size();
    gen.SetAspectRatio(1.5, false);
    gen.SetScaleRatio(1.0, false);
    EXPECT_EQ(gen.Cells(1, 1)[0]->size(), cellSize);  // the table is untouched

    const auto all = gen.EnabledCells(kAllIndices);
    ASSERT_EQ(all.size(), 2u);  // disabled rows and cells leave no gap
    EXPECT_EQ(all[0], gen.Cells(0, 1)[0]);
    EXPECT_EQ(all[1], gen.Cells(2, 1)[0]);
    EXPECT_TRUE(gen.EnabledCells(1).empty());
    // Scoring reaches every made cell of its range, enabled or not.
    EXPECT_EQ(gen.Cells(kAllIndices, kAllIndices).size(), 6u);
    EXPECT_EQ(gen.Cells(1, kAllIndices).size(), 2u);
    EXPECT_EQ(gen.Cells(1, 1).front(), gen.Cells(1, 1)[0]);
    EXPECT_TRUE(gen.Cells(3, 0).empty());

    try {
        gen.EnabledCells(3);
        FAIL() << "expected a range fault";
    } catch (const Wefty::exception& e) {
        EXPECT_EQ(e.code, smartCrop::eInvalidRequest);
        EXPECT_STREQ(e.what(), "invalid Croprects start or end index");
        EXPECT_EQ(e.line, 141u);
        EXPECT_STREQ(e.file, "source/RandomCropGenerator");
    }
}

}  // namespace
