// The whole analysis (CreateSmartCropObj) on photo-like images of 1 and 12
// megapixels, and its stages at the work size, for the per-stage breakdown.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "SmartCrop.h"
#include "analysis/feature_maps.h"
#include "analysis/map_morphology.h"
#include "analysis/map_thresholds.h"
#include "analysis/pixel_resize.h"
#include "analysis/summed_area_table.h"
#include "bench_images.h"
#include "source/CropAnalyzer.h"

namespace {

size_t heap_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void BM_CreateSmartCropObj(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const std::vector<uint8_t> pixels = bench::photo_like(width, height);
    const uint64_t offsets[4] = {0, 1, 2, 3};
    smartCrop::IImage* image = CreateImageObj(height, width, 4, offsets, pixels.data());
    smartCrop::RatioEntry aspects[] = {{1.0, true}, {16.0 / 9.0, true}};
    smartCrop::RatioEntry scales[] = {{1.0, true}, {0.8, true}};
    smartCrop::SmartCropParams params;
    params.aspectRatios = aspects;
    params.aspectRatioCount = 2;
    params.scaleRatios = scales;
    params.scaleRatioCount = 2;
    size_t held = 0;
    for (auto _ : state) {
        const size_t before = heap_in_use();
        smartCrop::ISmartCrop* crop = CreateSmartCropObj(image, &params);
        held = heap_in_use() - before;
        crop->Release();
    }
    state.counters["held_MB"] = static_cast<double>(held) / (1024.0 * 1024.0);
    image->Release();
}
BENCHMARK(BM_CreateSmartCropObj)
    ->Args({1224, 816})
    ->Args({4240, 2832})
    ->Unit(benchmark::kMillisecond);

// Stage 1: the two resizes from the source (12 MP) to 640 and 1024.
void BM_ResizeSources12MP(benchmark::State& state) {
    const int W = 4240, H = 2832;
    const std::vector<uint8_t> pixels = bench::photo_like(W, H);
    std::vector<uint8_t> work(640 * 427 * 4), high(1024 * 684 * 4);
    for (auto _ : state) {
        smartCrop::resize_pixels(pixels.data(), W, H, work.data(), 640, 427);
        smartCrop::resize_pixels(pixels.data(), W, H, high.data(), 1024, 684);
    }
}
BENCHMARK(BM_ResizeSources12MP)->Unit(benchmark::kMillisecond);

// Stage 2: the seven feature maps at the work size.
void BM_ExtractFeatureMaps(benchmark::State& state) {
    const int W = 640, H = 427;
    const std::vector<uint8_t> rgba = bench::photo_like(W, H);
    std::vector<uint8_t> bgr(W * H * 3);
    for (int i = 0; i < W * H; ++i)
        for (int c = 0; c < 3; ++c) bgr[i * 3 + c] = rgba[i * 4 + 3 - c];
    std::vector<std::vector<float>> maps(7, std::vector<float>(W * H));
    float* const outputs[7] = {maps[0].data(), maps[1].data(), maps[2].data(), maps[3].data(),
                               maps[4].data(), maps[5].data(), maps[6].data()};
    for (auto _ : state) {
        smartCrop::extract_feature_maps(bgr.data(), 3, W, H, 3, outputs, 1, {},
                                        smartCrop::SmartCropParams());
    }
}
BENCHMARK(BM_ExtractFeatureMaps)->Unit(benchmark::kMillisecond);

// Stage 3: the gradient map at the work size.
void BM_GradientMap(benchmark::State& state) {
    smartCrop::ByteImage work;
    work.resize(640, 427, 4);
    const std::vector<uint8_t> pixels = bench::photo_like(640, 427);
    work.data.assign(pixels.begin(), pixels.end());
    smartCrop::FloatMap gradient;
    for (auto _ : state) smartCrop::gradient_map(work, gradient);
}
BENCHMARK(BM_GradientMap)->Unit(benchmark::kMillisecond);

// Stage 4: ten summed-area tables at the work size, four at a time as the
// analysis builds them (into tables already in memory: the sums alone).
void BM_SummedAreaTables(benchmark::State& state) {
    const int W = 640, H = 427;
    const std::vector<uint8_t> pixels = bench::photo_like(W, H);
    std::vector<smartCrop::FloatMap> maps(10);
    std::vector<smartCrop::DoubleMap> tables(10);
    for (int k = 0; k < 10; ++k) {
        maps[k].resize(H, W);
        tables[k].resize(H, W);
        for (int i = 0; i < W * H; ++i) maps[k].data[i] = pixels[i * 4 + k % 4] / 255.0f;
    }
    const smartCrop::FloatMap* in[10];
    smartCrop::DoubleMap* out[10];
    for (int k = 0; k < 10; ++k) {
        in[k] = &maps[k];
        out[k] = &tables[k];
    }
    for (auto _ : state) {
        for (int k0 = 0; k0 < 10; k0 += 4)
            smartCrop::integral_images(in + k0, out + k0, std::min(4, 10 - k0));
        benchmark::DoNotOptimize(tables[9].data.back());
    }
}
BENCHMARK(BM_SummedAreaTables)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
