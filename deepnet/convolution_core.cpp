#include "deepnet/convolution_core.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "kernels/cpu_features.h"

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

// The blocks of positions p .. p + count - 1 (count at most Lanes),
// interleaved: panel[i * Lanes + k] is what the gather would put at place i
// of the block of position p + k, 0 outside the input and in lanes beyond
// count. Built straight from the input, so no image-sized column buffer is
// filled, read back and transposed.
template <uint64_t Lanes>
inline __attribute__((always_inline)) void gather_panel(uint64_t width, uint64_t height,
                                                        uint64_t channels, const window_geometry& g,
                                                        uint64_t out0, uint64_t p, uint64_t count,
                                                        const float* x, float* panel) {
    const int64_t W = static_cast<int64_t>(width), H = static_cast<int64_t>(height);
    int64_t row[Lanes], col[Lanes];
    uint64_t o1 = p / out0, o0 = p % out0;
    for (uint64_t k = 0; k < Lanes; ++k) {
        row[k] = static_cast<int64_t>(o1 * g.stride1) - static_cast<int64_t>(g.pad1_low);
        col[k] = static_cast<int64_t>(o0 * g.stride0) - static_cast<int64_t>(g.pad0_low);
        if (k + 1 < count && ++o0 == out0) {
            o0 = 0;
            ++o1;
        }
    }
    // Neighbours on one output row with stride 1 read neighbouring input
    // values: one copy when all lie inside.
    const bool run = count == Lanes && row[0] == row[Lanes - 1] && g.stride0 == 1;
    float* dst = panel;
    for (uint64_t c = 0; c < channels; ++c) {
        const float* plane = x + c * width * height;
        for (int64_t a1 = 0; a1 < static_cast<int64_t>(g.kernel1); ++a1) {
            for (int64_t a0 = 0; a0 < static_cast<int64_t>(g.kernel0); ++a0, dst += Lanes) {
                const int64_t r0 = row[0] + a1, c0 = col[0] + a0;
                if (run && r0 >= 0 && r0 < H && c0 >= 0 && c0 + static_cast<int64_t>(Lanes) <= W) {
                    std::memcpy(dst, plane + r0 * W + c0, Lanes * sizeof(float));
                    continue;
                }
                for (uint64_t k = 0; k < Lanes; ++k) {
                    const int64_t r = row[k] + a1, cc = col[k] + a0;
                    const bool inside = k < count && r >= 0 && r < H && cc >= 0 && cc < W;
                    dst[k] = inside ? plane[r * W + cc] : 0.0f;
                }
            }
        }
    }
}

// Eight positions, one lane each. A build for a processor with narrower
// vectors splits one into several of its own.
typedef float lanes8 __attribute__((vector_size(8 * sizeof(float))));

// Into a reference: a vector returned by value has no fixed ABI across the
// builds of the kernel.
inline __attribute__((always_inline)) void load8(lanes8& v, const float* p) {
    std::memcpy(&v, p, sizeof v);
}

// a = dot product, then a = a + y, for each valid lane.
inline __attribute__((always_inline)) void store8(const lanes8& a, uint64_t count, float* out) {
    for (uint64_t k = 0; k < count && k < 8; ++k) out[k] = a[k] + out[k];
}

// Every output's dot products with a panel of Lanes positions: each
// position's sum runs in ascending order in its own lane, four outputs at
// once, so that chains of additions overlap instead of waiting on each
// other. Lanes do not mix and a product is rounded before it is added, so
// every sum is the scalar one at any vector width.
template <uint64_t Lanes>
inline __attribute__((always_inline)) void panel_products(const float* src, uint64_t step,
                                                          uint64_t L, const float* weights,
                                                          uint64_t outputs, uint64_t count,
                                                          float* y, uint64_t positions) {
    constexpr uint64_t V = Lanes / 8;  // vectors of eight lanes per output
    auto finish = [&](const lanes8(&a)[V], float* out) {
        for (uint64_t v = 0; v < V && v * 8 < count; ++v) store8(a[v], count - v * 8, out + v * 8);
    };
    uint64_t o = 0;
    for (; o + 4 <= outputs; o += 4) {
        const float* w0 = weights + o * L;
        const float *w1 = w0 + L, *w2 = w1 + L, *w3 = w2 + L;
        lanes8 a0[V] = {}, a1[V] = {}, a2[V] = {}, a3[V] = {};
        for (uint64_t i = 0; i < L; ++i) {
            for (uint64_t v = 0; v < V; ++v) {
                lanes8 c;
                load8(c, src + i * step + v * 8);
                a0[v] += w0[i] * c;
                a1[v] += w1[i] * c;
                a2[v] += w2[i] * c;
                a3[v] += w3[i] * c;
            }
        }
        finish(a0, y + o * positions);
        finish(a1, y + (o + 1) * positions);
        finish(a2, y + (o + 2) * positions);
        finish(a3, y + (o + 3) * positions);
    }
    for (; o < outputs; ++o) {
        const float* w = weights + o * L;
        lanes8 a[V] = {};
        for (uint64_t i = 0; i < L; ++i) {
            for (uint64_t v = 0; v < V; ++v) {
                lanes8 c;
                load8(c, src + i * step + v * 8);
                a[v] += w[i] * c;
            }
        }
        finish(a, y + o * positions);
    }
}

// One group's convolution, Lanes positions at a time.
template <uint64_t Lanes>
inline __attribute__((always_inline)) void convolve_lanes(uint64_t width, uint64_t height,
                                                          uint64_t channels, uint64_t outputs,
                                                          const window_geometry& g, uint64_t out0,
                                                          uint64_t out1, const float* x,
                                                          const float* weights, float* y) {
    const uint64_t L = g.kernel0 * g.kernel1 * channels;
    const uint64_t positions = out0 * out1;
    // A 1 x 1 kernel with stride 1 and no padding reads each block straight
    // from the input planes.
    const bool pointwise = g.kernel0 == 1 && g.kernel1 == 1 && g.stride0 == 1 && g.stride1 == 1 &&
                           g.pad0_low == 0 && g.pad1_low == 0 && out0 == width && out1 == height;
    std::vector<float> panel(L * Lanes);
    for (uint64_t p = 0; p < positions; p += Lanes) {
        const uint64_t count = std::min(Lanes, positions - p);
        const float* src = x + p;
        uint64_t step = positions;
        if (!pointwise || count < Lanes) {
            gather_panel<Lanes>(width, height, channels, g, out0, p, count, x, panel.data());
            src = panel.data();
            step = Lanes;
        }
        panel_products<Lanes>(src, step, L, weights, outputs, count, y + p, positions);
    }
}

using Convolution = void (*)(uint64_t, uint64_t, uint64_t, uint64_t, const window_geometry&,
                             uint64_t, uint64_t, const float*, const float*, float*);

// Eight lanes: two vectors of four on any x86-64, eight accumulators.
void convolve_portable(uint64_t width, uint64_t height, uint64_t channels, uint64_t outputs,
                       const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                       const float* weights, float* y) {
    convolve_lanes<8>(width, height, channels, outputs, g, out0, out1, x, weights, y);
}

#if defined(__x86_64__) && defined(__GNUC__)
// Sixteen lanes in two AVX2 vectors, again eight accumulators.
__attribute__((target("avx2"))) void convolve_avx2(uint64_t width, uint64_t height,
                                                   uint64_t channels, uint64_t outputs,
                                                   const window_geometry& g, uint64_t out0,
                                                   uint64_t out1, const float* x,
                                                   const float* weights, float* y) {
    convolve_lanes<16>(width, height, channels, outputs, g, out0, out1, x, weights, y);
}
#endif

Convolution chosen_convolution() {
#if defined(__x86_64__) && defined(__GNUC__)
    if (smartCrop::kernels::vector_level() >= smartCrop::kernels::VectorLevel::Avx2)
        return convolve_avx2;
#endif
    return convolve_portable;
}

}  // namespace

void convolve_group(uint64_t width, uint64_t height, uint64_t channels, uint64_t outputs,
                    const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                    const float* weights, float* y) {
    chosen_convolution()(width, height, channels, outputs, g, out0, out1, x, weights, y);
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
