// Whether tables keep what the design fixes of the aesthetic model; the
// broken rules, named, for the failure message.
#ifndef SMARTCROP_TESTS_TOOLS_DESIGN_CHECKS_H
#define SMARTCROP_TESTS_TOOLS_DESIGN_CHECKS_H

#include <algorithm>
#include <string>
#include <vector>

#include "score_model_design.h"
#include "source/PoolGrid.h"

namespace test {

inline std::vector<std::string> design_violations(const float* mean, const float* scale,
                                                  const float* weight, float bias) {
    using namespace smartCrop::fitting;
    std::vector<std::string> broken;
    auto at = [](const char* what, int i) { return std::string(what) + " " + std::to_string(i); };
    if (bias != kDesignBias) broken.push_back("bias");
    for (const GivenRow& r : kGivenRows) {
        if (mean[r.index] != r.mean || scale[r.index] != r.scale || weight[r.index] != r.weight)
            broken.push_back(at("given row", r.index));
    }
    auto inside = [](double v, const Range& r, double slack) {
        return v >= r.lo - slack && v <= r.hi + slack;
    };
    for (int i = 0; i < smartCrop::kPooledFeatureCount; ++i) {
        const Block& b = block_of(i);
        if (!inside(mean[i], b.mean, kMeanSlack)) broken.push_back(at("mean", i));
        if (!inside(scale[i], b.scale, kScaleSlack)) broken.push_back(at("scale", i));
        if (!inside(weight[i], b.weight, kWeightSlack)) broken.push_back(at("weight", i));
    }
    // The four strongest are negative and below every other weight.
    float weakestOfFour = -1e30f, lowestOther = 1e30f;
    for (int i = 0; i < smartCrop::kPooledFeatureCount; ++i) {
        const bool strong = std::count(std::begin(kStrongest), std::end(kStrongest), i) > 0;
        if (strong) weakestOfFour = std::max(weakestOfFour, weight[i]);
        if (!strong) lowestOther = std::min(lowestOther, weight[i]);
    }
    if (!(weakestOfFour < 0.0f && weakestOfFour < lowestOther)) broken.push_back("strongest four");
    return broken;
}

}  // namespace test

#endif  // SMARTCROP_TESTS_TOOLS_DESIGN_CHECKS_H
