#include "analysis/plane_image.h"

#include <cblas.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "analysis/vector_math.h"

namespace smartCrop {

void make_image(PlaneImage& image, int width, int height, int channels) {
    release_image(image);
    image.width = width;
    image.height = height;
    image.channels = channels;
    image.planeSize = width * height;
    image.planes.reserve(channels);
    for (int c = 0; c < channels; ++c) {
        image.planes.push_back(nullptr);
        image.planes.back() = aligned_floats(static_cast<size_t>(image.planeSize));
        image.integrals.push_back(nullptr);
    }
    image.crossIntegrals.assign(static_cast<size_t>(channels) * (channels + 1) / 2, nullptr);
}

PlaneImage wrap_plane(int width, int height, float* plane) {
    PlaneImage image = wrap_plane_bare(width, height, plane);
    image.integrals.push_back(nullptr);
    image.crossIntegrals.push_back(nullptr);
    return image;
}

PlaneImage wrap_plane_bare(int width, int height, float* plane) {
    PlaneImage image;
    image.planes.push_back(plane);
    image.width = width;
    image.height = height;
    image.channels = 1;
    image.planeSize = width * height;
    return image;
}

void release_image(PlaneImage& image) {
    for (float* p : image.planes) aligned_free(p);
    for (float* p : image.integrals) aligned_free(p);
    for (float* p : image.crossIntegrals) aligned_free(p);
    image.planes.clear();
    image.integrals.clear();
    image.crossIntegrals.clear();
    image.integralsReady = 0;
}

namespace {

// Row prefix sums of `value(i)` into rows 1..h, then column prefix sums.
template <class Value>
void fill_table(float* table, int width, int height, Value value) {
    const int stride = width + 1;
    std::fill(table, table + stride, 0.0f);
    for (int y = 0; y < height; ++y) {
        float* row = table + static_cast<size_t>(y + 1) * stride;
        row[0] = 0.0f;
        float sum = 0.0f;
        for (int x = 0; x < width; ++x) {
            sum += value(y * width + x);
            row[x + 1] = sum;
        }
    }
    for (int y = 2; y <= height; ++y) {
        float* row = table + static_cast<size_t>(y) * stride;
        const float* above = row - stride;
        for (int x = 1; x <= width; ++x) row[x] += above[x];
    }
}

float table_sum(const float* table, int stride, const RegionRect& r) {
    return table[r.y0 * stride + r.x0] + table[(r.y1 + 1) * stride + r.x1 + 1] -
           table[r.y0 * stride + r.x1 + 1] - table[(r.y1 + 1) * stride + r.x0];
}

}  // namespace

void build_region_integrals(PlaneImage& image) {
    image.integralsReady = 1;
    const size_t tableSize = static_cast<size_t>(image.width + 1) * (image.height + 1);
    for (float*& t : image.integrals) {
        aligned_free(t);
        t = nullptr;
        t = aligned_floats(tableSize);
    }
    for (float*& t : image.crossIntegrals) {
        aligned_free(t);
        t = nullptr;
        t = aligned_floats(tableSize);
    }
    const int K = image.channels;
    for (int c = 0; c < K; ++c) {
        const float* p = image.planes[c];
        fill_table(image.integrals[c], image.width, image.height, [p](int i) { return p[i]; });
    }
    int k = 0;
    for (int i = 0; i < K; ++i) {
        for (int j = i; j < K; ++j, ++k) {
            const float* a = image.planes[i];
            const float* b = image.planes[j];
            fill_table(image.crossIntegrals[k], image.width, image.height,
                       [a, b](int n) { return a[n] * b[n]; });
        }
    }
}

std::vector<PlaneImage> split_channels(const PlaneImage& image) {
    std::vector<PlaneImage> views;
    for (int c = 0; c < image.channels; ++c) {
        PlaneImage view;
        view.planes = {image.planes[c]};
        view.integrals = {image.integrals[c]};
        view.crossIntegrals = {image.crossIntegrals[self_product_index(image.channels, c)]};
        view.width = image.width;
        view.height = image.height;
        view.planeSize = image.planeSize;
        view.integralsReady = image.integralsReady;
        view.channels = 1;
        views.push_back(view);
    }
    return views;
}

void region_statistics(const PlaneImage& image, PlaneImage& mean, PlaneImage& covariance,
                       const std::vector<RegionRect>& rects) {
    const int K = image.channels;
    const int stride = image.width + 1;
    float area = 0.0f;
    for (const RegionRect& r : rects) area += static_cast<float>(r.area);
    float* m = mean.planes[0];
    for (int c = 0; c < K; ++c) {
        float s = 0.0f;
        for (const RegionRect& r : rects) s += table_sum(image.integrals[c], stride, r);
        m[c] = s / area;
    }
    float* cov = covariance.planes[0];
    int k = 0;
    for (int i = 0; i < K; ++i) {
        for (int j = i; j < K; ++j, ++k) {
            float s = 0.0f;
            for (const RegionRect& r : rects) s += table_sum(image.crossIntegrals[k], stride, r);
            cov[i * K + j] = s / area - m[j] * m[i];
        }
    }
    for (int i = 1; i < K; ++i) {
        for (int j = 0; j < i; ++j) cov[i * K + j] = cov[j * K + i];
    }
}

void normalize_min_max(float* data, int count) {
    if (count <= 0) return;
    const size_t imax = cblas_isamax(count, data, 1);
    const size_t imin = cblas_isamin(count, data, 1);
    const float low = data[imin];
    for (int i = 0; i < count; ++i) data[i] -= low;
    const float range = data[imax] - data[imin];
    cblas_sscal(count, 1.0f / std::max(range, 1e-5f), data, 1);
}

void normalize_image(PlaneImage& image) {
    normalize_min_max(image.planes[0], image.planeSize);
}

void normalize_rows(PlaneImage& image) {
    const float floor = static_cast<float>(image.width) * 0.01f;
    float* plane = image.planes[0];
    for (int y = 0; y < image.height; ++y) {
        float* row = plane + static_cast<size_t>(y) * image.width;
        float s = 0.0f;
        for (int x = 0; x < image.width; ++x) {
            if (row[x] > 0.05f) s += row[x];
        }
        const float divisor = s + floor;
        for (int x = 0; x < image.width; ++x) row[x] /= divisor;
    }
}

namespace {

void sobel(const float* plane, float* out, int width, int height, int dx, int dy) {
    const cv::Mat in(height, width, CV_32F, const_cast<float*>(plane));
    cv::Mat result(height, width, CV_32F, out);
    cv::Sobel(in, result, CV_32F, dx, dy, 3, 1.0, 0.0, cv::BORDER_REPLICATE);
}

}  // namespace

void sobel_x(const float* plane, float* out, int width, int height) {
    sobel(plane, out, width, height, 1, 0);
}

void sobel_y(const float* plane, float* out, int width, int height) {
    sobel(plane, out, width, height, 0, 1);
}

void smooth_planes(const PlaneImage& source, PlaneImage& target, double sigma) {
    for (int c = 0; c < source.channels; ++c) {
        const cv::Mat in(source.height, source.width, CV_32F, source.planes[c]);
        cv::Mat out(target.height, target.width, CV_32F, target.planes[c]);
        cv::GaussianBlur(in, out, cv::Size(7, 7), sigma, 0, cv::BORDER_REPLICATE);
    }
}

void accumulate_image(const PlaneImage& source, PlaneImage& target) {
    vs_add(target.planeSize, source.planes[0], target.planes[0], target.planes[0]);
}

void multiply_images(const PlaneImage& a, const PlaneImage& b, PlaneImage& out) {
    vs_mul(a.planeSize, a.planes[0], b.planes[0], out.planes[0]);
}

void scale_accumulate_image(const PlaneImage& source, PlaneImage& target, float alpha) {
    cblas_saxpy(source.planeSize, alpha, source.planes[0], 1, target.planes[0], 1);
}

}  // namespace smartCrop
