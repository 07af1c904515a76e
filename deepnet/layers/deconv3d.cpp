#include "deepnet/layers/deconv3d.h"

#include "deepnet/layers/kernel_geometry.h"

namespace deepnet {

template <class Dtype>
void layer_test_deconv3d<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_conv3d&>(record);
    if (this->inputs.size() != 1)
        throw std::runtime_error("layer_test_deconv3d::allocate(): Input size must be 1");
    const auto* x = this->inputs[0];
    if (x->y_dim != 3 || x->y_size[2] != r.output_channels) {
        throw std::runtime_error("layer_test_deconv3d::allocate(): Input and model mismatch");
    }
    if (r.pad_mode != 0)
        throw std::runtime_error("compute_correlate_input_size: only support Caffe padding mode");
    if (r.kernel0 == 0 || r.kernel1 == 0 || r.stride0 == 0 || r.stride1 == 0 || x->y_size[0] == 0 ||
        x->y_size[1] == 0 || r.output_channels % r.groups != 0) {
        throw std::runtime_error("layer_test_deconv3d::allocate(): Input and model mismatch");
    }
    const uint64_t full0 = checked_product(x->y_size[0] - 1, r.stride0) + r.kernel0;
    const uint64_t full1 = checked_product(x->y_size[1] - 1, r.stride1) + r.kernel1;
    if (full0 < r.pad0_low + r.pad0_high || full1 < r.pad1_low + r.pad1_high) {
        throw std::runtime_error("layer_test_deconv3d::allocate(): padding larger than the output");
    }
    this->set_shape(3, full0 - r.pad0_high - r.pad0_low, full1 - r.pad1_low - r.pad1_high,
                    r.input_channels);
    this->size_output();
    size_buffer(
        scratch,
        checked_product(checked_product(checked_product(r.kernel0 * r.kernel1, r.input_channels),
                                        x->y_size[0] * x->y_size[1]) /
                            r.groups,
                        1));
}

template <class Dtype>
void layer_test_deconv3d<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_conv3d&>(record);
    const window_geometry g = geometry(r);
    const auto* x = this->inputs[0];
    const uint64_t G = r.groups, Cg = r.output_channels / G, Og = r.input_channels / G;
    const uint64_t in0 = x->y_size[0], in1 = x->y_size[1], Y0 = this->y_size[0],
                   Y1 = this->y_size[1];
    for (uint64_t gi = 0; gi < G; ++gi) {
        deconvolve_group(in0, in1, Cg, Og, g, Y0, Y1, x->y.data() + gi * Cg * in0 * in1,
                         r.weights.data() + gi * r.kernel0 * r.kernel1 * Og * Cg,
                         this->y.data() + gi * Og * Y0 * Y1, scratch.data());
    }
    for (uint64_t o = 0; o < r.input_channels; ++o) {
        float* out = this->y.data() + o * Y0 * Y1;
        for (uint64_t p = 0; p < Y0 * Y1; ++p) out[p] = out[p] + r.biases[o];
    }
}

template class layer_test_deconv3d<float>;

}  // namespace deepnet
