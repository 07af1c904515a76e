// The plain maps of the analysis and the summed-area tables built from them.
#ifndef SMARTCROP_ANALYSIS_ANALYSIS_MAPS_H
#define SMARTCROP_ANALYSIS_ANALYSIS_MAPS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace smartCrop {

// Storage whose elements start uninitialised: every map is written in full
// before it is read, and clearing tens of megabytes per image costs time.
template <class T>
struct UninitialisedAllocator : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = UninitialisedAllocator<U>;
    };
    UninitialisedAllocator() = default;
    template <class U>
    UninitialisedAllocator(const UninitialisedAllocator<U>&) {}
    template <class U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

// Row-major, no row padding. Resizing does not clear the elements.
template <class T>
struct Map2D {
    int rows = 0;
    int cols = 0;
    std::vector<T, UninitialisedAllocator<T>> data;

    void resize(int newRows, int newCols) {
        rows = newRows;
        cols = newCols;
        data.resize(static_cast<size_t>(newRows) * newCols);
    }
    size_t size() const { return data.size(); }
    bool empty() const { return data.empty(); }
    T& at(int r, int c) { return data[static_cast<size_t>(r) * cols + c]; }
    const T& at(int r, int c) const { return data[static_cast<size_t>(r) * cols + c]; }
};

using FloatMap = Map2D<float>;
using DoubleMap = Map2D<double>;  // a summed-area table of a map of its size

struct ByteImage {
    int width = 0;
    int height = 0;
    int bytesPerPixel = 0;
    std::vector<uint8_t, UninitialisedAllocator<uint8_t>> data;

    void resize(int w, int h, int bpp) {
        width = w;
        height = h;
        bytesPerPixel = bpp;
        data.resize(static_cast<size_t>(w) * h * bpp);
    }
};

// Zeroes elements at or below `fraction` of the map's largest magnitude.
void threshold_relative(FloatMap& map, float fraction);
// Weights the columns in `bands` vertical bands, 1 in the centre falling to 0.2.
void weight_centre_bands(FloatMap& map, int bands);
void integral_image(const FloatMap& map, DoubleMap& table);
// The same for several maps of one size at once: each table is computed with
// exactly the arithmetic of integral_image, but the independent running sums
// interleave instead of waiting on one another.
void integral_images(const FloatMap* const* maps, DoubleMap* const* tables, int count);
// Sum over rows r0..r1 and columns c0..c1 inclusive; bounds are the caller's.
// Inline: the crop engine calls it over a thousand times per candidate.
inline double region_sum(const DoubleMap& t, int r0, int r1, int c0, int c1) {
    const double a = t.at(r1, c1);
    const double b = r0 >= 1 ? t.at(r0 - 1, c1) : 0.0;
    const double c = c0 >= 1 ? t.at(r1, c0 - 1) : 0.0;
    const double d = (r0 >= 1 && c0 >= 1) ? t.at(r0 - 1, c0 - 1) : 0.0;
    return a - b - c + d;
}

inline double region_mean(const DoubleMap& t, int r0, int r1, int c0, int c1) {
    return region_sum(t, r0, r1, c0, c1) / ((r1 - r0 + 1) * (c1 - c0 + 1));
}
// Bilinear resize between two four-byte-a-pixel buffers.
void resize_pixels(const uint8_t* source, int sourceWidth, int sourceHeight, uint8_t* target,
                   int targetWidth, int targetHeight);
void erode_map(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight);
void dilate_map(const FloatMap& in, FloatMap& out, int kernelWidth, int kernelHeight);

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_ANALYSIS_MAPS_H
