// What the windowed kinds (convolutions, local layers, pooling) share: their
// geometry for the convolution core, the check of their inputs' shapes, and
// the bound on their padding.
#ifndef SMARTCROP_DEEPNET_LAYERS_KERNEL_GEOMETRY_H
#define SMARTCROP_DEEPNET_LAYERS_KERNEL_GEOMETRY_H

#include <algorithm>
#include <stdexcept>
#include <string>

#include "deepnet/convolution_core.h"
#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

// A window lying wholly in the padding reads nothing, and padding without
// bound lets a tiny file ask for any amount of work and memory on every
// input: padding must stay below the kernel, in both dimensions.
template <class Record>
void check_padding(const Record& r, const char* who) {
    if (std::max(r.pad0_low, r.pad0_high) >= r.kernel0 ||
        std::max(r.pad1_low, r.pad1_high) >= r.kernel1)
        throw std::runtime_error(std::string(who) + ": padding as large as the kernel");
}

// The strides and the four paddings, which every windowed record stores in
// this order.
template <class Record>
void read_strides_and_padding(record_reader& in, Record& r) {
    for (uint64_t* field :
         {&r.stride0, &r.stride1, &r.pad0_low, &r.pad0_high, &r.pad1_low, &r.pad1_high}) {
        *field = in.u32();
    }
}

template <class Record>
inline window_geometry geometry(const Record& r) {
    return {r.kernel0,   r.kernel1,  r.stride0,   r.stride1, r.pad0_low,
            r.pad0_high, r.pad1_low, r.pad1_high, r.pad_mode};
}

// The first input of a convolution-like layer, after checking that every
// input is three-dimensional, of the first's size, with the record's
// channels; `who` names the layer's allocation in the messages.
template <class Dtype>
const layer_test_base<Dtype>& checked_kernel_input(const layer_test_base<Dtype>& layer,
                                                   uint64_t channels, const std::string& who) {
    if (layer.inputs.empty()) throw std::runtime_error(who + ": Input size mismatch");
    const auto* x = layer.inputs[0];
    for (const auto* in : layer.inputs) {
        bool same = in->y_dim == 3;
        for (int d = 0; d < 3 && same; ++d) same = in->y_size[d] == x->y_size[d];
        if (!same) throw std::runtime_error(who + ": Input size mismatch");
    }
    if (x->y_size[2] != channels) throw std::runtime_error(who + ": input and model mismatch");
    return *x;
}

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_KERNEL_GEOMETRY_H
