#include "deepnet/layers/local.h"

#include "deepnet/layers/kernel_geometry.h"

namespace deepnet {

namespace {

void read_local(record_reader& in, layer_model_local& r) {
    r.pad_mode = in.u32();
    r.output_channels = in.u32();
    r.kernel0 = in.u32();
    r.kernel1 = in.u32();
    r.input_channels = in.u32();
    r.out0 = in.u32();
    r.out1 = in.u32();
    read_strides_and_padding(in, r);
    check_padding(r, "layer_model_local::deserialize()");
    const uint64_t positions = times(times(r.out0, r.out1), r.output_channels);
    r.weights = in.floats(times(times(times(r.input_channels, r.kernel0), r.kernel1), positions));
    r.biases = in.floats(positions);
}

}  // namespace

void read_local_payload(record_reader& in, layer_model_base& record) {
    read_local(in, static_cast<layer_model_local&>(record));
}

template <class Dtype>
void layer_test_local<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_local&>(record);
    const auto* x = &checked_kernel_input(*this, r.input_channels, "layer_test_local::allocate()");
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

template class layer_test_local<float>;

}  // namespace deepnet
