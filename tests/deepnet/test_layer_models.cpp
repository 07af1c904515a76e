// Parsing network files: records, payload layouts, input resolution, damage.
#include <gtest/gtest.h>

#include "deepnet/layer_list_reader.h"
#include "failure_text.h"
#include "network_writer.h"

namespace deepnet {
namespace {

using netwriter::NetworkWriter;

layer_model_list parse(const std::vector<uint8_t>& bytes, const uint8_t** end = nullptr) {
    layer_model_list layers;
    const uint8_t* e = deenpet_deserialize_layer_model(bytes.data(), bytes.size(), layers);
    if (end != nullptr) *end = e;
    return layers;
}

std::string failure(const std::vector<uint8_t>& bytes, layer_model_list* layers = nullptr) {
    layer_model_list local;
    return test::FailureOf([&] {
        deenpet_deserialize_layer_model(bytes.data(), bytes.size(), layers ? *layers : local);
    });
}

TEST(LayerModels, EmptyNetworkAndSkippedBytes) {
    EXPECT_TRUE(parse(NetworkWriter().bytes()).empty());
    // The first 12 bytes and the 8 ahead of each record may hold anything.
    std::vector<uint8_t> b = NetworkWriter().data("in").relu("r", "in").bytes();
    for (int i = 0; i < 12; ++i) b[i] = 0xA5;
    for (int i = 16; i < 24; ++i) b[i] = 0x5A;
    b.push_back(0x77);  // and bytes after the last record are ignored
    const uint8_t* end = nullptr;
    const auto layers = parse(b, &end);
    ASSERT_EQ(layers.size(), 2u);
    EXPECT_EQ(end, b.data() + b.size() - 1);
    EXPECT_EQ(layers[1]->inputs[0], layers[0].get());
}

TEST(LayerModels, InputsResolveToTheEarlierOfEqualNames) {
    const auto layers = parse(NetworkWriter().data("x").data("x").relu("r", "x").bytes());
    ASSERT_EQ(layers.size(), 3u);
    EXPECT_EQ(layers[2]->inputs[0], layers[0].get());

    layer_model_list partial;
    EXPECT_EQ(
        failure(NetworkWriter().data("in").relu("r", "later").data("later").bytes(), &partial),
        "layer_model_base::deserialize()");
    EXPECT_EQ(partial.size(), 2u);  // the failing record was appended before it was parsed
    EXPECT_EQ(failure(NetworkWriter().data("in").raw(8, "odd", {}, {}).bytes()),
              "deenpet_deserialize_layer_model(): unknown layer type");
    EXPECT_TRUE(
        failure(NetworkWriter().raw(22, "m", {}, {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}).bytes())
            .empty());
}

TEST(LayerModels, PayloadLayouts) {
    const uint8_t* end = nullptr;
    auto b = NetworkWriter()
                 .data("a")
                 .data("b")
                 .data("c")
                 .element("e", {"a", "b", "c"}, 1, {1, 2, 3})
                 .bytes();
    auto layers = parse(b, &end);
    EXPECT_EQ(end, b.data() + b.size());  // 4 + 3 * 4 = 16 payload bytes consumed
    EXPECT_EQ(static_cast<layer_model_element&>(*layers[3]).coefficients,
              (std::vector<float>{1, 2, 3}));

    std::vector<float> w(16);
    for (int i = 0; i < 16; ++i) w[i] = static_cast<float>(i);
    b = NetworkWriter().data("a").data("b").fc("f", {"a", "b"}, {3, 5}, 2, w, {7, 8}).bytes();
    layers = parse(b, &end);
    EXPECT_EQ(end, b.data() + b.size());
    const auto& fc = static_cast<layer_model_fc&>(*layers[2]);
    EXPECT_EQ(fc.input_sizes, (std::vector<uint64_t>{3, 5}));
    EXPECT_EQ(fc.weights.size(), 16u);
    EXPECT_EQ(fc.biases, (std::vector<float>{7, 8}));

    b = NetworkWriter()
            .data("in")
            .conv("d", "in", 2, 4, 3, 3, 2, 2, std::vector<float>(36), {1, 2, 3, 4}, {}, 2, 0, true)
            .bytes();
    const auto deconvLayers = parse(b);
    const auto& deconv = static_cast<layer_model_conv3d&>(*deconvLayers[1]);
    EXPECT_TRUE(deconv.is_deconv);
    EXPECT_EQ(deconv.biases.size(), 4u);  // the channels a deconvolution produces
    EXPECT_EQ(
        failure(
            NetworkWriter().data("in").conv("c", "in", 2, 3, 1, 1, 1, 1, {}, {}, {}, 2).bytes()),
        "layer_model_conv3d::allocate(): Group size mismatch");
    EXPECT_EQ(
        failure(
            NetworkWriter().data("in").conv("c", "in", 2, 3, 1, 1, 1, 1, {}, {}, {}, 0).bytes()),
        "layer_model_conv3d::allocate(): Group size mismatch");
}

// Every prefix of a valid file is refused with the parser's error, never read past.
TEST(LayerModels, EveryTruncationFailsCleanly) {
    const auto b =
        NetworkWriter()
            .data("in")
            .conv("c", "in", 2, 3, 3, 3, 1, 1, std::vector<float>(54, 0.5f), {0.1f, 0.2f})
            .pool(5, "p", "c", 2, 2, 2, 2)
            .fc("f", {"p"}, {8}, 2, std::vector<float>(16), {0, 0})
            .softmax_map2("s", "f", 2)
            .bytes();
    ASSERT_EQ(parse(b).size(), 5u);
    for (size_t n = 0; n < b.size(); ++n) {
        const std::vector<uint8_t> prefix(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(n));
        EXPECT_EQ(failure(prefix),
                  "deenpet_deserialize_layer_model(): the data ends inside a record")
            << n;
    }
}

TEST(LayerModels, HugeCountsAreRefusedBeforeAllocating) {
    std::vector<uint8_t> payload;
    for (uint32_t v : {0u, 0xFFFFFFFFu, 1u, 0xFFFFu, 0xFFFFu, 0xFFFFu, 1u, 1u, 0u, 0u, 0u, 0u})
        netwriter::put_u32(payload, v);
    EXPECT_EQ(failure(NetworkWriter().data("in").raw(1, "c", {"in"}, payload).bytes()),
              "deenpet_deserialize_layer_model(): the data ends inside a record");
}

// Padding as wide as the kernel only adds windows that read nothing, and a
// huge one would cost any amount of work on every image: refused at load.
TEST(LayerModels, PaddingAsLargeAsTheKernelIsRefused) {
    const std::vector<float> w(18, 0.5f);
    EXPECT_EQ(parse(NetworkWriter().data("in").pool(5, "p", "in", 2, 2, 2, 2, {1, 1, 1, 1}).bytes())
                  .size(),
              2u);
    const std::pair<NetworkWriter, std::string> cases[] = {
        {NetworkWriter().data("in").pool(5, "p", "in", 2, 2, 2, 2, {0, 0, 0, 3000}),
         "layer_model_pool3d::deserialize(): padding as large as the kernel"},
        {NetworkWriter().data("in").pool(6, "p", "in", 3, 2, 1, 1, {3, 0, 0, 0}),
         "layer_model_pool3d::deserialize(): padding as large as the kernel"},
        {NetworkWriter().data("in").conv("c", "in", 2, 3, 3, 1, 1, 1, w, {0, 0}, {0, 3, 0, 0}),
         "layer_model_conv3d::deserialize(): padding as large as the kernel"},
        {NetworkWriter().data("in").local("l", "in", 1, 1, 1, 1, 1, 1, 1, 1, {1}, {0},
                                          {0, 0, 1, 0}),
         "layer_model_local::deserialize(): padding as large as the kernel"},
    };
    for (const auto& [writer, message] : cases) EXPECT_EQ(failure(writer.bytes()), message);
}

}  // namespace
}  // namespace deepnet
