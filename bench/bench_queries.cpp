// Queries on a 12 MP photo-like image: the first GetSuggestions over 7 aspect
// ratios by 6 scales (every candidate scored), the same with face detection,
// and a repeated query. Loading the face detector is timed on its own.
#include <benchmark/benchmark.h>

#include "SmartCrop.h"
#include "bench_images.h"
#include "faces/cascade_model.h"

constexpr const char* kDetector = SMARTCROP_SOURCE_DIR "/data/ovex3";

namespace {

struct Object {
    Object() {
        const int W = 4240, H = 2832;
        const std::vector<uint8_t> pixels = bench::photo_like(W, H);
        const uint64_t offsets[4] = {0, 1, 2, 3};
        image = CreateImageObj(H, W, 4, offsets, pixels.data());
    }
    ~Object() { image->Release(); }
    smartCrop::ISmartCrop* Create(bool faces = false, uint32_t gridBudget = 50) const {
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
        params.detectFaces = faces;
        params.gridBudget = gridBudget;
        return CreateSmartCropObj(image, &params);
    }
    smartCrop::IImage* image;
};

uint64_t Query(smartCrop::ISmartCrop* crop, bool faces = false) {
    smartCrop::ICropRects* out = nullptr;
    smartCrop::SelectionParams selection;
    smartCrop::SuggestionParams request;
    request.useFaces = faces;
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

// range(0): 1 with faces detected by the shipped detector (loaded before).
void BM_FirstQuery(benchmark::State& state) {
    static Object object;
    const bool faces = state.range(0) != 0;
    if (faces) {
        SetFaceDetectorConfigDir(kDetector);
        smartCrop::ISmartCrop* warm = object.Create(true);
        Query(warm, true);
        warm->Release();
    }
    uint64_t candidates = 0;
    for (auto _ : state) {
        state.PauseTiming();
        smartCrop::ISmartCrop* crop = object.Create(faces);
        state.ResumeTiming();
        benchmark::DoNotOptimize(Query(crop, faces));
        state.PauseTiming();
        candidates = CandidateCount(crop);
        crop->Release();
        state.ResumeTiming();
    }
    state.counters["candidates"] = static_cast<double>(candidates);
    state.counters["candidates_per_s"] = benchmark::Counter(
        static_cast<double>(candidates) * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FirstQuery)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_LoadDetector(benchmark::State& state) {
    for (auto _ : state) {
        smartCrop::CasCNNModel model(kDetector);
        benchmark::DoNotOptimize(model.stage_models.size());
    }
}
BENCHMARK(BM_LoadDetector)->Unit(benchmark::kMillisecond);

// range(0): the grid budget; 50 (the default) makes 10,131 candidates, 80
// makes about 26,000.
void BM_RepeatedQuery(benchmark::State& state) {
    static Object object;
    smartCrop::ISmartCrop* crop = object.Create(false, static_cast<uint32_t>(state.range(0)));
    Query(crop);
    for (auto _ : state) benchmark::DoNotOptimize(Query(crop));
    state.counters["candidates"] = static_cast<double>(CandidateCount(crop));
    crop->Release();
}
BENCHMARK(BM_RepeatedQuery)->Arg(50)->Arg(80)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
