// Running networks on images: input conversion, names, and a reference.
#include <gtest/gtest.h>

#include <cstring>

#include "deepnet/forward_pass.h"
#include "failure_text.h"
#include "network_writer.h"

namespace deepnet {
namespace {

using netwriter::NetworkWriter;

DeepnetModel model_of(const NetworkWriter& writer) {
    return DeepnetModel(writer.bytes());
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
    EXPECT_EQ(test::FailureOf([&] { deepnet_compute_feature(model, single, image, "nothing"); }),
              "deepnet_compute_feature(): Cannot find a layer with matching name");
    EXPECT_EQ(test::FailureOf([&] {
                  deepnet_compute_feature(model, results, image, {"Y", "Y"});
              }),
              "deepnet_compute_feature(): Cannot find required layers");
    EXPECT_EQ(test::FailureOf([&] {
                  deepnet_compute_feature(model, results, image, {"Y", "missing"});
              }),
              "deepnet_compute_feature(): Cannot find required layers");
    const cv::Mat grey(4, 5, CV_8UC1);
    EXPECT_FALSE(
        test::FailureOf([&] { deepnet_compute_feature(model, single, grey, "Y"); }).empty());
}

// A network kept between runs gives each run's bits of a fresh network,
// sizes itself again for a new size, and counts each run's outputs from
// its own buffers, not on top of the runs before.
TEST(ForwardPass, AKeptNetworkRunsAsAFreshOne) {
    const DeepnetModel model =
        model_of(NetworkWriter()
                     .data("in")
                     .conv("Y", "in", 2, 3, 3, 3, 1, 1, std::vector<float>(54, 0.1f), {0, -1})
                     .relu("Y2", "Y"));
    mp::matrix probe;
    deepnet_compute_feature(model, probe, cv::Mat(4, 5, CV_8UC3, cv::Scalar::all(0)), "Y2");
    // Room for one run's buffers and output, not for two outputs on top.
    const uint64_t oneRun = counted_buffers();
    struct Restore {
        uint64_t limit;
        ~Restore() { set_network_buffer_limit(limit); }
    } restore{network_buffer_limit()};
    set_network_buffer_limit(oneRun + 2 * sizeof(float) * 6 - 1);
    NetworkRun kept(model);
    std::vector<cv::Mat> images(20);
    std::vector<mp::matrix> ours(images.size());
    for (size_t k = 0; k < images.size(); ++k) {
        images[k].create(4, 5, CV_8UC3);
        cv::randu(images[k], cv::Scalar::all(0), cv::Scalar::all(256));
        kept.compute(ours[k], images[k], "Y2");
    }
    for (size_t k = 0; k < images.size(); ++k) {
        mp::matrix fresh;
        deepnet_compute_feature(model, fresh, images[k], "Y2");
        ASSERT_EQ(ours[k].cols, 3);
        ASSERT_EQ(0, std::memcmp(ours[k].data, fresh.data, sizeof(float) * 6)) << k;
    }
    set_network_buffer_limit(restore.limit);
    // Sized again, larger and smaller (as over a pyramid), still a fresh
    // network's bits.
    for (const cv::Size size : {cv::Size(9, 4), cv::Size(4, 3), cv::Size(7, 6)}) {
        cv::Mat image(size, CV_8UC3);
        cv::randu(image, cv::Scalar::all(0), cv::Scalar::all(256));
        mp::matrix m, fresh;
        kept.compute(m, image, "Y2");
        deepnet_compute_feature(model, fresh, image, "Y2");
        ASSERT_EQ(m.cols, size.width - 2);
        ASSERT_EQ(m.rows, fresh.rows);
        EXPECT_EQ(0, std::memcmp(m.data, fresh.data, sizeof(float) * m.rows * m.cols)) << size;
    }
}

TEST(ForwardPass, BuffersBeyondTheLimitAreRefused) {
    // A deconvolution with a stride of 2^30 would need gigabytes.
    const DeepnetModel model = model_of(NetworkWriter().data("in").conv(
        "Y", "in", 3, 1, 1, 1, 1u << 30, 1, {1, 1, 1}, {0}, {}, 1, 0, true));
    const cv::Mat image(2, 8, CV_8UC3, cv::Scalar::all(1));
    mp::matrix m;
    EXPECT_EQ(test::FailureOf([&] { deepnet_compute_feature(model, m, image, "Y"); }),
              "deepnet_construct_layer_test(): network buffers exceed their limit");
}

// An output with a zero dimension holds nothing, yet the matrix read from it
// would be sized from the other two: 2^30 columns here.
TEST(ForwardPass, EmptyOutputsAreRefused) {
    const DeepnetModel model = model_of(NetworkWriter().data("in").conv(
        "Y", "in", 3, 0, 1, 1, 1u << 30, 1, {}, {}, {}, 1, 0, true));
    const cv::Mat image(2, 8, CV_8UC3, cv::Scalar::all(1));
    mp::matrix m;
    EXPECT_EQ(test::FailureOf([&] { deepnet_compute_feature(model, m, image, "Y"); }),
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
