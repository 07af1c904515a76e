// Patches of the input gathered into column blocks (and scattered back), so
// that the layers with a kernel are plain products of weights and columns.
#ifndef SMARTCROP_DEEPNET_CONVOLUTION_CORE_H
#define SMARTCROP_DEEPNET_CONVOLUTION_CORE_H

#include <cstdint>

namespace deepnet {

// The window geometry shared by the kernel layers.
struct window_geometry {
    uint64_t kernel0, kernel1, stride0, stride1, pad0_low, pad0_high, pad1_low, pad1_high, pad_mode;
};

// One channel (width x height, rows `rowStride` apart) into its part of every
// block of `out0` x `out1` positions; blocks are `blockStride` apart. Places
// outside the input are not written (the buffer is zero).
void im2col(uint64_t width, uint64_t height, const window_geometry& g, uint64_t out0, uint64_t out1,
            const float* channel, uint64_t rowStride, float* dest, uint64_t blockStride);

// One group of a convolution: `channels` input planes of width x height into
// `outputs` planes of out0 x out1, adding to what `y` holds.
void convolve_group(uint64_t width, uint64_t height, uint64_t channels, uint64_t outputs,
                    const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                    const float* weights, float* y);

// Convolutions run on the widest vectors the processor has (AVX2 where
// present) unless portable paths are forced; both give the same bits.

// Scatters one plane's part of the blocks back, adding overlaps, into a plane
// of out0 x out1 with row stride `rowStride`.
void col2im(uint64_t in0, uint64_t in1, const window_geometry& g, uint64_t out0, uint64_t out1,
            const float* blocks, uint64_t blockStride, float* plane, uint64_t rowStride);

// One group of a deconvolution: `channels` input planes of in0 x in1 into
// `outputs` planes of out0 x out1.
void deconvolve_group(uint64_t in0, uint64_t in1, uint64_t channels, uint64_t outputs,
                      const window_geometry& g, uint64_t out0, uint64_t out1, const float* x,
                      const float* weights, float* y, float* scratch);

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_CONVOLUTION_CORE_H
