// The analysis driver: sizes, maps, tables and totals of real images.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "SmartCrop.h"
#include "analysis/edge_map.h"
#include "analysis/image_analysis.h"
#include "analysis/summed_area_table.h"
#include "test_images.h"

namespace smartCrop {
namespace {

std::unique_ptr<ImageAnalysis> analyse(const test::Image& image, const SmartCropParams& params = {},
                                       const std::vector<RectOfInterest>& rects = {}) {
    auto analysis = std::make_unique<ImageAnalysis>();
    analyze_image(*image.get(), params, rects, *analysis, KeepMaps::Yes);
    return analysis;
}

TEST(ImageAnalysis, WorkAndHighSizes) {
    // source, then work and high sizes; small sources are enlarged.
    const int cases[][6] = {{640, 1, 640, 1, 1024, 2},
                            {1000, 1, 640, 1, 1024, 1},
                            {2000, 1, 640, 0, 1024, 1},
                            {100, 50, 640, 320, 1024, 512}};
    for (const auto& c : cases) {
        const AnalysisSizes s = analysis_sizes(c[0], c[1]);
        EXPECT_EQ(std::vector<int>({s.workWidth, s.workHeight, s.highWidth, s.highHeight}),
                  std::vector<int>(c + 2, c + 6))
            << c[0] << "x" << c[1];
    }
}

TEST(ImageAnalysis, ExtremeAspectLeavesNoMaps) {
    test::Image thin(2000, 1);
    std::ostringstream captured;
    std::streambuf* old = std::cerr.rdbuf(captured.rdbuf());
    auto analyzer = analyse(thin);
    std::cerr.rdbuf(old);
    EXPECT_EQ(captured.str(), "Image aspect ratio is larger than 1:640! \n");
    EXPECT_FALSE(analyzer->has_maps());
    EXPECT_TRUE(analyzer->saliencyMap.empty());
    EXPECT_TRUE(analyzer->gradientIntegral.empty());
}

TEST(ImageAnalysis, TooThinForSaliencyFailsWithAText) {
    test::Image thin(1000, 1);  // work 640 by 1: the 300-pixel copy has no rows
    SmartCropParams params;
    ISmartCrop* crop = CreateSmartCropObj(thin.get(), &params);
    ASSERT_NE(crop, nullptr);
    EXPECT_EQ(crop->Init(thin.get(), &params), eUnexpected);
    EXPECT_EQ(std::string(crop->GetLastErrorText())
                  .rfind("SmartCrop: the image could not be analysed: ", 0),
              0u);
    crop->Release();
}

TEST(ImageAnalysis, BorderStripWidthAtSmallSizes) {
    for (const auto& [height, strip] : {std::pair{6, 1}, {7, 1}, {20, 3}}) {
        test::Image image(640, height, [&](int x, int y) {
            return test::Rgb{uint8_t(x), uint8_t(y * 240 / height), 9};
        });
        EXPECT_EQ(analyse(image)->borderStripWidth, strip) << height;
    }
}

TEST(ImageAnalysis, ConstantImageHasFlooredTotalsAndNoNaN) {
    test::Image flat(320, 200, [](int, int) { return test::Rgb{90, 120, 150}; });
    auto a = analyse(flat);
    ASSERT_TRUE(a->has_maps());
    EXPECT_EQ(a->gradientTotal, 1e-10f);
    EXPECT_EQ(a->contrastPeakTotal, 1e-10f);
    for (const FloatMap* m :
         {&a->saliencyMap, &a->edgeMap, &a->saliencyMask, &a->contrastMap, &a->contrastPeakMap,
          &a->gradientMap, &a->borderMaps[0], &a->borderMaps[3]}) {
        for (float v : m->data) ASSERT_FALSE(std::isnan(v));
    }
    for (float inv : a->borderInverseMeans) EXPECT_FLOAT_EQ(inv, 100.0f);  // empty strips
    EXPECT_TRUE(a->highImage.data.empty());  // no face detection allowed, no copy for it
    SmartCropParams faces;
    faces.detectFaces = true;
    a = analyse(flat, faces);
    EXPECT_EQ(a->highImage.width, 1024);
    EXPECT_EQ(a->highImage.data[0], 90);  // red first
    EXPECT_EQ(a->highImage.data[2], 150);
}

TEST(ImageAnalysis, RectanglesPaintTheSaliencyMaps) {
    const int W = 960, H = 640;
    test::Image image(W, H, test::Image::Photo(W, H));
    RectOfInterest rect;
    rect.left = 600;
    rect.right = 780;
    rect.top = 220;
    rect.bottom = 420;
    SmartCropParams blank;
    blank.saliencyFill = 0.0f;  // a fill of 0 blanks the rectangle out
    auto a = analyse(image, blank, {rect});
    const int c0 = 600 * 640 / 960, c1 = 780 * 640 / 960, r0 = 220 * 427 / 640,
              r1 = 420 * 427 / 640;
    for (int r = r0; r <= r1; ++r)
        for (int c = c0; c <= c1; ++c) ASSERT_EQ(a->saliencyMap.at(r, c), 0.0f);

    SmartCropParams bright;
    bright.saliencyFill = 5.0f;  // above 1: painted, then normalised back to 0..1
    auto b = analyse(image, bright, {rect});
    float maxValue = 0.0f;
    for (float v : b->saliencyMap.data) maxValue = std::max(maxValue, v);
    EXPECT_FLOAT_EQ(maxValue, 1.0f);
    EXPECT_FLOAT_EQ(b->saliencyMap.at(r0, c0), 1.0f);
    // A rectangle reaching outside the image is clipped, not written past the maps.
    rect.right = 5000;
    rect.bottom = 5000;
    bright.edgeFill = 1.0f;
    bright.borderFill = 0.5f;
    auto c = analyse(image, bright, {rect});
    EXPECT_EQ(c->borderMaps[1].at(426, 639), 0.5f);
}

// A vertical step from 40 to 200 at column 32 of a 64 x 48 image. The
// gradient stage blurs, differentiates, keeps what reaches 0.3 of its peak,
// erodes by 5 and dilates by 7 columns: a band of ones (to the last bits of
// the normalisation) eight columns wide,
// 28 to 35, in every row, and nothing else. The coarse edge map peaks on the
// step and falls away on both sides to nothing 16 columns off.
TEST(ImageAnalysis, StepEdgeGradientAndEdgeMaps) {
    const int W = 64, H = 48;
    ByteImage step;
    step.resize(W, H, 4);
    for (int i = 0; i < W * H; ++i) {
        const uint8_t v = i % W < 32 ? 40 : 200;
        step.data[4 * i] = 0;
        step.data[4 * i + 1] = step.data[4 * i + 2] = step.data[4 * i + 3] = v;
    }
    FloatMap gradient;
    gradient_map(step, gradient);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            if (x >= 28 && x <= 35) {
                ASSERT_NEAR(gradient.at(y, x), 1.0f, 1e-5f) << x << "," << y;  // normalised
            } else {
                ASSERT_EQ(gradient.at(y, x), 0.0f) << x << "," << y;
            }
        }
    }

    ScopedPlaneImage planes(W, H, 3), edges(W, H, 1);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < W * H; ++i) planes->planes[c][i] = i % W < 32 ? 40.0f : 200.0f;
    multi_scale_edge_map(*planes, *edges, {0.5f, 0.25f}, true, false);
    const float* row = edges->planes[0];
    EXPECT_EQ(row[32], 1.0f);  // normalised to its peak, on the step
    const float expected[] = {0.0374f, 0.3798f, 1.0f, 0.2399f, 0.0225f};  // columns 24..40 by 4
    for (int k = 0; k < 5; ++k) EXPECT_NEAR(row[24 + 4 * k], expected[k], 1e-4f) << k;
    for (int x = 0; x < W; ++x) {
        const float before = x < 32 ? row[x + 1] : row[x - 1];  // rising to the step, then falling
        EXPECT_LE(row[x], before) << x;
        EXPECT_TRUE((x > 15 && x < 49) || row[x] < 1e-8f) << x;
    }
}

}  // namespace
}  // namespace smartCrop
