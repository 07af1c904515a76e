// smartcrop-maps: writes what the analysis sees of an image as 8-bit PNGs.
//   smartcrop-maps IMAGE OUTDIR
// One file per map (saliency, edge, contrast, contrast peaks, gradient, the
// four border maps), each scaled so that its largest value is white.
#include <algorithm>
#include <cstdio>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "analysis/image_analysis.h"
#include "source/RGB8Image.h"

namespace {

bool write_map(const smartCrop::FloatMap& map, const std::string& path) {
    cv::Mat view(map.rows, map.cols, CV_32F, const_cast<float*>(map.data.data()));
    double maxValue = 0;
    cv::minMaxLoc(view, nullptr, &maxValue);
    cv::Mat out;
    view.convertTo(out, CV_8U, maxValue > 0 ? 255.0 / maxValue : 0.0);
    return cv::imwrite(path, out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s IMAGE OUTDIR\n", argv[0]);
        return 2;
    }
    const cv::Mat bgr = cv::imread(argv[1], cv::IMREAD_COLOR);
    if (bgr.empty()) {
        std::fprintf(stderr, "%s: cannot read the image\n", argv[1]);
        return 1;
    }
    std::vector<uint8_t> pixels(bgr.total() * 4);
    for (size_t i = 0; i < bgr.total(); ++i) {
        pixels[i * 4 + 0] = 0;
        pixels[i * 4 + 1] = bgr.data[i * 3 + 2];
        pixels[i * 4 + 2] = bgr.data[i * 3 + 1];
        pixels[i * 4 + 3] = bgr.data[i * 3 + 0];
    }
    const uint64_t offsets[4] = {0, 1, 2, 3};
    smartCrop::CRGB8Image* image =
        smartCrop::CRGB8Image::Create(bgr.rows, bgr.cols, 4, offsets, pixels.data());
    if (image == nullptr) return 1;
    int status = 0;
    try {
        smartCrop::ImageAnalysis a;
        smartCrop::analyze_image(*image, smartCrop::SmartCropParams(), {}, a,
                                 smartCrop::KeepMaps::Yes);
        if (!a.has_maps()) throw std::runtime_error("the image is too thin to analyse");
        const std::string dir = argv[2];
        const std::pair<const smartCrop::FloatMap*, const char*> maps[] = {
            {&a.saliencyMap, "saliency"},        {&a.edgeMap, "edge"},
            {&a.contrastMap, "contrast"},        {&a.contrastPeakMap, "contrast-peaks"},
            {&a.gradientMap, "gradient"},        {&a.borderMaps[0], "border-top"},
            {&a.borderMaps[1], "border-bottom"}, {&a.borderMaps[2], "border-left"},
            {&a.borderMaps[3], "border-right"}};
        for (const auto& [map, name] : maps) {
            const std::string path = dir + "/" + name + ".png";
            if (!write_map(*map, path)) throw std::runtime_error("cannot write " + path);
            std::printf("%s\n", path.c_str());
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[1], e.what());
        status = 1;
    }
    image->Release();
    return status;
}
