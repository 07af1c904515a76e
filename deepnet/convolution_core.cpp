#include "convolution_core.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace deepnet {

void im2col(uint64_t width, uint64_t height, const window_geometry& g, uint64_t out0, uint64_t out1,
            const float* channel, uint64_t rowStride, float* dest, uint64_t blockStride) {
    const int64_t W = static_cast<int64_t>(width), H = static_cast<int64_t>(height);
    const int64_t k0 = static_cast<int64_t>(g.kernel0), k1 = static_cast<int64_t>(g.kernel1);
    for (uint64_t o1 = 0; o1 < out1; ++o1) {
        const int64_t r = static_cast<int64_t>(o1 * g.stride1) - static_cast<int64_t>(g.pad1_low);
        for (uint64_t o0 = 0; o0 < out0; ++o0, dest += blockStride) {
            const int64_t c =
                static_cast<int64_t>(o0 * g.stride0) - static_cast<int64_t>(g.pad0_low);
            const int64_t rowFirst = std::max<int64_t>(r, 0), rowLast = std::min(r + k1, H);
            const int64_t colFirst = std::max<int64_t>(c, 0), colLast = std::min(c + k0, W);
            if (rowFirst >= rowLast || colFirst >= colLast) continue;  // wholly outside
            for (int64_t y = rowFirst; y < rowLast; ++y) {
                const float* src = channel + y * static_cast<int64_t>(rowStride) + colFirst;
                std::copy(src, src + (colLast - colFirst), dest + (y - r) * k0 + (colFirst - c));
            }
        }
    }
}

void convolve_group(uint64_t width, uint64_t height, uint64_t channels, uint64_t outputs,
                    const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                    const float* weights, float* y, float* scratch) {
    const uint64_t area = g.kernel0 * g.kernel1;
    const uint64_t L = area * channels;
    const uint64_t positions = out0 * out1;
    std::fill(scratch, scratch + positions * L, 0.0f);
    for (uint64_t c = 0; c < channels; ++c) {
        im2col(width, height, g, out0, out1, x + c * width * height, width, scratch + c * area, L);
    }
    // Each position's dot product runs in ascending order in its own
    // accumulator; eight positions run side by side so that their chains of
    // additions overlap instead of waiting on each other.
    // The eight positions' columns are interleaved into a panel first, so
    // that one step of all eight sums is a pair of vector operations.
    constexpr uint64_t kLanes = 8;
    std::vector<float> panel(L * kLanes);
    const uint64_t blocked = positions - positions % kLanes;
    for (uint64_t p = 0; p < blocked; p += kLanes) {
        const float* b = scratch + p * L;
        for (uint64_t i = 0; i < L; ++i) {
            for (uint64_t k = 0; k < kLanes; ++k) panel[i * kLanes + k] = b[k * L + i];
        }
        for (uint64_t o = 0; o < outputs; ++o) {
            const float* w = weights + o * L;
            float* out = y + o * positions + p;
            // Lane k holds position p + k: element-wise operations, no
            // reordering; two 4-wide halves stay in registers.
            typedef float lanes __attribute__((vector_size(4 * sizeof(float))));
            lanes low = {}, high = {};
            for (uint64_t i = 0; i < L; ++i) {
                lanes c0, c1;
                std::memcpy(&c0, &panel[i * kLanes], sizeof c0);
                std::memcpy(&c1, &panel[i * kLanes + 4], sizeof c1);
                low += w[i] * c0;
                high += w[i] * c1;
            }
            for (uint64_t k = 0; k < 4; ++k) {
                out[k] = low[k] + out[k];
                out[k + 4] = high[k] + out[k + 4];
            }
        }
    }
    for (uint64_t o = 0; o < outputs; ++o) {
        const float* w = weights + o * L;
        float* out = y + o * positions;
        uint64_t p = blocked;
        for (; p < positions; ++p) {
            const float* b = scratch + p * L;
            float a = 0.0f;
            for (uint64_t i = 0; i < L; ++i) a += w[i] * b[i];
            a = a + out[p];
            out[p] = a;
        }
    }
}

void col2im(uint64_t in0, uint64_t in1, const window_geometry& g, uint64_t out0, uint64_t out1,
            const float* blocks, uint64_t blockStride, float* plane, uint64_t rowStride) {
    if (g.pad_mode != 0)
        throw std::runtime_error("compute_correlate_input_size: only support Caffe padding mode");
    if (out0 > rowStride) throw std::runtime_error("col2im: img stride not enought");
    std::fill(plane, plane + out1 * rowStride, 0.0f);
    const int64_t k0 = static_cast<int64_t>(g.kernel0);
    for (int64_t e = 0; e < k0 * static_cast<int64_t>(g.kernel1); ++e) {
        for (uint64_t i1 = 0; i1 < in1; ++i1) {
            const int64_t r = static_cast<int32_t>(i1 * g.stride1 + e / k0 - g.pad1_low);
            for (uint64_t i0 = 0; i0 < in0; ++i0) {
                const int64_t c = static_cast<int32_t>(i0 * g.stride0 + e % k0 - g.pad0_low);
                if (r < 0 || c < 0 || r >= static_cast<int64_t>(out1) ||
                    c >= static_cast<int64_t>(out0))
                    continue;
                plane[r * static_cast<int64_t>(rowStride) + c] +=
                    blocks[(i1 * in0 + i0) * blockStride + e];
            }
        }
    }
}

void deconvolve_group(uint64_t in0, uint64_t in1, uint64_t channels, uint64_t outputs,
                      const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                      const float* weights, float* y, float* scratch) {
    if (g.pad_mode != 0)
        throw std::runtime_error("compute_correlate_input_size: only support Caffe padding mode");
    const uint64_t area = g.kernel0 * g.kernel1;
    const uint64_t L = area * outputs;
    const uint64_t positions = in0 * in1;
    std::fill(scratch, scratch + positions * L, 0.0f);
    std::vector<float> product(L);  // the one allocation of a forward pass
    for (uint64_t p = 0; p < positions; ++p) {
        float* block = scratch + p * L;
        for (uint64_t c = 0; c < channels; ++c) {
            const float v = x[c * positions + p];
            const float* w = weights + c * L;
            for (uint64_t i = 0; i < L; ++i) product[i] = w[i] * v;
            for (uint64_t i = 0; i < L; ++i) block[i] += product[i];
        }
    }
    for (uint64_t o = 0; o < outputs; ++o) {
        col2im(in0, in1, g, out0, out1, scratch + o * area, L, y + o * out0 * out1, out0);
    }
}

}  // namespace deepnet
