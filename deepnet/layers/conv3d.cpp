#include "deepnet/layers/conv3d.h"

#include "deepnet/layers/kernel_geometry.h"

namespace deepnet {

namespace {

void read_conv3d(record_reader& in, layer_model_conv3d& r) {
    r.pad_mode = in.u32();
    r.output_channels = in.u32();
    r.groups = in.u32();
    r.kernel0 = in.u32();
    r.kernel1 = in.u32();
    r.input_channels = in.u32();
    read_strides_and_padding(in, r);
    // A group count of 0 would divide by zero below.
    if (r.groups == 0 || r.input_channels % r.groups != 0) {
        throw std::runtime_error("layer_model_conv3d::allocate(): Group size mismatch");
    }
    // A deconvolution's padding crops its output instead.
    if (!r.is_deconv) {
        check_padding(r, "layer_model_conv3d::deserialize()");
    }
    // A saturated product stays far beyond any buffer after the division.
    r.weights = in.floats(
        times(times(times(r.kernel0, r.input_channels), r.kernel1) / r.groups, r.output_channels));
    r.biases = in.floats(r.is_deconv ? r.input_channels : r.output_channels);
}

}  // namespace

void read_conv3d_payload(record_reader& in, layer_model_base& record) {
    read_conv3d(in, static_cast<layer_model_conv3d&>(record));
}

template <class Dtype>
void layer_test_conv3d<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_conv3d&>(record);
    const auto* x = &checked_kernel_input(*this, r.input_channels, "layer_test_conv3d::allocate()");
    if (r.output_channels % r.groups != 0) {
        throw std::runtime_error("layer_model_conv3d::allocate(): Group size mismatch");
    }
    const uint64_t Y0 = window_positions(x->y_size[0], r.pad0_low, r.pad0_high, r.kernel0,
                                         r.stride0, r.pad_mode, "layer_test_conv3d::allocate()");
    const uint64_t Y1 = window_positions(x->y_size[1], r.pad1_low, r.pad1_high, r.kernel1,
                                         r.stride1, r.pad_mode, "layer_test_conv3d::allocate()");
    // Each input reads its own block of weights: the record must hold them all.
    const uint64_t perInput = checked_product(
        checked_product(checked_product(r.kernel0, r.kernel1), r.input_channels / r.groups),
        r.output_channels);
    if (checked_product(perInput, this->inputs.size()) > r.weights.size()) {
        throw std::runtime_error("layer_test_conv3d::allocate(): input and model mismatch");
    }
    this->set_shape(3, Y0, Y1, r.output_channels);
    this->size_output();
    // The column buffer is counted against the limit as ever, but the
    // convolution gathers eight positions at a time and never fills it.
    count_buffer(checked_product(checked_product(checked_product(r.kernel0 * r.kernel1, Y0), Y1),
                                 r.input_channels / r.groups));
}

template <class Dtype>
void layer_test_conv3d<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_conv3d&>(record);
    const window_geometry g = geometry(r);
    std::fill(this->y.begin(), this->y.end(), 0.0f);
    const uint64_t G = r.groups, Cg = r.input_channels / G, Og = r.output_channels / G;
    const uint64_t W = this->inputs[0]->y_size[0], H = this->inputs[0]->y_size[1];
    const uint64_t Y0 = this->y_size[0], Y1 = this->y_size[1];
    const float* weights = r.weights.data();
    for (size_t j = 0; j < this->inputs.size(); ++j) {
        for (uint64_t gi = 0; gi < G; ++gi) {
            convolve_group(W, H, Cg, Og, g, Y0, Y1, this->x(j) + gi * Cg * W * H,
                           weights + gi * r.kernel0 * r.kernel1 * Cg * Og,
                           this->y.data() + gi * Og * Y0 * Y1);
        }
        weights += r.kernel0 * r.kernel1 * Cg * Og * G;  // the next input's block
    }
    for (uint64_t o = 0; o < r.output_channels; ++o) {
        float* out = this->y.data() + o * Y0 * Y1;
        for (uint64_t p = 0; p < Y0 * Y1; ++p) out[p] = out[p] + r.biases[o];
    }
}

template class layer_test_conv3d<float>;

}  // namespace deepnet
