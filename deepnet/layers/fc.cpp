#include "deepnet/layers/fc.h"

namespace deepnet {

namespace {

void read_fc(record_reader& in, layer_model_fc& r) {
    uint64_t total = 0;
    for (size_t i = 0; i < r.inputs.size(); ++i) {
        r.input_sizes.push_back(in.u32());
        total += r.input_sizes.back();
    }
    r.output_size = in.u32();
    r.weights = in.floats(times(r.output_size, total));
    r.biases = in.floats(r.output_size);
}

}  // namespace

void read_fc_payload(record_reader& in, layer_model_base& record) {
    read_fc(in, static_cast<layer_model_fc&>(record));
}

template <class Dtype>
void layer_test_fc<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_fc&>(record);
    // The sizes come from the inputs; the record's blob must hold their weights.
    uint64_t total = 0;
    for (const auto* in : this->inputs) total += in->y_size_1d();
    if (checked_product(total, r.output_size) > r.weights.size() ||
        r.biases.size() < r.output_size) {
        throw std::runtime_error("layer_test_fc::allocate(): input and model mismatch");
    }
    this->set_shape(1, r.output_size);
    this->size_output();
}

template <class Dtype>
void layer_test_fc<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_fc&>(record);
    const uint64_t O = this->y_size_1d();
    std::fill(this->y.begin(), this->y.end(), 0.0f);
    const float* w = r.weights.data();
    for (size_t j = 0; j < this->inputs.size(); ++j) {
        const uint64_t m = this->inputs[j]->y_size_1d();
        const float* in = this->x(j);
        for (uint64_t o = 0; o < O; ++o) {
            float a = this->y[o];
            for (uint64_t i = 0; i < m; ++i) a += w[o * m + i] * in[i];
            this->y[o] = a;
        }
        w += O * m;
    }
    for (uint64_t o = 0; o < O; ++o) this->y[o] += r.biases[o];
}

template class layer_test_fc<float>;

}  // namespace deepnet
