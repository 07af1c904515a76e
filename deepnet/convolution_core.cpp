#include "deepnet/convolution_core.h"

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

namespace {

constexpr uint64_t kLanes = 8;
typedef float lanes __attribute__((vector_size(4 * sizeof(float))));

// The blocks of positions p .. p + count - 1 (count at most 8), interleaved:
// panel[i * 8 + k] is what the gather would put at place i of the block of
// position p + k, 0 outside the input and in lanes beyond count. Built
// straight from the input, so no image-sized column buffer is filled, read
// back and transposed.
void gather_panel(uint64_t width, uint64_t height, uint64_t channels, const window_geometry& g,
                  uint64_t out0, uint64_t p, uint64_t count, const float* x, float* panel) {
    const int64_t W = static_cast<int64_t>(width), H = static_cast<int64_t>(height);
    int64_t row[kLanes], col[kLanes];
    uint64_t o1 = p / out0, o0 = p % out0;
    for (uint64_t k = 0; k < kLanes; ++k) {
        row[k] = static_cast<int64_t>(o1 * g.stride1) - static_cast<int64_t>(g.pad1_low);
        col[k] = static_cast<int64_t>(o0 * g.stride0) - static_cast<int64_t>(g.pad0_low);
        if (k + 1 < count && ++o0 == out0) {
            o0 = 0;
            ++o1;
        }
    }
    // Eight neighbours on one output row with stride 1 read eight
    // neighbouring input values: one copy when all lie inside.
    const bool run = count == kLanes && row[0] == row[kLanes - 1] && g.stride0 == 1;
    float* dst = panel;
    for (uint64_t c = 0; c < channels; ++c) {
        const float* plane = x + c * width * height;
        for (int64_t a1 = 0; a1 < static_cast<int64_t>(g.kernel1); ++a1) {
            for (int64_t a0 = 0; a0 < static_cast<int64_t>(g.kernel0); ++a0, dst += kLanes) {
                const int64_t r0 = row[0] + a1, c0 = col[0] + a0;
                if (run && r0 >= 0 && r0 < H && c0 >= 0 && c0 + static_cast<int64_t>(kLanes) <= W) {
                    std::memcpy(dst, plane + r0 * W + c0, kLanes * sizeof(float));
                    continue;
                }
                for (uint64_t k = 0; k < kLanes; ++k) {
                    const int64_t r = row[k] + a1, cc = col[k] + a0;
                    const bool inside = k < count && r >= 0 && r < H && cc >= 0 && cc < W;
                    dst[k] = inside ? plane[r * W + cc] : 0.0f;
                }
            }
        }
    }
}

lanes load(const float* p) {
    lanes v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// a = dot product, then a = a + y, for each valid lane.
void store(const lanes& low, const lanes& high, uint64_t count, float* out) {
    for (uint64_t k = 0; k < count; ++k) {
        const float a = k < 4 ? low[k] : high[k - 4];
        out[k] = a + out[k];
    }
}

}  // namespace

void convolve_group(uint64_t width, uint64_t height, uint64_t channels, uint64_t outputs,
                    const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                    const float* weights, float* y) {
    const uint64_t L = g.kernel0 * g.kernel1 * channels;
    const uint64_t positions = out0 * out1;
    // A 1 x 1 kernel with stride 1 and no padding reads each block straight
    // from the input planes, eight neighbouring positions at a time.
    const bool pointwise = g.kernel0 == 1 && g.kernel1 == 1 && g.stride0 == 1 && g.stride1 == 1 &&
                           g.pad0_low == 0 && g.pad1_low == 0 && out0 == width && out1 == height;
    // Each position's dot product runs in ascending order in its own
    // accumulator, one vector lane per position: eight positions side by
    // side, and four outputs at once, so that eight chains of additions
    // overlap instead of waiting on each other. Lanes do not mix, so every
    // sum is the scalar one.
    std::vector<float> panel(L * kLanes);
    for (uint64_t p = 0; p < positions; p += kLanes) {
        const uint64_t count = std::min(kLanes, positions - p);
        const float* src = x + p;
        uint64_t step = positions;
        if (!pointwise || count < kLanes) {
            gather_panel(width, height, channels, g, out0, p, count, x, panel.data());
            src = panel.data();
            step = kLanes;
        }
        uint64_t o = 0;
        for (; o + 4 <= outputs; o += 4) {
            const float* w0 = weights + o * L;
            const float *w1 = w0 + L, *w2 = w1 + L, *w3 = w2 + L;
            lanes l0 = {}, h0 = {}, l1 = {}, h1 = {}, l2 = {}, h2 = {}, l3 = {}, h3 = {};
            for (uint64_t i = 0; i < L; ++i) {
                const lanes c0 = load(src + i * step), c1 = load(src + i * step + 4);
                l0 += w0[i] * c0;
                h0 += w0[i] * c1;
                l1 += w1[i] * c0;
                h1 += w1[i] * c1;
                l2 += w2[i] * c0;
                h2 += w2[i] * c1;
                l3 += w3[i] * c0;
                h3 += w3[i] * c1;
            }
            store(l0, h0, count, y + o * positions + p);
            store(l1, h1, count, y + (o + 1) * positions + p);
            store(l2, h2, count, y + (o + 2) * positions + p);
            store(l3, h3, count, y + (o + 3) * positions + p);
        }
        for (; o < outputs; ++o) {
            const float* w = weights + o * L;
            lanes low = {}, high = {};
            for (uint64_t i = 0; i < L; ++i) {
                low += w[i] * load(src + i * step);
                high += w[i] * load(src + i * step + 4);
            }
            store(low, high, count, y + o * positions + p);
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
