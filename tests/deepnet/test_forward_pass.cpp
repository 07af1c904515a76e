// Running networks on images: input conversion, names, and a reference.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "deepnet/forward_pass.h"
#include "network_writer.h"

namespace deepnet {
namespace {

using netwriter::NetworkWriter;

DeepnetModel model_of(const NetworkWriter& writer) {
    return DeepnetModel(writer.bytes());
}

std::string failure_of(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

TEST(ForwardPass, InputPlanesAndConversion) {
    cv::Mat image(10, 12, CV_8UC3, cv::Scalar(0, 0, 0));
    image.at<cv::Vec3b>(0, 0) = cv::Vec3b(7, 8, 255);  // channel 2 enters as the first plane
    const DeepnetModel model = model_of(NetworkWriter().data("in"));
    mp::matrix m;
    deepnet_compute_feature(model, m, image, "in");
    EXPECT_EQ(m.rows, 10);
    EXPECT_EQ(m.cols, 12);
    EXPECT_EQ(m.at(0, 0), 0.5f);
    EXPECT_EQ(m.at(0, 1), -0.5f);

    data_provider_image_label provider;
    provider.cols = 12;
    provider.rows = 10;
    provider.channels = 3;
    layer_test_list layers;
    deepnet_construct_layer_test(layers, model.layer_models, provider, 1);
    EXPECT_EQ(layers[0]->y_dim, 3u);
    EXPECT_EQ(layers[0]->y_size[0], 12u);
    EXPECT_EQ(layers[0]->y_size[1], 10u);
    EXPECT_EQ(layers[0]->y_size[2], 3u);
}

TEST(ForwardPass, NamesAndOrder) {
    // A 1 x 1 convolution to two channels: the matrix holds channel 0 alone.
    const DeepnetModel model =
        model_of(NetworkWriter()
                     .data("in")
                     .conv("Y", "in", 2, 3, 1, 1, 1, 1, {1, 0, 0, 0, 0, 0}, {0, 100})
                     .relu("Y2", "Y"));
    const cv::Mat image(4, 5, CV_8UC3, cv::Scalar(0, 0, 255));
    std::vector<mp::matrix> results;
    deepnet_compute_feature(model, results, image, {"Y2", "Y"});
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].rows, 4);  // "Y" first: the order of the layers
    EXPECT_EQ(results[0].at(3, 4), 0.5f);
    EXPECT_EQ(results[1].at(0, 0), 0.5f);
    mp::matrix single;
    EXPECT_EQ(failure_of([&] { deepnet_compute_feature(model, single, image, "nothing"); }),
              "deepnet_compute_feature(): Cannot find a layer with matching name");
    EXPECT_EQ(failure_of([&] {
                  deepnet_compute_feature(model, results, image, {"Y", "Y"});
              }),
              "deepnet_compute_feature(): Cannot find required layers");
    EXPECT_EQ(failure_of([&] {
                  deepnet_compute_feature(model, results, image, {"Y", "missing"});
              }),
              "deepnet_compute_feature(): Cannot find required layers");
    const cv::Mat grey(4, 5, CV_8UC1);
    EXPECT_FALSE(failure_of([&] { deepnet_compute_feature(model, single, grey, "Y"); }).empty());
}

// Convolution 3 x 3 (2 outputs), ReLU, max pooling 2 x 2, convolution 1 x 1
// (2 outputs), softmax over channels, against loops written out here.
TEST(ForwardPass, SmallNetworkAgreesWithAReference) {
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> value(-1, 1);
    std::vector<float> w1(2 * 3 * 9), b1(2), w2(4), b2(2);
    for (auto* v : {&w1, &b1, &w2, &b2})
        for (float& x : *v) x = value(rng);
    const DeepnetModel model = model_of(NetworkWriter()
                                            .data("in")
                                            .conv("c1", "in", 2, 3, 3, 3, 1, 1, w1, b1)
                                            .relu("r1", "c1")
                                            .pool(5, "p1", "r1", 2, 2, 2, 2)
                                            .conv("c2", "p1", 2, 2, 1, 1, 1, 1, w2, b2)
                                            .plain(21, "Y", {"c2"}));
    const int W = 11, H = 9;
    cv::Mat image(H, W, CV_8UC3);
    cv::randu(image, 0, 256);

    // Reference: planes in red, green, blue order, value / 255 - 0.5.
    auto in = [&](int c, int y, int x) { return image.at<cv::Vec3b>(y, x)[2 - c] / 255.0f - 0.5f; };
    const int C1W = W - 2, C1H = H - 2, PW = C1W / 2, PH = C1H / 2;
    std::vector<float> c1(2 * C1W * C1H);
    for (int o = 0; o < 2; ++o)
        for (int y = 0; y < C1H; ++y)
            for (int x = 0; x < C1W; ++x) {
                double s = b1[o];
                for (int c = 0; c < 3; ++c)
                    for (int i = 0; i < 3; ++i)
                        for (int j = 0; j < 3; ++j)
                            s += w1[((o * 3 + c) * 3 + i) * 3 + j] * in(c, y + i, x + j);
                c1[(o * C1H + y) * C1W + x] = std::max(0.0, s);
            }
    mp::matrix result;
    deepnet_compute_feature(model, result, image, "Y");
    ASSERT_EQ(result.rows, PH);
    ASSERT_EQ(result.cols, PW);
    for (int y = 0; y < PH; ++y)
        for (int x = 0; x < PW; ++x) {
            double pooled[2];
            for (int c = 0; c < 2; ++c) {
                pooled[c] = -1e30;
                for (int i = 0; i < 2; ++i)
                    for (int j = 0; j < 2; ++j)
                        pooled[c] = std::max<double>(pooled[c],
                                                     c1[(c * C1H + 2 * y + i) * C1W + 2 * x + j]);
            }
            const double z0 = b2[0] + w2[0] * pooled[0] + w2[1] * pooled[1];
            const double z1 = b2[1] + w2[2] * pooled[0] + w2[3] * pooled[1];
            // Single precision accumulations against double: a few ulps of values near 1.
            EXPECT_NEAR(result.at(y, x), 1.0 / (1.0 + std::exp(z1 - z0)), 1e-5) << y << "," << x;
        }
}

TEST(ForwardPass, BuffersBeyondTheLimitAreRefused) {
    // A deconvolution with a stride of 2^30 would need gigabytes.
    const DeepnetModel model = model_of(NetworkWriter().data("in").conv(
        "Y", "in", 3, 1, 1, 1, 1u << 30, 1, {1, 1, 1}, {0}, {}, 1, 0, true));
    const cv::Mat image(2, 8, CV_8UC3, cv::Scalar::all(1));
    mp::matrix m;
    EXPECT_EQ(failure_of([&] { deepnet_compute_feature(model, m, image, "Y"); }),
              "deepnet_construct_layer_test(): network buffers exceed their limit");
}

// An output with a zero dimension holds nothing, yet the matrix read from it
// would be sized from the other two: 2^30 columns here.
TEST(ForwardPass, EmptyOutputsAreRefused) {
    const DeepnetModel model = model_of(NetworkWriter().data("in").conv(
        "Y", "in", 3, 0, 1, 1, 1u << 30, 1, {}, {}, {}, 1, 0, true));
    const cv::Mat image(2, 8, CV_8UC3, cv::Scalar::all(1));
    mp::matrix m;
    EXPECT_EQ(failure_of([&] { deepnet_compute_feature(model, m, image, "Y"); }),
              "deepnet_construct_layer_test(): a layer's output is empty");
}

TEST(ForwardPass, ModelFromAFile) {
    const std::string path = testing::TempDir() + "/net.bin";
    NetworkWriter().data("in").relu("Y", "in").save(path);
    const DeepnetModel model(path);
    EXPECT_EQ(model.layer_models.size(), 2u);
    EXPECT_THROW(DeepnetModel(testing::TempDir() + "/no-such-net.bin"), std::length_error);
    EXPECT_THROW(DeepnetModel(testing::TempDir()), std::runtime_error);  // a folder
}

}  // namespace
}  // namespace deepnet
