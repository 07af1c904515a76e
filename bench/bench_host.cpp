// The host layer's steps on a 12 MP JPEG (4032 x 3024, as phones take them):
// the decode reduced for the analysis, the sharpness map, and the whole
// request from file bytes to ranked crops, as the program runs it.
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>

#include "bench_images.h"
#include "host/analysed_image.h"
#include "host/image_decoding.h"
#include "host/image_encoding.h"
#include "host/photograph.h"
#include "host/sharpness_map.h"

namespace {

constexpr uint32_t kWidth = 4032, kHeight = 3024;

const std::vector<uint8_t>& jpeg_12mp() {
    static const std::vector<uint8_t> bytes = [] {
        const std::vector<uint8_t> pixels = bench::photo_like(kWidth, kHeight);
        return smartCrop::host::encode_image(smartCrop::host::ImageFormat::Jpeg, pixels.data(),
                                             kWidth, kHeight, kWidth * 4);
    }();
    return bytes;
}

smartCrop::host::DecodeOptions reduced_for(const smartCrop::host::CropRequest& request) {
    smartCrop::host::DecodeOptions options;
    options.reducedLongSide = smartCrop::host::reduced_long_side(request);
    return options;
}

void BM_DecodeJpeg12MP(benchmark::State& state) {
    const smartCrop::host::DecodeOptions options = reduced_for({});
    jpeg_12mp();  // encoded once, outside the timing
    for (auto _ : state) {
        smartCrop::host::DecodedImage image = smartCrop::host::decode_image(jpeg_12mp(), options);
        benchmark::DoNotOptimize(image.pixels.data());
    }
}
BENCHMARK(BM_DecodeJpeg12MP)->Unit(benchmark::kMillisecond);

void BM_SharpnessMap(benchmark::State& state) {
    const uint32_t W = kWidth / 4, H = kHeight / 4;  // the reduced decode
    const std::vector<uint8_t> pixels = bench::photo_like(W, H);
    for (auto _ : state) {
        const smartCrop::host::SharpnessMap map(pixels.data(), W, H, W * 4);
        benchmark::DoNotOptimize(map.share(0, 0, W / 2, H / 2, W, H));
    }
}
BENCHMARK(BM_SharpnessMap)->Unit(benchmark::kMillisecond);

// One 16:9 request, five suggestions, no faces: the program's work after
// reading the file.
void BM_WholeRequest12MP(benchmark::State& state) {
    smartCrop::host::CropRequest request;
    request.aspects = {16.0 / 9};
    for (auto _ : state) {
        const smartCrop::host::AnalysedImage image =
            smartCrop::host::open_photograph(jpeg_12mp(), request);
        benchmark::DoNotOptimize(image.suggest().crops.size());
    }
}
BENCHMARK(BM_WholeRequest12MP)->Unit(benchmark::kMillisecond);

}  // namespace

// One thread, as the program runs: OpenCV's pool would otherwise time the
// host layer's resizes on two cores (and its start-up in some runs).
int main(int argc, char** argv) {
    cv::setNumThreads(1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
