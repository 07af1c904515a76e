// Every layer kind on small hand-worked inputs, and the messages of allocation.
#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <random>
#include <sstream>

#include "deepnet/convolution_core.h"
#include "deepnet/layers/activation.h"
#include "deepnet/layers/concat.h"
#include "deepnet/layers/conv3d.h"
#include "deepnet/layers/cost_logreg.h"
#include "deepnet/layers/data.h"
#include "deepnet/layers/deconv3d.h"
#include "deepnet/layers/element.h"
#include "deepnet/layers/fc.h"
#include "deepnet/layers/local.h"
#include "deepnet/layers/normcross3d.h"
#include "deepnet/layers/pool3d.h"
#include "deepnet/layers/softmax.h"
#include "deepnet/layers/softmax_map.h"
#include "deepnet/layers/softmax_map2.h"
#include "deepnet/runtime_layers.h"
#include "failure_text.h"
#include "portable_paths.h"

namespace deepnet {
namespace {

// An input layer with a fixed output.
struct Given : layer_test_base<float> {
    Given(std::vector<uint64_t> shape, std::vector<float> values) {
        y_dim = shape.size();
        for (size_t d = 0; d < shape.size(); ++d) y_size[d] = shape[d];
        y = std::move(values);
    }
    void fprop_test(uint64_t, const layer_model_base&) override {}
    void allocate(const layer_model_base&) override {}
};

// A fresh layer of the kind on the inputs; its output.
template <class Layer>
std::vector<float> run(const layer_model_base& record, std::vector<Given*> inputs) {
    Layer layer;
    return run(layer, record, inputs);
}

template <class Layer>
std::vector<float> run(Layer& layer, const layer_model_base& record, std::vector<Given*> inputs) {
    for (Given* g : inputs) layer.inputs.push_back(g);
    layer.allocate(record);
    layer.fprop_test(1, record);
    return layer.y;
}

template <class Layer>
std::string allocation_error(const layer_model_base& record, std::vector<Given*> inputs) {
    Layer layer;
    for (Given* g : inputs) layer.inputs.push_back(g);
    return test::FailureOf([&] { layer.allocate(record); });
}

layer_model_conv3d conv(uint64_t cout, uint64_t cin, uint64_t k0, uint64_t k1, uint64_t s,
                        std::vector<float> w, std::vector<float> b, uint64_t groups = 1) {
    layer_model_conv3d r;
    r.output_channels = cout;
    r.input_channels = cin;
    r.kernel0 = k0;
    r.kernel1 = k1;
    r.stride0 = r.stride1 = s;
    r.groups = groups;
    r.weights = std::move(w);
    r.biases = std::move(b);
    return r;
}

TEST(Convolution, OneByOneIsTheWeightedChannelSum) {
    Given x({2, 2, 2}, {1, 2, 3, 4, 10, 20, 30, 40});
    const auto r = conv(1, 2, 1, 1, 1, {1, 1}, {0.5f});
    EXPECT_EQ(run<layer_test_conv3d<float>>(r, {&x}),
              (std::vector<float>{11.5f, 22.5f, 33.5f, 44.5f}));

    // Two groups of one channel each: each output sees its own channel only.
    Given x2({2, 1, 2}, {1, 2, 10, 20});
    EXPECT_EQ(run<layer_test_conv3d<float>>(conv(2, 2, 1, 1, 1, {2, 3}, {0, 0}, 2), {&x2}),
              (std::vector<float>{2, 4, 30, 60}));
}

TEST(Convolution, PaddingAndPartialWindows) {
    // k 3 with one pixel of padding on each side keeps the width; the kernel
    // [1 0 0] reads the left neighbour, zero in the padding.
    Given x({4, 1, 1}, {1, 2, 3, 4});
    auto r = conv(1, 1, 3, 1, 1, {1, 0, 0}, {0});
    r.pad0_low = r.pad0_high = 1;
    EXPECT_EQ(run<layer_test_conv3d<float>>(r, {&x}), (std::vector<float>{0, 1, 2, 3}));

    EXPECT_EQ(window_positions(12, 0, 0, 3, 1, 1, "t"), 10u);
    EXPECT_EQ(window_positions(13, 0, 0, 3, 2, 1, "t"), 6u);
    EXPECT_EQ(window_positions(14, 0, 0, 3, 2, 1, "t"), 7u);  // a partial window at the high end
    EXPECT_EQ(window_positions(14, 0, 0, 3, 2, 0, "t"), 6u);
    // The partial window reads zero behind the input.
    Given wide({4, 1, 1}, {1, 1, 1, 1});
    auto partial = conv(1, 1, 3, 1, 2, {1, 1, 1}, {0});
    partial.kernel1 = 1;
    partial.pad_mode = 1;
    EXPECT_EQ(run<layer_test_conv3d<float>>(partial, {&wide}), (std::vector<float>{3, 2}));
}

// The vector kernel and the portable one give the same bits: padded 3 x 3
// windows over positions that do not fill the last vector, and the 1 x 1
// path that reads the planes directly, with output counts off the block of 4.
TEST(Convolution, VectorAndPortableKernelsAgree) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    auto values = [&](size_t n) {
        std::vector<float> v(n);
        for (float& e : v) e = value(rng);
        return v;
    };
    for (uint64_t k : {3u, 1u}) {
        Given x({13, 11, 5}, values(13 * 11 * 5));
        auto r = conv(7, 5, k, k, 1, values(7 * 5 * k * k), values(7));
        r.pad0_low = r.pad0_high = r.pad1_low = r.pad1_high = k / 2;
        smartCrop::kernels::force_portable_paths(true);
        const std::vector<float> portable = run<layer_test_conv3d<float>>(r, {&x});
        smartCrop::kernels::force_portable_paths(smartCrop::testing::portable_run());
        const std::vector<float> vector = run<layer_test_conv3d<float>>(r, {&x});
        ASSERT_EQ(portable.size(), 7u * 13 * 11);
        for (size_t i = 0; i < portable.size(); ++i)
            ASSERT_EQ(portable[i], vector[i]) << k << " " << i;
    }
}

TEST(Convolution, AllocationMessages) {
    EXPECT_EQ(allocation_error<layer_test_conv3d<float>>(conv(1, 1, 1, 1, 1, {1}, {0}), {}),
              "layer_test_conv3d::allocate(): Input size mismatch");
    Given x({3, 3, 2}, std::vector<float>(18));
    EXPECT_EQ(allocation_error<layer_test_conv3d<float>>(conv(1, 3, 1, 1, 1, {1, 1, 1}, {0}), {&x}),
              "layer_test_conv3d::allocate(): input and model mismatch");
    EXPECT_EQ(allocation_error<layer_test_conv3d<float>>(
                  conv(1, 2, 5, 5, 1, std::vector<float>(50), {0}), {&x}),
              "layer_test_conv3d::allocate(): window larger than the padded input");
    EXPECT_EQ(allocation_error<layer_test_conv3d<float>>(conv(1, 2, 1, 1, 0, {1, 1}, {0}), {&x}),
              "layer_test_conv3d::allocate(): kernel and stride must be at least 1");
}

TEST(LocalLayer, EachPositionHasItsOwnWeights) {
    Given x({3, 1, 1}, {1, 2, 3});
    layer_model_local r;
    r.output_channels = r.input_channels = 1;
    r.kernel0 = r.kernel1 = r.stride0 = r.stride1 = 1;
    r.out0 = 3;
    r.out1 = 1;
    r.weights = {1, 2, 3};
    r.biases = {0.5f, 0, -1};
    EXPECT_EQ(run<layer_test_local<float>>(r, {&x}), (std::vector<float>{1.5f, 4, 8}));
    r.out1 = 7;  // one size matching is enough
    EXPECT_EQ(run<layer_test_local<float>>(r, {&x}).size(), 3u);
    r.out0 = 9;
    EXPECT_EQ(allocation_error<layer_test_local<float>>(r, {&x}),
              "layer_test_local::allocate(): output and model mismatch");
}

TEST(Deconvolution, ScattersWithAndWithoutOverlap) {
    // k 2, s 2: every input pixel paints its own 2 by 2 block.
    Given x({2, 2, 1}, {1, 2, 3, 4});
    auto r = conv(1, 1, 2, 2, 2, {1, 10, 100, 1000}, {0});
    r.is_deconv = true;
    layer_test_deconv3d<float> layer;
    const auto y = run(layer, r, {&x});
    ASSERT_EQ(layer.y_size[0], 4u);
    EXPECT_EQ(y[0], 1);
    EXPECT_EQ(y[1], 10);
    EXPECT_EQ(y[4], 100);
    EXPECT_EQ(y[2], 2);
    EXPECT_EQ(y[15], 4000);

    // k 3, s 2: the shared column holds the sum of both contributions;
    // padding crops the output.
    Given line({2, 1, 1}, {1, 10});
    auto overlap = conv(1, 1, 3, 1, 2, {1, 1, 1}, {0});
    overlap.is_deconv = true;
    EXPECT_EQ(run<layer_test_deconv3d<float>>(overlap, {&line}),
              (std::vector<float>{1, 1, 11, 10, 10}));
    overlap.pad0_low = overlap.pad0_high = 1;
    EXPECT_EQ(run<layer_test_deconv3d<float>>(overlap, {&line}), (std::vector<float>{1, 11, 10}));
    overlap.pad_mode = 1;
    EXPECT_EQ(allocation_error<layer_test_deconv3d<float>>(overlap, {&line}),
              "compute_correlate_input_size: only support Caffe padding mode");
}

TEST(Pooling, ClippedBordersAndDroppedColumns) {
    Given x({5, 1, 1}, {1, 5, 2, 7, 9});
    layer_model_poolmax3d r;
    r.kernel0 = 2;
    r.kernel1 = 1;
    r.stride0 = 2;
    r.stride1 = 1;
    EXPECT_EQ(run<layer_test_poolmax3d<float>>(r, {&x}),
              (std::vector<float>{5, 7}));  // the last column is dropped

    // A corner window holding one element is divided by the whole kernel.
    Given square({2, 2, 1}, {4, 8, 12, 16});
    layer_model_poolavg3d a;
    a.kernel0 = a.kernel1 = a.stride0 = a.stride1 = 2;
    a.pad0_low = a.pad1_low = 1;
    EXPECT_EQ(run<layer_test_poolavg3d<float>>(a, {&square}), (std::vector<float>{1}));
}

TEST(Normalisation, ZeroStaysZeroAndTheWindowSpansAllChannels) {
    Given x({1, 1, 3}, {0, 2, 1});
    layer_model_normcross3d r;
    r.local_size = 5;
    r.k = 0;
    r.alpha = 1;
    r.beta = 0.5f;
    const auto y = run<layer_test_normcross3d<float>>(r, {&x});
    EXPECT_EQ(y[0], 0.0f);
    EXPECT_FLOAT_EQ(y[1], 2.0f / std::sqrt(5.0f));
    EXPECT_FLOAT_EQ(y[2], 1.0f / std::sqrt(5.0f));
}

TEST(Softmax, EqualValuesAndMaps) {
    Given pair({2}, {3, 3});
    EXPECT_EQ(run<layer_test_softmax<float>>(layer_model_softmax(), {&pair}),
              (std::vector<float>{0.5f, 0.5f}));

    // Two pixels, two channels: a softmax across the channels of each pixel.
    Given map({2, 1, 2}, {0, 1, 0, 1});
    const auto y = run<layer_test_softmax_map<float>>(layer_model_softmax_map(), {&map});
    EXPECT_EQ(y[0], 0.5f);
    EXPECT_EQ(y[2], 0.5f);
    EXPECT_FLOAT_EQ(y[1] + y[3], 1.0f);

    Given runs({4}, {2, 2, 5, 1});
    layer_model_softmax_map2 g;
    g.group_size = 2;
    const auto z = run<layer_test_softmax_map2<float>>(g, {&runs});
    EXPECT_EQ(z[0], 0.5f);
    EXPECT_EQ(z[1], 0.5f);
    EXPECT_FLOAT_EQ(z[2] + z[3], 1.0f);
    g.group_size = 0;  // would never end
    EXPECT_EQ(allocation_error<layer_test_softmax_map2<float>>(g, {&map}),
              "layer_test_softmax_map2::allocate(): group size must divide the map");
}

TEST(ElementAndConcat, Operations) {
    Given a({3}, {1, 5, 3}), b({3}, {2, 2, 4});
    layer_model_element r;
    r.coefficients = {2, -1};
    for (int op : {0, 1, 2}) {
        r.op = op;
        layer_test_element<float> layer;
        const auto y = run(layer, r, {&a, &b});
        const std::vector<float> expected[] = {{2, 10, 12}, {0, 8, 2}, {2, 5, 4}};
        EXPECT_EQ(y, expected[op]) << op;
    }
    // A weighted sum of three inputs, and of one: 2a - b + c / 2, and 3a.
    Given c({3}, {4, 0, -2});
    r.op = 1;
    r.coefficients = {2, -1, 0.5f};
    EXPECT_EQ(run<layer_test_element<float>>(r, {&a, &b, &c}), (std::vector<float>{2, 8, 1}));
    r.coefficients = {3};
    EXPECT_EQ(run<layer_test_element<float>>(r, {&a}), (std::vector<float>{3, 15, 9}));
    r.op = 7;
    r.coefficients = {1};
    EXPECT_EQ(run<layer_test_element<float>>(r, {&a}), (std::vector<float>{1, 5, 3}));
    r.coefficients = {1, 1};
    EXPECT_THROW(run<layer_test_element<float>>(r, {&a, &b}), std::runtime_error);

    Given p({2, 1, 2}, {1, 2, 3, 4}), q({2, 1, 2}, {5, 6, 7, 8});
    const std::vector<float> byDim[] = {
        {1, 2, 5, 6, 3, 4, 7, 8}, {1, 2, 5, 6, 3, 4, 7, 8}, {1, 2, 3, 4, 5, 6, 7, 8}};
    for (uint64_t dim : {0, 1, 2}) {
        layer_model_concat c;
        c.concat_dim = dim;
        EXPECT_EQ(run<layer_test_concat<float>>(c, {&p, &q}), byDim[dim]) << dim;
    }
    layer_model_concat far;
    far.name = "cat";
    far.concat_dim = 5;
    std::ostringstream out;
    std::streambuf* old = std::cout.rdbuf(out.rdbuf());
    const auto y = run<layer_test_concat<float>>(far, {&p, &q});
    std::cout.rdbuf(old);
    EXPECT_EQ(out.str(), "Warning: [cat] concat_dim exceeds y_dim\n");
    EXPECT_EQ(y, byDim[2]);
}

TEST(FullyConnectedAndCost, TwoInputsAndLogisticCost) {
    Given a({3}, {1, 2, 3}), b({2}, {10, 20});
    layer_model_fc r;
    r.output_size = 2;
    r.weights = {1, 0, 0, 0, 1, 0, /* block of b */ 1, 0, 0, 1};
    r.biases = {0.5f, -0.5f};
    EXPECT_EQ(run<layer_test_fc<float>>(r, {&a, &b}), (std::vector<float>{11.5f, 21.5f}));

    Given scores({2}, {0.25f, 0.75f}), label({1}, {1}), huge({1}, {3.2e19f});
    // A label no class has, beyond any integer type: refused, not converted.
    EXPECT_THROW(run<layer_test_cost_logreg<float>>(layer_model_cost_logreg(), {&scores, &huge}),
                 std::runtime_error);
    EXPECT_FLOAT_EQ(
        run<layer_test_cost_logreg<float>>(layer_model_cost_logreg(), {&scores, &label})[0],
        -std::log(0.75f));
    EXPECT_EQ(allocation_error<layer_test_cost_logreg<float>>(layer_model_cost_logreg(), {&scores}),
              "layer_test_logreg::allocate(): Incorrect input size");
}

TEST(Activation, RectifierAndUnsupportedTypes) {
    Given x({4}, {-1, 0, 2, -0.0f});
    const auto y = run<layer_test_activation<float>>(layer_model_activation(), {&x});
    EXPECT_EQ(y, (std::vector<float>{0, 0, 2, 0}));
    EXPECT_TRUE(std::signbit(y[3]));  // -0.0 stays -0.0
    layer_model_activation tanh;
    tanh.activation_type = 1;
    layer_test_activation<float> other;
    other.inputs.push_back(&x);
    other.allocate(tanh);
    EXPECT_EQ(test::FailureOf([&] { other.fprop_test(1, tanh); }),
              "layer_test_activation::fprop_test(): Unsupported activation type");
}

}  // namespace
}  // namespace deepnet
