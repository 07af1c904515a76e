// Convolution, local (unshared) convolution and deconvolution.
#include "deepnet/convolution_core.h"
#include "deepnet/layer_tests.h"

namespace deepnet {

namespace {

template <class Record>
window_geometry geometry(const Record& r) {
    return {r.kernel0,   r.kernel1,  r.stride0,   r.stride1, r.pad0_low,
            r.pad0_high, r.pad1_low, r.pad1_high, r.pad_mode};
}

// Every input three-dimensional and of the first input's size.
template <class Dtype>
bool same_shapes(const layer_test_base<Dtype>& layer) {
    if (layer.inputs.empty()) return false;
    const auto* x = layer.inputs[0];
    for (const auto* in : layer.inputs) {
        if (in->y_dim != 3) return false;
        for (int d = 0; d < 3; ++d) {
            if (in->y_size[d] != x->y_size[d]) return false;
        }
    }
    return true;
}

}  // namespace

template <class Dtype>
void layer_test_conv3d<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_conv3d&>(record);
    if (!same_shapes(*this))
        throw std::runtime_error("layer_test_conv3d::allocate(): Input size mismatch");
    const auto* x = this->inputs[0];
    if (x->y_size[2] != r.input_channels) {
        throw std::runtime_error("layer_test_conv3d::allocate(): input and model mismatch");
    }
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

template <class Dtype>
void layer_test_local<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_local&>(record);
    if (!same_shapes(*this))
        throw std::runtime_error("layer_test_local::allocate(): Input size mismatch");
    const auto* x = this->inputs[0];
    if (x->y_size[2] != r.input_channels) {
        throw std::runtime_error("layer_test_local::allocate(): input and model mismatch");
    }
    const uint64_t Y0 = window_positions(x->y_size[0], r.pad0_low, r.pad0_high, r.kernel0,
                                         r.stride0, r.pad_mode, "layer_test_local::allocate()");
    const uint64_t Y1 = window_positions(x->y_size[1], r.pad1_low, r.pad1_high, r.kernel1,
                                         r.stride1, r.pad_mode, "layer_test_local::allocate()");
    // Lenient: one matching size is enough. But positions beyond the record's
    // would read weights it does not hold.
    if ((Y0 != r.out0 && Y1 != r.out1) ||
        checked_product(Y0, Y1) > checked_product(r.out0, r.out1)) {
        throw std::runtime_error("layer_test_local::allocate(): output and model mismatch");
    }
    this->set_shape(3, Y0, Y1, r.output_channels);
    this->size_output();
    const uint64_t n = checked_product(
        checked_product(checked_product(r.kernel0 * r.kernel1, r.input_channels), Y0), Y1);
    size_buffer(scratch, n);
    size_buffer(scratch2, n);
}

template <class Dtype>
void layer_test_local<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_local&>(record);
    const window_geometry g = geometry(r);
    std::fill(this->y.begin(), this->y.end(), 0.0f);
    const uint64_t W = this->inputs[0]->y_size[0], H = this->inputs[0]->y_size[1];
    const uint64_t Y0 = this->y_size[0], Y1 = this->y_size[1], positions = Y0 * Y1;
    const uint64_t area = r.kernel0 * r.kernel1, L = area * r.input_channels;
    for (size_t j = 0; j < this->inputs.size(); ++j) {
        std::fill(scratch.begin(), scratch.end(), 0.0f);
        for (uint64_t c = 0; c < r.input_channels; ++c) {
            im2col(W, H, g, Y0, Y1, this->x(j) + c * W * H, W, scratch2.data() + c * area, L);
        }
        const float* w = r.weights.data();  // each input starts at the blob's start
        for (uint64_t o = 0; o < r.output_channels; ++o) {
            for (uint64_t p = 0; p < positions; ++p, w += L) {
                const float* b = scratch2.data() + p * L;
                float a = 0.0f;
                for (uint64_t i = 0; i < L; ++i) a += w[i] * b[i];
                this->y[o * positions + p] = a + r.biases[o * positions + p];
            }
        }
    }
}

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

template class layer_test_conv3d<float>;
template class layer_test_local<float>;
template class layer_test_deconv3d<float>;

}  // namespace deepnet
