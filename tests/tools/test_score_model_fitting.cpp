// The model fitting runs end to end on a few small images.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "design_checks.h"
#include "score_model_fitting.h"
#include "source/ScoreModel.h"
#include "test_images.h"

namespace smartCrop::fitting {
namespace {

Photo synthetic(int index) {
    const int W = 160, H = 120;
    Photo p;
    p.name = "synthetic" + std::to_string(index);
    p.width = W;
    p.height = H;
    // A framed subject: a textured blob near the centre on a smooth ground.
    const int cx = W / 2 + (index % 3 - 1) * 12, cy = H / 2 + (index % 2) * 8;
    p.pixels = test::MakePixels(W, H, [&](int x, int y) {
        const int dx = x - cx, dy = y - cy;
        if (dx * dx + dy * dy < 30 * 30) {
            return test::Rgb{static_cast<uint8_t>(200 - ((x + y) % 7) * 20), 80,
                             static_cast<uint8_t>(40 + index * 10)};
        }
        return test::Rgb{static_cast<uint8_t>(50 + y / 3), static_cast<uint8_t>(90 + x / 4), 160};
    });
    return p;
}

// The committed tables: the design's bias and two of its given weights are
// written out here as well, so that a slip in the constraints' header shows.
TEST(ScoreModelTables, KeepWhatTheDesignFixes) {
    EXPECT_EQ(modelBias, 0.3835262358188629f);
    EXPECT_EQ(pooledWeight[85], -2.560412f);
    EXPECT_EQ(pooledWeight[89], -2.560871f);
    EXPECT_EQ(test::design_violations(pooledMean, pooledScale, pooledWeight, modelBias),
              std::vector<std::string>());
}

TEST(ScoreModelFitting, FitsWithinTheDesignAndWritesTheTables) {
    std::vector<Photo> photos;
    for (int i = 0; i < 6; ++i) photos.push_back(synthetic(i));
    Options options;
    options.negativesPerPhoto = 3;
    options.lambdas = {10.0};
    options.compare = false;  // the fit is slow under the sanitizers
    Report report;
    const Tables t = fit(photos, options, report);
    ASSERT_EQ(t.mean.size(), 304u);
    ASSERT_EQ(t.scale.size(), 304u);
    ASSERT_EQ(t.weight.size(), 304u);
    EXPECT_EQ(report.trainingPhotos, 5);
    EXPECT_EQ(report.heldOutPhotos, 1);
    EXPECT_GT(report.candidates, 1000);
    EXPECT_EQ(test::design_violations(t.mean.data(), t.scale.data(), t.weight.data(), t.bias),
              std::vector<std::string>());
    EXPECT_EQ(report.untrained, 0.5);  // every pair ties
    // These synthetic photographs hold more salient area than the design's
    // photographs; the means move within their ranges until the median
    // candidate sits in the middle of the clamp, which the design's bias
    // cannot do.
    EXPECT_GT(report.blockMeans[0], kDesignBlocks[0].mean.hi);
    EXPECT_NEAR(report.zP50, 0.0, 1e-4);

    const std::string source = source_file(t, "made by a test");
    EXPECT_EQ(source.rfind("// made by a test\n", 0), 0u);
    for (const char* name : {"pooledMean", "pooledScale", "pooledWeight"}) {
        const std::string head = std::string("const float ") + name + "[" +
                                 std::to_string(smartCrop::kPooledFeatureCount) + "] = {";
        const size_t start = source.find(head);
        ASSERT_NE(start, std::string::npos) << name;
        const size_t end = source.find("};", start);
        ASSERT_NE(end, std::string::npos) << name;
        EXPECT_EQ(std::count(source.begin() + start, source.begin() + end, ','), 304) << name;
    }
    EXPECT_NE(source.find("const float modelBias = 0.383526236f;"), std::string::npos);
}

}  // namespace
}  // namespace smartCrop::fitting
