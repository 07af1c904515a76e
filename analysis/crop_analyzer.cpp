#include "crop_analyzer.h"

#include <algorithm>
#include <iostream>
#include <opencv2/imgproc.hpp>

#include "feature_maps.h"
#include "plane_image.h"
#include "vector_math.h"

namespace smartCrop {

CropAnalyzer::CropAnalyzer(IImage& image, const SmartCropParams& params,
                           const std::vector<RectOfInterest>& rects)
    : roiList(rects), analysisParams(params) {
    // Only the scalars are read; the arrays belong to the caller's record.
    analysisParams.aspectRatios = nullptr;
    analysisParams.scaleRatios = nullptr;
    analysisParams.rectsOfInterest = nullptr;
    scoringScratch.reset(new float[kFeatureCount]());
    analyze_image(image);
}

CropAnalyzer::Sizes CropAnalyzer::sizes_for(int sourceWidth, int sourceHeight) {
    const float L = static_cast<float>(std::max(sourceWidth, sourceHeight));
    const float sw = static_cast<float>(sourceWidth), sh = static_cast<float>(sourceHeight);
    Sizes s;
    s.workScale = static_cast<float>(kWorkSize) / L;
    s.highScale = static_cast<float>(kHighSize) / L;
    s.workWidth = static_cast<int>(sw * s.workScale + 0.5f);
    s.workHeight = static_cast<int>(sh * s.workScale + 0.5f);
    s.highWidth = static_cast<int>(sw * s.highScale + 0.5f);
    s.highHeight = static_cast<int>(sh * s.highScale + 0.5f);
    return s;
}

void CropAnalyzer::analyze_image(const IImage& source) {
    sourceWidth = static_cast<int32_t>(source.GetWidth());
    sourceHeight = static_cast<int32_t>(source.GetHeight());
    const Sizes s = sizes_for(sourceWidth, sourceHeight);
    workScale = s.workScale;
    workWidth = s.workWidth;
    workHeight = s.workHeight;
    if (workWidth < 1 || workHeight < 1) {
        std::cerr << "Image aspect ratio is larger than 1:640! " << std::endl;
        return;
    }
    resize_sources(source.GetConstPixels());
    extract_maps();
    build_gradient_map();
    build_tables();
}

void CropAnalyzer::resize_sources(const uint8_t* pixels) {
    const int W = workWidth, H = workHeight;
    workImage.resize(W, H, 4);
    resize_pixels(pixels, sourceWidth, sourceHeight, workImage.data.data(), W, H);

    const Sizes s = sizes_for(sourceWidth, sourceHeight);
    highScale = s.highScale;
    const int W2 = s.highWidth, H2 = s.highHeight;
    ByteImage high4;
    high4.resize(W2, H2, 4);
    resize_pixels(pixels, sourceWidth, sourceHeight, high4.data.data(), W2, H2);
    highImage.resize(W2, H2, 3);
    const size_t n = static_cast<size_t>(W2) * H2;
    for (size_t i = 0; i < n; ++i) {
        highImage.data[i * 3 + 0] = high4.data[i * 4 + 1];
        highImage.data[i * 3 + 1] = high4.data[i * 4 + 2];
        highImage.data[i * 3 + 2] = high4.data[i * 4 + 3];
    }
}

void CropAnalyzer::extract_maps() {
    const int W = workWidth, H = workHeight;
    for (FloatMap* m : {&saliencyMap, &edgeMap, &saliencyMask, &contrastMap, &contrastPeakMap,
                        &borderMaps[0], &borderMaps[1], &borderMaps[2], &borderMaps[3]}) {
        m->resize(H, W);
    }
    float* const outputs[7] = {saliencyMap.data.data(),   edgeMap.data.data(),
                               contrastMap.data.data(),   borderMaps[0].data.data(),
                               borderMaps[1].data.data(), borderMaps[2].data.data(),
                               borderMaps[3].data.data()};

    std::vector<RectOfInterest> scaled(roiList.size());
    for (size_t i = 0; i < roiList.size(); ++i) {
        const RectOfInterest& r = roiList[i];
        scaled[i].left = static_cast<int32_t>(int64_t{r.left} * W / sourceWidth);
        scaled[i].right = static_cast<int32_t>(int64_t{r.right} * W / sourceWidth);
        scaled[i].top = static_cast<int32_t>(int64_t{r.top} * H / sourceHeight);
        scaled[i].bottom = static_cast<int32_t>(int64_t{r.bottom} * H / sourceHeight);
    }

    std::vector<uint8_t> bgr(static_cast<size_t>(W) * H * 3);
    for (size_t i = 0, n = static_cast<size_t>(W) * H; i < n; ++i) {
        bgr[i * 3 + 0] = workImage.data[i * 4 + 3];
        bgr[i * 3 + 1] = workImage.data[i * 4 + 2];
        bgr[i * 3 + 2] = workImage.data[i * 4 + 1];
    }
    extract_feature_maps(bgr.data(), 3, W, H, 3, outputs, 1, scaled, analysisParams);
}

namespace analysis_stages {

void gradient_map(const ByteImage& workImage, FloatMap& gradientMap) {
    const int W = workImage.width, H = workImage.height, n = W * H;
    const cv::Mat pixels(H, W, CV_8UC4, const_cast<uint8_t*>(workImage.data.data()));
    std::vector<cv::Mat> planes;
    cv::split(pixels, planes);
    gradientMap.resize(H, W);
    std::fill(gradientMap.data.begin(), gradientMap.data.end(), 0.0f);
    ScopedPlaneImage derivatives(W, H, 2);
    float* dx = derivatives->planes[0];
    float* dy = derivatives->planes[1];
    cv::Mat asFloat, blurred;
    for (int c = 1; c <= 3; ++c) {
        planes[c].convertTo(asFloat, CV_32F, 1.0, 0.0);
        cv::GaussianBlur(asFloat, blurred, cv::Size(15, 15), 2.0, 0, cv::BORDER_REPLICATE);
        sobel_x(blurred.ptr<float>(0), dx, W, H);
        sobel_y(blurred.ptr<float>(0), dy, W, H);
        vs_abs(n, dx, dx);
        vs_abs(n, dy, dy);
        vs_add(n, dx, dy, dx);
        vs_add(n, gradientMap.data.data(), dx, gradientMap.data.data());
    }
    threshold_relative(gradientMap, 0.1f);
    PlaneImage wrapped = wrap_plane(W, H, gradientMap.data.data());
    normalize_image(wrapped);
    normalize_rows(wrapped);
    threshold_relative(gradientMap, 0.3f);
    erode_map(gradientMap, gradientMap, 5, 5);
    dilate_map(gradientMap, gradientMap, 7, 7);
    weight_centre_bands(gradientMap, 5);
    normalize_image(wrapped);
}

}  // namespace analysis_stages

void CropAnalyzer::build_gradient_map() {
    analysis_stages::gradient_map(workImage, gradientMap);
}

namespace {

float floored_total(const DoubleMap& table) {
    const float total = static_cast<float>(table.data.back());
    return std::max(total, 1e-10f);
}

}  // namespace

void CropAnalyzer::build_tables() {
    const int W = workWidth, H = workHeight;
    threshold_relative(contrastMap, 0.3f);
    saliencyMask = saliencyMap;
    threshold_relative(saliencyMask, 0.1f);
    contrastPeakMap = contrastMap;
    threshold_relative(contrastPeakMap, 0.5f);
    vs_powx(static_cast<int>(contrastPeakMap.size()), contrastPeakMap.data.data(), 3.0f,
            contrastPeakMap.data.data());

    const std::pair<const FloatMap*, DoubleMap*> tables[] = {
        {&saliencyMap, &saliencyIntegral},         {&edgeMap, &edgeIntegral},
        {&saliencyMask, &saliencyMaskIntegral},    {&contrastMap, &contrastIntegral},
        {&contrastPeakMap, &contrastPeakIntegral}, {&gradientMap, &gradientIntegral}};
    const FloatMap* maps[10];
    DoubleMap* integrals[10];
    int n = 0;
    for (const auto& [map, table] : tables) {
        table->resize(H, W);
        maps[n] = map;
        integrals[n++] = table;
    }
    for (int k = 0; k < 4; ++k) {
        threshold_relative(borderMaps[k], 0.01f);
        borderIntegrals[k].resize(H, W);
        maps[n] = &borderMaps[k];
        integrals[n++] = &borderIntegrals[k];
    }
    integral_images(maps, integrals, n);
    saliencyMaskTotal = floored_total(saliencyMaskIntegral);
    contrastTotal = floored_total(contrastIntegral);
    gradientTotal = floored_total(gradientIntegral);
    contrastPeakTotal = floored_total(contrastPeakIntegral);

    const int B = static_cast<int>(std::max(0.15f * static_cast<float>(std::min(W, H)), 1.0f));
    borderStripWidth = B;
    const float means[4] = {
        static_cast<float>(region_mean(borderIntegrals[0], 0, B - 1, 0, W - 1)),
        static_cast<float>(region_mean(borderIntegrals[1], H - B, H - 1, 0, W - 1)),
        static_cast<float>(region_mean(borderIntegrals[2], 0, H - 1, 0, B - 1)),
        static_cast<float>(region_mean(borderIntegrals[3], 0, H - 1, W - B, W - 1))};
    for (int k = 0; k < 4; ++k) borderInverseMeans[k] = 1.0f / (means[k] + 0.01f);
}

}  // namespace smartCrop
