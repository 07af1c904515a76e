// The working image of the feature extraction: single-precision planes of one
// size, with room for summed-area tables of every plane and of every product
// of two planes, so that the mean colour and colour covariance of any union
// of rectangles cost a few table reads.
#ifndef SMARTCROP_ANALYSIS_PLANE_IMAGE_H
#define SMARTCROP_ANALYSIS_PLANE_IMAGE_H

#include <cstdint>
#include <vector>

namespace smartCrop {

// Either a view of foreign memory (wrap_plane, split_channels) or, when made
// by make_image, an owner whose memory is given back by release_image alone:
// copies share the planes and the destructor frees only the vectors.
struct PlaneImage {
    std::vector<float*> planes;
    std::vector<float*> integrals;       // one table per plane, or null
    std::vector<float*> crossIntegrals;  // one table per unordered pair (i <= j), or null
    // The rows and columns of the (width+1) x (height+1) tables that were
    // kept, ascending; the tables hold the values where these cross only.
    std::vector<int32_t> integralRows, integralCols;
    int32_t width = 0;
    int32_t height = 0;
    int32_t channels = 0;
    int32_t planeSize = 0;
    uint8_t integralsReady = 0;
};

// Inclusive bounds and the pixel count, which the creator computes.
struct RegionRect {
    int32_t x0, y0, x1, y1;
    int32_t area;
};

void make_image(PlaneImage& image, int width, int height, int channels);
PlaneImage wrap_plane(int width, int height, float* plane);
PlaneImage wrap_plane_bare(int width, int height, float* plane);
void release_image(PlaneImage& image);

// Releases an owning image when the scope ends, also on the way out of a throw.
class ScopedPlaneImage {
public:
    ScopedPlaneImage() = default;
    ScopedPlaneImage(int width, int height, int channels) {
        make_image(image, width, height, channels);
    }
    ~ScopedPlaneImage() { release_image(image); }
    ScopedPlaneImage(const ScopedPlaneImage&) = delete;
    ScopedPlaneImage& operator=(const ScopedPlaneImage&) = delete;
    PlaneImage& operator*() { return image; }
    PlaneImage* operator->() { return &image; }

private:
    PlaneImage image;
};

// Index of the table of pair (i, i) among the cross tables of K channels.
inline int self_product_index(int channels, int c) {
    return (channels + 1) * c - ((c + 1) * c) / 2;
}

// Lines of a summed-area table: a rectangle over rows y0..y1 and columns
// x0..x1 reads rows y0 and y1 + 1 and columns x0 and x1 + 1.
struct TableLines {
    std::vector<int32_t> rows, cols;
};
// Tables keeping every line, or only where `lines` cross. The values kept
// are the full tables' bit for bit.
void build_region_integrals(PlaneImage& image);
void build_region_integrals(PlaneImage& image, TableLines lines);
std::vector<PlaneImage> split_channels(const PlaneImage& image);
// Pooled mean (K x 1) and population covariance (K x K) over the rects; a
// pixel in two rects counts twice. Throws std::logic_error when a rect needs
// a table row that was not kept.
void region_statistics(const PlaneImage& image, PlaneImage& mean, PlaneImage& covariance,
                       const std::vector<RegionRect>& rects);

void normalize_min_max(float* data, int count);
void normalize_image(PlaneImage& image);
void normalize_rows(PlaneImage& image);
void sobel_x(const float* plane, float* out, int width, int height);
void sobel_y(const float* plane, float* out, int width, int height);
void smooth_planes(const PlaneImage& source, PlaneImage& target, double sigma);

void accumulate_image(const PlaneImage& source, PlaneImage& target);
void multiply_images(const PlaneImage& a, const PlaneImage& b, PlaneImage& out);
// target += alpha * (source as normalize_image would leave it), the same
// bits in one pass; the source is left as it was.
void scale_accumulate_normalised(const PlaneImage& source, PlaneImage& target, float alpha);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_PLANE_IMAGE_H
