// The runtime: a 12 by 12 scanning network run fully convolutionally over a
// 289 by 217 image, and a 48 by 48 network on one patch.
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <random>

#include "deepnet/forward_pass.h"
#include "network_writer.h"

namespace {

std::vector<float> noise(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> d(0.0f, 0.1f);
    std::vector<float> v(n);
    for (float& x : v) x = d(rng);
    return v;
}

cv::Mat image(int w, int h) {
    cv::Mat m(h, w, CV_8UC3);
    cv::randu(m, 0, 256);
    return m;
}

// 3x3 conv 3->10, pool 2, 3x3 10->16, 3x3 16->32, 1x1 32->2, softmax over
// channels: 6,632 parameters, a 12 by 12 receptive field.
void BM_ScanningNetwork289x217(benchmark::State& state) {
    const deepnet::DeepnetModel model(
        netwriter::NetworkWriter()
            .data("in")
            .conv("c1", "in", 10, 3, 3, 3, 1, 1, noise(270, 1), noise(10, 2))
            .relu("r1", "c1")
            .pool(5, "p1", "r1", 2, 2, 2, 2)
            .conv("c2", "p1", 16, 10, 3, 3, 1, 1, noise(1440, 3), noise(16, 4))
            .relu("r2", "c2")
            .conv("c3", "r2", 32, 16, 3, 3, 1, 1, noise(4608, 5), noise(32, 6))
            .relu("r3", "c3")
            .conv("c4", "r3", 2, 32, 1, 1, 1, 1, noise(64, 7), noise(2, 8))
            .plain(21, "Y", {"c4"})
            .bytes());
    const cv::Mat input = image(289, 217);
    mp::matrix out;
    for (auto _ : state) deepnet::deepnet_compute_feature(model, out, input, "Y");
    state.counters["map_cells"] = out.rows * out.cols;
}
BENCHMARK(BM_ScanningNetwork289x217)->Unit(benchmark::kMillisecond);

// 3x3 conv 3->32, pool 3/2, 3x3 32->64, pool 3/2, 3x3 64->64, pool 2/2,
// 2x2 64->128, fully connected 128*2*2 -> 256 -> 2.
void BM_PatchNetwork48(benchmark::State& state) {
    const deepnet::DeepnetModel model(
        netwriter::NetworkWriter()
            .data("in")
            .conv("c1", "in", 32, 3, 3, 3, 1, 1, noise(864, 1), noise(32, 2))
            .relu("r1", "c1")
            .pool(5, "p1", "r1", 3, 3, 2, 2)
            .conv("c2", "p1", 64, 32, 3, 3, 1, 1, noise(18432, 3), noise(64, 4))
            .relu("r2", "c2")
            .pool(5, "p2", "r2", 3, 3, 2, 2)
            .conv("c3", "p2", 64, 64, 3, 3, 1, 1, noise(36864, 5), noise(64, 6))
            .relu("r3", "c3")
            .pool(5, "p3", "r3", 2, 2, 2, 2)
            .conv("c4", "p3", 128, 64, 2, 2, 1, 1, noise(32768, 7), noise(128, 8))
            .relu("r4", "c4")
            .fc("f1", {"r4"}, {512}, 256, noise(131072, 9), noise(256, 10))
            .fc("Y", {"f1"}, {256}, 2, noise(512, 11), noise(2, 12))
            .bytes());
    const cv::Mat input = image(48, 48);
    mp::matrix out;
    for (auto _ : state) deepnet::deepnet_compute_feature(model, out, input, "Y");
}
BENCHMARK(BM_PatchNetwork48)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
