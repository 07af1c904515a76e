// Minimum-barrier saliency and frame contrast at a 640 by 427 working size.
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>

#include "analysis/frame_contrast.h"
#include "analysis/plane_image.h"
#include "bench_images.h"
#include "saliency/mbd_saliency.h"

namespace {

constexpr int kWidth = 640, kHeight = 427;

cv::Mat three_channel() {
    const std::vector<uint8_t> pixels = bench::photo_like(kWidth, kHeight);
    cv::Mat image(kHeight, kWidth, CV_8UC3);
    for (int i = 0; i < kWidth * kHeight; ++i) {
        for (int c = 0; c < 3; ++c) image.data[i * 3 + c] = pixels[i * 4 + 3 - c];
    }
    return image;
}

void BM_MbdSaliency(benchmark::State& state) {
    const cv::Mat image = three_channel();
    for (auto _ : state) benchmark::DoNotOptimize(smartCrop::compute_mbd_saliency(image, false));
}
BENCHMARK(BM_MbdSaliency)->Unit(benchmark::kMillisecond);

void BM_FrameContrast(benchmark::State& state) {
    const cv::Mat image = three_channel();
    smartCrop::ScopedPlaneImage planes(kWidth, kHeight, 3);
    for (int i = 0; i < kWidth * kHeight; ++i) {
        for (int c = 0; c < 3; ++c) planes->planes[c][i] = image.data[i * 3 + c];
    }
    smartCrop::build_region_integrals(*planes);
    smartCrop::ScopedPlaneImage first(kWidth, kHeight, 1), second(kWidth, kHeight, 1);
    for (auto _ : state) {
        smartCrop::top_seeded_contrast(*planes, *first, 0.25f, false);
        smartCrop::bottom_seeded_contrast(*planes, *second, 0.25f, false);
        benchmark::DoNotOptimize(first->planes[0][0]);
    }
}
BENCHMARK(BM_FrameContrast)->Unit(benchmark::kMillisecond);

// The colour and cross-product tables the frame contrasts read, keeping the
// strips' lines as the analysis does.
void BM_RegionIntegrals(benchmark::State& state) {
    const cv::Mat image = three_channel();
    smartCrop::ScopedPlaneImage planes(kWidth, kHeight, 3);
    for (int i = 0; i < kWidth * kHeight; ++i) {
        for (int c = 0; c < 3; ++c) planes->planes[c][i] = image.data[i * 3 + c];
    }
    for (auto _ : state) {
        smartCrop::build_region_integrals(
            *planes, smartCrop::frame_strip_lines(kWidth, kHeight, {0.25f, 0.2f}));
        benchmark::DoNotOptimize(planes->integrals[0][0]);
    }
}
BENCHMARK(BM_RegionIntegrals)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
