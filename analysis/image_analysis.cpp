#include "analysis/image_analysis.h"

#include <algorithm>
#include <iostream>
#include <opencv2/imgproc.hpp>

#include "analysis/feature_maps.h"
#include "analysis/map_morphology.h"
#include "analysis/map_thresholds.h"
#include "analysis/pixel_resize.h"
#include "analysis/plane_image.h"
#include "analysis/summed_area_table.h"
#include "analysis/vector_math.h"

namespace smartCrop {

AnalysisSizes analysis_sizes(int sourceWidth, int sourceHeight) {
    const float L = static_cast<float>(std::max(sourceWidth, sourceHeight));
    const float sw = static_cast<float>(sourceWidth), sh = static_cast<float>(sourceHeight);
    AnalysisSizes s;
    s.workScale = static_cast<float>(kWorkSize) / L;
    s.highScale = static_cast<float>(kHighSize) / L;
    s.workWidth = static_cast<int>(sw * s.workScale + 0.5f);
    s.workHeight = static_cast<int>(sh * s.workScale + 0.5f);
    s.highWidth = static_cast<int>(sw * s.highScale + 0.5f);
    s.highHeight = static_cast<int>(sh * s.highScale + 0.5f);
    return s;
}

WorkRect ImageAnalysis::work_rect(const CropRect& crop) const {
    const float s = workScale;
    const float lastRow = static_cast<float>(workHeight - 1);
    const float lastCol = static_cast<float>(workWidth - 1);
    // Clamped on both sides: every reading stays inside the tables even for a
    // rectangle that reaches outside the image.
    return {static_cast<int>(std::min(lastRow, std::max(0.0f, crop.top * s))),
            static_cast<int>(std::min(lastCol, std::max(0.0f, crop.left * s))),
            static_cast<int>(std::max(0.0f, std::min(lastRow, crop.bottom * s))),
            static_cast<int>(std::max(0.0f, std::min(lastCol, crop.right * s)))};
}

void analyze_image(const IImage& source, const SmartCropParams& params,
                   const std::vector<RectOfInterest>& rects, ImageAnalysis& a, KeepMaps keep) {
    a.sourceWidth = static_cast<int32_t>(source.GetWidth());
    a.sourceHeight = static_cast<int32_t>(source.GetHeight());
    const AnalysisSizes s = analysis_sizes(a.sourceWidth, a.sourceHeight);
    a.workScale = s.workScale;
    a.workWidth = s.workWidth;
    a.workHeight = s.workHeight;
    if (a.workWidth < 1 || a.workHeight < 1) {
        std::cerr << "Image aspect ratio is larger than 1:640! " << std::endl;
        return;
    }
    resize_sources(source.GetConstPixels(), a, params.detectFaces ? HighCopy::Yes : HighCopy::No);
    extract_maps(params, rects, a);
    gradient_map(a.workImage, a.gradientMap);
    build_tables(a, keep);
}

void resize_sources(const uint8_t* pixels, ImageAnalysis& a, HighCopy high) {
    const int W = a.workWidth, H = a.workHeight;
    a.workImage.resize(W, H, 4);
    resize_pixels(pixels, a.sourceWidth, a.sourceHeight, a.workImage.data.data(), W, H);

    const AnalysisSizes s = analysis_sizes(a.sourceWidth, a.sourceHeight);
    a.highScale = s.highScale;
    if (high == HighCopy::No) return;
    const int W2 = s.highWidth, H2 = s.highHeight;
    ByteImage high4;
    high4.resize(W2, H2, 4);
    resize_pixels(pixels, a.sourceWidth, a.sourceHeight, high4.data.data(), W2, H2);
    a.highImage.resize(W2, H2, 3);
    const size_t n = static_cast<size_t>(W2) * H2;
    for (size_t i = 0; i < n; ++i) {
        a.highImage.data[i * 3 + 0] = high4.data[i * 4 + 1];
        a.highImage.data[i * 3 + 1] = high4.data[i * 4 + 2];
        a.highImage.data[i * 3 + 2] = high4.data[i * 4 + 3];
    }
}

void extract_maps(const SmartCropParams& params, const std::vector<RectOfInterest>& rects,
                  ImageAnalysis& a) {
    const int W = a.workWidth, H = a.workHeight;
    // Every map the tables are made from, side by side in the order the
    // tables free them (the gradient's too, made later): freed maps then
    // leave holes as large as tables, and the scratch of the maps above
    // them is one region the tables can fill.
    for (FloatMap* m :
         {&a.saliencyMap, &a.edgeMap, &a.saliencyMask, &a.contrastMap, &a.contrastPeakMap,
          &a.gradientMap, &a.borderMaps[0], &a.borderMaps[1], &a.borderMaps[2], &a.borderMaps[3]}) {
        m->resize(H, W);
    }
    float* const outputs[7] = {a.saliencyMap.data.data(),   a.edgeMap.data.data(),
                               a.contrastMap.data.data(),   a.borderMaps[0].data.data(),
                               a.borderMaps[1].data.data(), a.borderMaps[2].data.data(),
                               a.borderMaps[3].data.data()};

    std::vector<RectOfInterest> scaled(rects.size());
    for (size_t i = 0; i < rects.size(); ++i) {
        const RectOfInterest& r = rects[i];
        scaled[i].left = static_cast<int32_t>(int64_t{r.left} * W / a.sourceWidth);
        scaled[i].right = static_cast<int32_t>(int64_t{r.right} * W / a.sourceWidth);
        scaled[i].top = static_cast<int32_t>(int64_t{r.top} * H / a.sourceHeight);
        scaled[i].bottom = static_cast<int32_t>(int64_t{r.bottom} * H / a.sourceHeight);
    }

    std::vector<uint8_t> bgr(static_cast<size_t>(W) * H * 3);
    for (size_t i = 0, n = static_cast<size_t>(W) * H; i < n; ++i) {
        bgr[i * 3 + 0] = a.workImage.data[i * 4 + 3];
        bgr[i * 3 + 1] = a.workImage.data[i * 4 + 2];
        bgr[i * 3 + 2] = a.workImage.data[i * 4 + 1];
    }
    extract_feature_maps(bgr.data(), 3, W, H, 3, outputs, 1, scaled, params);
}

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
        vs_add_l1(n, dx, dy, gradientMap.data.data());
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

namespace {

float floored_total(const DoubleMap& table) {
    const float total = static_cast<float>(table.data.back());
    return std::max(total, 1e-10f);
}

}  // namespace

void build_tables(ImageAnalysis& a, KeepMaps keep) {
    const int W = a.workWidth, H = a.workHeight;
    threshold_relative(a.contrastMap, 0.3f);
    a.saliencyMask = a.saliencyMap;
    threshold_relative(a.saliencyMask, 0.1f);
    a.contrastPeakMap = a.contrastMap;
    threshold_relative(a.contrastPeakMap, 0.5f);
    vs_powx(static_cast<int>(a.contrastPeakMap.size()), a.contrastPeakMap.data.data(), 3.0f,
            a.contrastPeakMap.data.data());

    FloatMap* maps[10] = {&a.saliencyMap,     &a.edgeMap,      &a.saliencyMask,  &a.contrastMap,
                          &a.contrastPeakMap, &a.gradientMap,  &a.borderMaps[0], &a.borderMaps[1],
                          &a.borderMaps[2],   &a.borderMaps[3]};
    DoubleMap* integrals[10] = {&a.saliencyIntegral,     &a.edgeIntegral,
                                &a.saliencyMaskIntegral, &a.contrastIntegral,
                                &a.contrastPeakIntegral, &a.gradientIntegral,
                                &a.borderIntegrals[0],   &a.borderIntegrals[1],
                                &a.borderIntegrals[2],   &a.borderIntegrals[3]};
    for (int k = 0; k < 4; ++k) threshold_relative(a.borderMaps[k], 0.01f);
    if (keep == KeepMaps::No) a.workImage = ByteImage();
    // Four tables at a time: enough running sums side by side to hide their
    // latency, and each group's maps are freed before the next group's
    // tables are made, so the maps and all ten tables never live together.
    for (int k0 = 0; k0 < 10; k0 += 4) {
        const int count = std::min(4, 10 - k0);
        for (int k = k0; k < k0 + count; ++k) integrals[k]->resize(H, W);
        integral_images(maps + k0, integrals + k0, count);
        if (keep == KeepMaps::No)
            for (int k = k0; k < k0 + count; ++k) *maps[k] = FloatMap();
    }
    a.saliencyMaskTotal = floored_total(a.saliencyMaskIntegral);
    a.contrastTotal = floored_total(a.contrastIntegral);
    a.gradientTotal = floored_total(a.gradientIntegral);
    a.contrastPeakTotal = floored_total(a.contrastPeakIntegral);

    const int B = static_cast<int>(std::max(0.15f * static_cast<float>(std::min(W, H)), 1.0f));
    a.borderStripWidth = B;
    const float means[4] = {
        static_cast<float>(region_mean(a.borderIntegrals[0], 0, B - 1, 0, W - 1)),
        static_cast<float>(region_mean(a.borderIntegrals[1], H - B, H - 1, 0, W - 1)),
        static_cast<float>(region_mean(a.borderIntegrals[2], 0, H - 1, 0, B - 1)),
        static_cast<float>(region_mean(a.borderIntegrals[3], 0, H - 1, W - B, W - 1))};
    for (int k = 0; k < 4; ++k) a.borderInverseMeans[k] = 1.0f / (means[k] + 0.01f);
}

}  // namespace smartCrop
