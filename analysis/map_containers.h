// The plain containers of the analysis: maps of floats or doubles, and images of bytes.
#ifndef SMARTCROP_ANALYSIS_MAP_CONTAINERS_H
#define SMARTCROP_ANALYSIS_MAP_CONTAINERS_H

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

// A rectangle of a map: rows r0..r1, columns c0..c1, inclusive. The one
// rectangle inside the crop engine; crops arrive as the public records and
// are turned into it by ImageAnalysis::work_rect.
struct WorkRect {
    int r0, c0, r1, c1;
};

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

}  // namespace smartCrop

#endif  // SMARTCROP_ANALYSIS_MAP_CONTAINERS_H
