#include "analysis/plane_image.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>

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
    image.integralRows.clear();
    image.integralCols.clear();
    image.integralsReady = 0;
}

namespace {

// What one table sums, and where its kept rows go.
struct TableSource {
    const float* a;
    const float* b;  // null: the plane a itself; else the products a * b
    float* table;
};

// T tables side by side: row prefix sums of each table's values, accumulated
// down the columns. Only the kept lines are stored: one running row at the
// kept columns makes them, with the same additions in the same order as a
// whole table. Each row's prefix sums are a chain of dependent additions;
// two rows of T tables, 2T chains interleaved, keep the adder busy.
template <int T, bool kProducts>
void fill_tables(const TableSource* sources, const TableLines& lines, int width, int height) {
    const std::vector<int32_t>& rows = lines.rows;
    const std::vector<int32_t>& cols = lines.cols;
    const size_t C = cols.size();
    std::vector<float> running(static_cast<size_t>(T) * C, 0.0f);
    const float* a[T];
    const float* b[T];
    float* run[T];
    for (int t = 0; t < T; ++t) {
        a[t] = sources[t].a;
        b[t] = sources[t].b;
        run[t] = &running[static_cast<size_t>(t) * C];
    }
    const auto value = [&](int t, size_t i) { return kProducts ? a[t][i] * b[t][i] : a[t][i]; };
    // Where each line's values go, if it is kept.
    std::vector<float*> kept(static_cast<size_t>(T) * (height + 1), nullptr);
    for (size_t r = 0; r < rows.size(); ++r)
        for (int t = 0; t < T; ++t) kept[rows[r] * T + t] = sources[t].table + r * C;
    for (int t = 0; t < T; ++t)
        if (float* out = kept[t]) std::fill_n(out, C, 0.0f);  // line 0: nothing above it
    for (int y = 0; y < height; y += 2) {
        const bool pair = y + 1 < height;
        float upper[T] = {}, lower[T] = {};
        const size_t i0 = static_cast<size_t>(y) * width, i1 = i0 + width;
        float* const* keepUpper = &kept[(y + 1) * T];
        float* const* keepLower = pair ? &kept[(y + 2) * T] : nullptr;
        int x = 0;
        for (size_t k = 0; k < C; ++k) {
            const int end = std::min(cols[k], width);
            if (pair) {
                for (; x < end; ++x) {
                    for (int t = 0; t < T; ++t) {
                        upper[t] += value(t, i0 + x);
                        lower[t] += value(t, i1 + x);
                    }
                }
            } else {
                for (; x < end; ++x)
                    for (int t = 0; t < T; ++t) upper[t] += value(t, i0 + x);
            }
            for (int t = 0; t < T; ++t) {
                // The first row is the prefix itself; below it, prefix + above.
                float r = y == 0 ? upper[t] : upper[t] + run[t][k];
                if (keepUpper[t] != nullptr) keepUpper[t][k] = r;
                if (pair) {
                    r = lower[t] + r;
                    if (keepLower[t] != nullptr) keepLower[t][k] = r;
                }
                run[t][k] = r;
            }
        }
    }
}

// All tables of one kind, three at a time.
template <bool kProducts>
void fill_tables(const std::vector<TableSource>& sources, const TableLines& lines, int width,
                 int height) {
    size_t t = 0;
    for (; t + 3 <= sources.size(); t += 3)
        fill_tables<3, kProducts>(&sources[t], lines, width, height);
    for (; t < sources.size(); ++t) fill_tables<1, kProducts>(&sources[t], lines, width, height);
}

// The position of `line` among the kept ones; throws when it was not kept.
size_t kept_index(const std::vector<int32_t>& kept, int line, const char* what) {
    const auto it = std::lower_bound(kept.begin(), kept.end(), line);
    if (it == kept.end() || *it != line)
        throw std::logic_error(std::string("region_statistics(): table ") + what + " " +
                               std::to_string(line) + " was not kept");
    return static_cast<size_t>(it - kept.begin());
}

float table_value(const PlaneImage& image, const float* table, int row, int col) {
    const size_t r = kept_index(image.integralRows, row, "row");
    const size_t c = kept_index(image.integralCols, col, "column");
    return table[r * image.integralCols.size() + c];
}

float table_sum(const PlaneImage& image, const float* table, const RegionRect& r) {
    return table_value(image, table, r.y0, r.x0) + table_value(image, table, r.y1 + 1, r.x1 + 1) -
           table_value(image, table, r.y0, r.x1 + 1) - table_value(image, table, r.y1 + 1, r.x0);
}

// Sorted, once each, and inside the table (0 to size).
std::vector<int32_t> table_lines(std::vector<int32_t> lines, int size) {
    std::sort(lines.begin(), lines.end());
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    lines.erase(
        std::remove_if(lines.begin(), lines.end(), [&](int32_t v) { return v < 0 || v > size; }),
        lines.end());
    return lines;
}

std::vector<int32_t> every_line(int size) {
    std::vector<int32_t> lines(static_cast<size_t>(size) + 1);
    for (size_t v = 0; v < lines.size(); ++v) lines[v] = static_cast<int32_t>(v);
    return lines;
}

}  // namespace

void build_region_integrals(PlaneImage& image) {
    build_region_integrals(image, {every_line(image.height), every_line(image.width)});
}

void build_region_integrals(PlaneImage& image, TableLines lines) {
    image.integralRows = table_lines(std::move(lines.rows), image.height);
    image.integralCols = table_lines(std::move(lines.cols), image.width);
    image.integralsReady = 1;
    const size_t tableSize = image.integralRows.size() * image.integralCols.size();
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
    std::vector<TableSource> planes, products;
    for (int c = 0; c < K; ++c) planes.push_back({image.planes[c], nullptr, image.integrals[c]});
    int k = 0;
    for (int i = 0; i < K; ++i) {
        for (int j = i; j < K; ++j, ++k)
            products.push_back({image.planes[i], image.planes[j], image.crossIntegrals[k]});
    }
    const TableLines kept{image.integralRows, image.integralCols};
    fill_tables<false>(planes, kept, image.width, image.height);
    fill_tables<true>(products, kept, image.width, image.height);
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
        view.integralRows = image.integralRows;
        view.integralCols = image.integralCols;
        view.integralsReady = image.integralsReady;
        view.channels = 1;
        views.push_back(view);
    }
    return views;
}

void region_statistics(const PlaneImage& image, PlaneImage& mean, PlaneImage& covariance,
                       const std::vector<RegionRect>& rects) {
    const int K = image.channels;
    float area = 0.0f;
    for (const RegionRect& r : rects) area += static_cast<float>(r.area);
    float* m = mean.planes[0];
    for (int c = 0; c < K; ++c) {
        float s = 0.0f;
        for (const RegionRect& r : rects) s += table_sum(image, image.integrals[c], r);
        m[c] = s / area;
    }
    float* cov = covariance.planes[0];
    int k = 0;
    for (int i = 0; i < K; ++i) {
        for (int j = i; j < K; ++j, ++k) {
            float s = 0.0f;
            for (const RegionRect& r : rects) s += table_sum(image, image.crossIntegrals[k], r);
            cov[i * K + j] = s / area - m[j] * m[i];
        }
    }
    for (int i = 1; i < K; ++i) {
        for (int j = 0; j < i; ++j) cov[i * K + j] = cov[j * K + i];
    }
}

namespace {

// The shift and scale of a min-max normalisation (count > 0).
struct MinMaxScaling {
    float low, scale;
};

MinMaxScaling min_max_scaling(const float* data, int count) {
    const auto [high, low] = magnitude_extremes(data, count);
    // The range between the two values as they are after the shift.
    const float range = (high - low) - (low - low);
    return {low, 1.0f / std::max(range, 1e-5f)};
}

}  // namespace

void normalize_min_max(float* data, int count) {
    if (count <= 0) return;
    const auto [low, scale] = min_max_scaling(data, count);
    // Shift and scale in one pass, each rounded as in two. A zero scale
    // (an infinite range) clears, as BLAS's scaling by zero does.
    if (scale == 0.0f) {
        std::fill(data, data + count, 0.0f);
        return;
    }
    for (int i = 0; i < count; ++i) data[i] = (data[i] - low) * scale;
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

void scale_accumulate_normalised(const PlaneImage& source, PlaneImage& target, float alpha) {
    const int n = source.planeSize;
    if (n <= 0) return;
    const auto [low, scale] = min_max_scaling(source.planes[0], n);
    const float* x = source.planes[0];
    float* y = target.planes[0];
    if (scale == 0.0f) {
        for (int i = 0; i < n; ++i) y[i] = y[i] + alpha * 0.0f;
        return;
    }
    for (int i = 0; i < n; ++i) y[i] = y[i] + alpha * ((x[i] - low) * scale);
}

}  // namespace smartCrop
