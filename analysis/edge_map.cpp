#include "analysis/edge_map.h"

#include <algorithm>
#include <memory>
#include <opencv2/imgproc.hpp>

#include "analysis/vector_math.h"

namespace smartCrop {

void resize_planes(const PlaneImage& source, PlaneImage& target) {
    for (int c = 0; c < source.channels; ++c) {
        const cv::Mat in(source.height, source.width, CV_32F, source.planes[c]);
        cv::Mat out(target.height, target.width, CV_32F, target.planes[c]);
        cv::resize(in, out, cv::Size(target.width, target.height), 0, 0, cv::INTER_LINEAR);
    }
}

std::vector<LevelSize> edge_level_sizes(int width, int height, const std::vector<float>& scales) {
    std::vector<LevelSize> sizes;
    for (float s : scales) {
        const int w = static_cast<int>(s * static_cast<float>(width));
        const int h = static_cast<int>(s * static_cast<float>(height));
        if (w >= 1 && h >= 1) sizes.push_back({w, h});
    }
    return sizes;
}

namespace {

struct AlignedDeleter {
    void operator()(float* p) const { aligned_free(p); }
};
using AlignedBuffer = std::unique_ptr<float, AlignedDeleter>;

// |dx| + |dy| of one plane of w x h into `out`, or added to it.
void gradient_l1(const float* plane, float* out, float* dx, float* dy, int w, int h,
                 bool accumulate) {
    sobel_x(plane, dx, w, h);
    sobel_y(plane, dy, w, h);
    if (accumulate) {
        vs_add_l1(w * h, dx, dy, out);
    } else {
        vs_l1(w * h, dx, dy, out);
    }
}

}  // namespace

void multi_scale_edge_map(const PlaneImage& image, PlaneImage& out,
                          const std::vector<float>& scales, bool normaliseResult,
                          bool normaliseRows) {
    const int W = image.width, H = image.height, K = image.channels;
    float* result = out.planes[0];
    std::fill(result, result + out.planeSize, 0.0f);
    AlignedBuffer energy(aligned_floats(static_cast<size_t>(W) * H));
    AlignedBuffer scratch(aligned_floats(static_cast<size_t>(W) * H));

    std::vector<std::unique_ptr<ScopedPlaneImage>> levels;
    for (const LevelSize& size : edge_level_sizes(W, H, scales)) {
        levels.push_back(std::make_unique<ScopedPlaneImage>(size.width, size.height, K));
        resize_planes(image, **levels.back());  // always from the full image
    }

    AlignedBuffer dy(aligned_floats(static_cast<size_t>(W) * H));
    for (const auto& level : levels) {
        const int w = (*level)->width, h = (*level)->height, n = w * h;
        for (int c = 0; c < K; ++c)
            gradient_l1((*level)->planes[c], energy.get(), scratch.get(), dy.get(), w, h, c > 0);
        normalize_min_max(energy.get(), n);
        PlaneImage small = wrap_plane(w, h, energy.get());
        if (normaliseRows) normalize_rows(small);
        PlaneImage smoothed = wrap_plane(w, h, scratch.get());
        smooth_planes(small, smoothed, 0.5);
        PlaneImage full = wrap_plane(W, H, energy.get());
        resize_planes(smoothed, full);
        // Over the level's n elements only, a stretch at the top of the
        // enlarged map: that is how the map is defined.
        normalize_min_max(energy.get(), n);
        vs_add(W * H, energy.get(), result, result);
    }
    if (normaliseResult) normalize_image(out);
}

}  // namespace smartCrop
