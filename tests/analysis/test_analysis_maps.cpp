// Thresholds, centre bands and summed-area tables of the analysis maps.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "analysis/edge_map.h"
#include "analysis/map_morphology.h"
#include "analysis/map_thresholds.h"
#include "analysis/pixel_resize.h"
#include "analysis/summed_area_table.h"
#include "random_maps.h"

namespace smartCrop {
namespace {

TEST(AnalysisMaps, ThresholdRelativeZeroesAtAndBelow) {
    FloatMap map;
    map.resize(1, 4);
    const float justAbove = std::nextafter(0.5f, 1.0f);
    map.data.assign({1.0f, 0.5f, justAbove, 0.2f});
    threshold_relative(map, 0.5f);
    EXPECT_EQ(map.data[0], 1.0f);
    EXPECT_EQ(map.data[1], 0.0f);
    EXPECT_EQ(map.data[2], justAbove);
    EXPECT_EQ(map.data[3], 0.0f);
    map.data.assign({0, 0, 0, 0});  // t = 0 changes nothing
    threshold_relative(map, 0.3f);
    EXPECT_EQ(std::vector<float>(map.data.begin(), map.data.end()), std::vector<float>(4, 0.0f));
}

TEST(AnalysisMaps, CentreBandsWeighColumns) {
    FloatMap map;
    map.resize(3, 10);
    std::fill(map.data.begin(), map.data.end(), 1.0f);
    weight_centre_bands(map, 5);
    const float expected[5] = {0.2f, 0.4472136f, 1.0f, 0.4472136f, 0.2f};
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 10; ++c) EXPECT_NEAR(map.at(r, c), expected[c / 2], 1e-6f) << c;
    }
}

TEST(AnalysisMaps, TablesAgreeWithBruteForceSums) {
    FloatMap map;
    DoubleMap table;
    test::random_map_with_table(23, 31, 3, map, table);
    std::mt19937 rng(3);
    std::uniform_int_distribution<int> row(0, 22), col(0, 30);
    for (int trial = 0; trial < 200; ++trial) {
        int r0 = row(rng), r1 = row(rng), c0 = col(rng), c1 = col(rng);
        if (r0 > r1) std::swap(r0, r1);
        if (c0 > c1) std::swap(c0, c1);
        double sum = 0;
        for (int r = r0; r <= r1; ++r)
            for (int c = c0; c <= c1; ++c) sum += map.at(r, c);
        // Double tables of float inputs: rounding far below a float's ulp.
        EXPECT_NEAR(region_sum(table, r0, r1, c0, c1), sum, 1e-9);
        EXPECT_NEAR(region_mean(table, r0, r1, c0, c1), sum / ((r1 - r0 + 1) * (c1 - c0 + 1)),
                    1e-10);
    }
}

// Tables made several at a time, two rows at a time, are the one-at-a-time
// tables bit for bit: odd and even row counts, one row, one column.
TEST(AnalysisMaps, BatchedTablesAreSingleTables) {
    for (const auto& [rows, cols] : {std::pair{23, 31}, {24, 17}, {1, 9}, {8, 1}}) {
        FloatMap maps[5];
        DoubleMap single[5], batched[5];
        const FloatMap* in[5];
        DoubleMap* out[5];
        for (int k = 0; k < 5; ++k) {
            test::random_map_with_table(rows, cols, 10 + k, maps[k], single[k]);
            batched[k].resize(rows, cols);
            in[k] = &maps[k];
            out[k] = &batched[k];
        }
        integral_images(in, out, 5);
        for (int k = 0; k < 5; ++k)
            for (size_t i = 0; i < single[k].size(); ++i)
                ASSERT_EQ(batched[k].data[i], single[k].data[i]) << rows << "x" << cols << " " << k;
    }
}

TEST(EdgeMap, LevelSizes) {
    const auto wide = edge_level_sizes(640, 320, {0.04f, 0.2f});
    ASSERT_EQ(wide.size(), 2u);
    EXPECT_EQ(wide[0].width, 25);
    EXPECT_EQ(wide[0].height, 12);
    EXPECT_EQ(wide[1].width, 128);
    EXPECT_EQ(wide[1].height, 64);
    const auto thin = edge_level_sizes(640, 20, {0.04f, 0.2f});
    ASSERT_EQ(thin.size(), 1u);
    EXPECT_EQ(thin[0].height, 4);
}

}  // namespace
}  // namespace smartCrop
