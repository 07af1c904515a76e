// Queries on a 12 MP photo-like image: the first GetSuggestions over 7 aspect
// ratios by 6 scales (every candidate scored), and a repeated query.
#include <benchmark/benchmark.h>

#include "SmartCrop.h"
#include "bench_images.h"

namespace {

struct Object {
    Object() {
        const int W = 4240, H = 2832;
        const std::vector<uint8_t> pixels = bench::photo_like(W, H);
        const uint64_t offsets[4] = {0, 1, 2, 3};
        image = CreateImageObj(H, W, 4, offsets, pixels.data());
    }
    ~Object() { image->Release(); }
    smartCrop::ISmartCrop* Create() const {
        smartCrop::RatioEntry aspects[] = {{1.0, true},     {4.0 / 3, true}, {3.0 / 4, true},
                                           {3.0 / 2, true}, {2.0 / 3, true}, {16.0 / 9, true},
                                           {9.0 / 16, true}};
        smartCrop::RatioEntry scales[] = {{1.0, true}, {0.9, true}, {0.8, true},
                                          {0.7, true}, {0.6, true}, {0.5, true}};
        smartCrop::SmartCropParams params;
        params.aspectRatios = aspects;
        params.aspectRatioCount = 7;
        params.scaleRatios = scales;
        params.scaleRatioCount = 6;
        return CreateSmartCropObj(image, &params);
    }
    smartCrop::IImage* image;
};

uint64_t Query(smartCrop::ISmartCrop* crop) {
    smartCrop::ICropRects* out = nullptr;
    smartCrop::SelectionParams selection;
    smartCrop::SuggestionParams request;
    crop->GetSuggestions(&out, &selection, &request);
    const uint64_t n = out->GetCount();
    out->Release();
    return n;
}

uint64_t CandidateCount(smartCrop::ISmartCrop* crop) {
    smartCrop::ICropRects* all = nullptr;
    smartCrop::SuggestionParams request;
    crop->GetAllCrops(&all, &request);
    const uint64_t n = all->GetCount();
    all->Release();
    return n;
}

void BM_FirstQuery(benchmark::State& state) {
    static Object object;
    uint64_t candidates = 0;
    for (auto _ : state) {
        state.PauseTiming();
        smartCrop::ISmartCrop* crop = object.Create();
        state.ResumeTiming();
        benchmark::DoNotOptimize(Query(crop));
        state.PauseTiming();
        candidates = CandidateCount(crop);
        crop->Release();
        state.ResumeTiming();
    }
    state.counters["candidates"] = static_cast<double>(candidates);
    state.counters["candidates_per_s"] = benchmark::Counter(
        static_cast<double>(candidates) * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FirstQuery)->Unit(benchmark::kMillisecond);

void BM_RepeatedQuery(benchmark::State& state) {
    static Object object;
    smartCrop::ISmartCrop* crop = object.Create();
    Query(crop);
    for (auto _ : state) benchmark::DoNotOptimize(Query(crop));
    crop->Release();
}
BENCHMARK(BM_RepeatedQuery)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
