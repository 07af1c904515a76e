// Fits the tables of the aesthetic model from photographs: the
// standardisation over the library's own candidate crops, and a pairwise
// L2-regularised logistic model in which a photographer's framing should
// score above arbitrary sub-framings of the same photograph.
#ifndef SMARTCROP_TOOLS_SCORE_MODEL_FITTING_H
#define SMARTCROP_TOOLS_SCORE_MODEL_FITTING_H

#include <cstdint>
#include <string>
#include <vector>

namespace smartCrop::fitting {

struct Photo {
    std::string name;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;  // 4 bytes a pixel: ignored, red, green, blue
};

struct Options {
    // Within what the design fixes (score_model_design.h); otherwise a free
    // fit, kept for comparison.
    bool design = true;
    // Also fit the other kind, for the report's comparison.
    bool compare = true;
    int negativesPerPhoto = 20;
    int holdoutEvery = 5;  // every fifth photograph is held out
    uint32_t seed = 20261122;
    std::vector<double> lambdas = {1, 10, 100, 300, 1000, 3000, 10000, 30000, 100000};
};

struct Tables {
    std::vector<float> mean, scale, weight;  // 304 each
    float bias = 0.0f;
};

struct Report {
    int trainingPhotos = 0, heldOutPhotos = 0, candidates = 0;
    double lambda = 0;
    // Shares of held-out (photograph, sub-framing) pairs ranked the right way
    // round; ties count one half. `other` is the fit of the other kind than
    // asked for: free when the design's constraints were kept, and so on.
    double fitted = 0, other = 0, untrained = 0, centreBaseline = 0;
    double trainingAccuracy = 0;
    // Spread of z = w.x - bias over the standardisation candidates.
    double zP05 = 0, zP50 = 0, zP95 = 0, insideClamp = 0;
    // The mean of each block's features over the standardisation candidates,
    // before the design's ranges are applied.
    double blockMeans[5] = {};
};

Tables fit(const std::vector<Photo>& photos, const Options& options, Report& report);
// The mean of each block's features over the library's candidates of one
// photograph: what the standardisation averages.
std::vector<double> candidate_block_means(const Photo& photo);
// A C++ source file defining the tables, headed by `origin`.
std::string source_file(const Tables& tables, const std::string& origin);

}  // namespace smartCrop::fitting

#endif  // SMARTCROP_TOOLS_SCORE_MODEL_FITTING_H
