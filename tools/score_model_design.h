// What the design fixes of the aesthetic model, and what it leaves to the
// fit: its bias, seven rows of mean, scale and weight, the range of each
// block's values, and the four strongest weights. The fit takes the given
// values as they stand and keeps every other value inside its block's range.
#ifndef SMARTCROP_TOOLS_SCORE_MODEL_DESIGN_H
#define SMARTCROP_TOOLS_SCORE_MODEL_DESIGN_H

#include "source/PoolGrid.h"

namespace smartCrop::fitting {

struct Range {
    double lo, hi;
};

// One grid of the feature vector: indices first..last.
struct Block {
    int first, last;
    Range mean, scale, weight;
};

struct GivenRow {
    int index;
    float mean, scale, weight;
};

inline constexpr float kDesignBias = 0.3835262358188629f;

inline constexpr Block kDesignBlocks[5] = {
    {0, 15, {0.20075, 0.22975}, {6.0262, 6.2095}, {-0.89931, 1.23093}},
    {16, 79, {0.19909, 0.23598}, {5.3818, 5.7225}, {-0.35680, 0.36523}},
    {80, 95, {0.06964, 0.09090}, {11.7786, 12.7817}, {-2.56087, 1.41462}},
    {96, 159, {0.06502, 0.09457}, {10.0798, 11.7573}, {-0.51564, 0.56573}},
    {160, 303, {0.06356, 0.09542}, {9.4769, 11.2973}, {-0.36554, 0.35922}},
};

static_assert(kDesignBlocks[0].first == 0 && kDesignBlocks[4].last + 1 == kPooledFeatureCount &&
                  kDesignBlocks[1].first == kDesignBlocks[0].last + 1 &&
                  kDesignBlocks[2].first == kDesignBlocks[1].last + 1 &&
                  kDesignBlocks[3].first == kDesignBlocks[2].last + 1 &&
                  kDesignBlocks[4].first == kDesignBlocks[3].last + 1,
              "the design's blocks are the pooled grids, in order");

// The ranges are printed to the last digit shown: a given value may lie
// outside by up to half a unit of that digit (the weight at 89 does).
inline constexpr double kMeanSlack = 5e-6, kScaleSlack = 5e-5, kWeightSlack = 5e-6;

inline constexpr GivenRow kGivenRows[7] = {
    {0, 0.2007511f, 6.209486f, -0.1343563f},    {1, 0.2090026f, 6.127813f, 0.02477594f},
    {16, 0.1990919f, 5.714255f, 0.2000675f},    {80, 0.06964272f, 12.78169f, 1.197708f},
    {85, 0.0903944f, 11.78446f, -2.560412f},    {89, 0.0903944f, 11.78446f, -2.560871f},
    {160, 0.06356236f, 11.29731f, 0.05638273f},
};

// Rows 1 and 2, columns 1 and 3 of the 4 by 4 edge grid: negative, and the
// most negative weights of the table.
inline constexpr int kStrongest[4] = {85, 87, 89, 91};

// Every other weight stays at or above this floor, and the strongest four
// at or below the cap just under it, so that the four are the most negative
// whatever the data say. The floor is the lowest weight any block but the
// 4 by 4 edge grid may take, so it narrows only that grid.
inline constexpr double kOthersFloor = -0.89931, kStrongestCap = -0.9;

inline const Block& block_of(int index) {
    for (const Block& b : kDesignBlocks)
        if (index <= b.last) return b;
    return kDesignBlocks[4];
}

}  // namespace smartCrop::fitting

#endif  // SMARTCROP_TOOLS_SCORE_MODEL_DESIGN_H
