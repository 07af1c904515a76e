// Ranking by log rank, the diverse pick, and the filters of hard rectangles.
#include <gtest/gtest.h>

#include <cmath>

#include "kernels/rect_geometry.h"
#include "source/CropAnalyzer.h"
#include "test_images.h"

namespace smartCrop {
namespace {

class Ranking : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        image = new test::Image(320, 240, [](int x, int y) {
            return test::Rgb{static_cast<uint8_t>(x), static_cast<uint8_t>(y), 90};
        });
        analyzer = new CropAnalyzer(*image->get(), SmartCropParams(), {});
    }
    static void TearDownTestSuite() {
        delete analyzer;
        delete image;
    }
    static test::Image* image;
    static CropAnalyzer* analyzer;
};
test::Image* Ranking::image = nullptr;
CropAnalyzer* Ranking::analyzer = nullptr;

const std::array<double, 6> kWeights = {1, 1, 1, 0, 0, 1};

// Candidates far apart from each other (no two overlap), with the aesthetic
// score rising with the index so that the order is known.
std::vector<CropRect> spread(int n) {
    std::vector<CropRect> out(n);
    for (int i = 0; i < n; ++i) {
        out[i].left = i * 3;
        out[i].right = i * 3 + 1;
        out[i].top = 0;
        out[i].bottom = 1;
        out[i].aestheticScore = out[i].coverageScore = out[i].borderScore = i;
        out[i].analysed = true;
    }
    return out;
}

// The ranking reads records in place.
std::vector<const CropRect*> in_place(const std::vector<CropRect>& records) {
    std::vector<const CropRect*> out;
    for (const CropRect& r : records) out.push_back(&r);
    return out;
}

TEST(LogRank, HandWorked) {
    std::vector<std::pair<float, uint32_t>> pairs = {{5, 0}, {1, 1}, {3, 2}, {9, 3}};
    std::vector<float> out(4);
    log_rank(pairs, out);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_FLOAT_EQ(out[2], static_cast<float>(std::log(2.0) / std::log(4.0)));
    EXPECT_FLOAT_EQ(out[0], static_cast<float>(std::log(3.0) / std::log(4.0)));
    EXPECT_EQ(out[3], 1.0f);
}

TEST_F(Ranking, SingleCandidateComesBackWithNaN) {
    std::vector<CropRect> one = spread(1);
    const auto& result = analyzer->rank_candidates(5, in_place(one), kWeights);
    ASSERT_EQ(result.size(), 1u);
    EXPECT_TRUE(std::isnan(result[0].score));
}

TEST_F(Ranking, CountZeroAndSmallListsWhole) {
    std::vector<CropRect> some = spread(50);
    EXPECT_TRUE(analyzer->rank_candidates(0, in_place(some), kWeights).empty());

    std::vector<CropRect> many = spread(900);
    const auto& all = analyzer->rank_candidates(1000, in_place(many), kWeights);
    ASSERT_EQ(all.size(), 900u);  // fewer than asked: no diversity step
    for (size_t i = 1; i < all.size(); ++i) ASSERT_GE(all[i - 1].score, all[i].score);
    EXPECT_EQ(all[0].left, 899 * 3);
}

TEST_F(Ranking, AboveAThousandOnlyTheBestFifthTakePart) {
    std::vector<CropRect> many = spread(1500);
    const auto& best = analyzer->rank_candidates(2000, in_place(many), kWeights);
    ASSERT_EQ(best.size(), 300u);
    EXPECT_EQ(best.back().left, 1200 * 3);  // the 300th best
}

TEST_F(Ranking, NearDuplicatesFormOneCluster) {
    std::vector<CropRect> near(10);
    for (int i = 0; i < 10; ++i) {
        near[i].left = i;  // 200 wide: any two overlap far above 0.83
        near[i].right = 199 + i;
        near[i].top = 0;
        near[i].bottom = 99;
        near[i].aestheticScore = near[i].coverageScore = near[i].borderScore = i;
    }
    const auto& three = analyzer->rank_candidates(3, in_place(near), kWeights);
    ASSERT_EQ(three.size(), 3u);
    EXPECT_EQ(three[0].left, 9);
    EXPECT_EQ(three[1].left, 8);
    EXPECT_EQ(three[2].left, 7);

    // Two clusters: the two seeds come before any second member.
    near.push_back(near[0]);
    near.back().left = 300;
    near.back().right = 310;
    const auto& two = analyzer->rank_candidates(2, in_place(near), kWeights);
    ASSERT_EQ(two.size(), 2u);
    EXPECT_LE(overlap_iou(two[0], two[1]), 0.83f);
}

// Ranks are reused while the candidates' values are the same, and only then.
TEST_F(Ranking, RepeatedRankingsMatchFreshOnes) {
    std::vector<CropRect> some = spread(30);
    const std::vector<CropRect> first = analyzer->rank_candidates(3, in_place(some), kWeights);
    EXPECT_EQ(analyzer->rank_candidates(3, in_place(some), kWeights).front().left,
              first.front().left);
    some[0].aestheticScore = some[0].coverageScore = some[0].borderScore = 100;  // now the best
    const auto again = analyzer->rank_candidates(3, in_place(some), kWeights);
    EXPECT_EQ(again.front().left, 0);
    CropAnalyzer fresh(*image->get(), SmartCropParams(), {});
    const auto expected = fresh.rank_candidates(3, in_place(some), kWeights);
    ASSERT_EQ(again.size(), expected.size());
    for (size_t i = 0; i < again.size(); ++i) EXPECT_EQ(again[i].score, expected[i].score) << i;
}

TEST_F(Ranking, ModesRankOnOneFeature) {
    std::vector<CropRect> c = spread(20);
    for (int i = 0; i < 20; ++i) c[i].borderScore = 19 - i;  // border prefers the first
    const ConstCellRange cells = {&c};
    const auto& byBorder = analyzer->select_suggestions(1, cells, false, 3, kWeights);
    ASSERT_EQ(byBorder.size(), 1u);
    EXPECT_EQ(byBorder[0].left, 0);
    const auto& byAesthetic = analyzer->select_suggestions(1, cells, false, 1, kWeights);
    EXPECT_EQ(byAesthetic[0].left, 19 * 3);
}

}  // namespace
}  // namespace smartCrop
