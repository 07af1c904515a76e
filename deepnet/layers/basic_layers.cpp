// Data, fully connected, activation, the softmaxes and the logistic cost.
#include <cmath>

#include "deepnet/layer_tests.h"

namespace deepnet {

template <class Dtype>
void layer_test_data<Dtype>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_data&>(record);
    if (!this->inputs.empty())
        throw std::runtime_error("layer_test_data::allocate(): Incorrect input size");
    if (r.is_label != 0) {
        this->set_shape(1, provider->label_size);
    } else {
        this->set_shape(3, provider->cols, provider->rows, provider->channels);
    }
    this->size_output();
}

template <class Dtype>
void layer_test_data<Dtype>::fprop_test(uint64_t batch, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_data&>(record);
    if (r.is_label == 0) {
        const size_t n = std::min(provider->image.size(), this->y.size());
        std::copy(provider->image.begin(), provider->image.begin() + n, this->y.begin());
    } else {
        for (uint64_t i = 0; i < batch && i < provider->labels.size() && i < this->y.size(); ++i) {
            this->y[i] = static_cast<float>(provider->labels[i]);
        }
    }
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

template <class Dtype>
void layer_test_activation<Dtype>::allocate(const layer_model_base&) {
    if (this->inputs.size() != 1)
        throw std::runtime_error("layer_test_activation::allocate(): Incorrect input size");
    this->copy_shape(*this->inputs[0]);
    this->size_output();
}

template <class Dtype>
void layer_test_activation<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    if (static_cast<const layer_model_activation&>(record).activation_type != 0) {
        throw std::runtime_error(
            "layer_test_activation::fprop_test(): Unsupported activation type");
    }
    const float* in = this->x();
    for (size_t i = 0; i < this->y.size(); ++i) this->y[i] = 0 > in[i] ? 0.0f : in[i];
}

namespace {

// Softmax over `count` elements `step` apart, divided by `temperature`.
void softmax(const float* in, float* out, uint64_t count, uint64_t step, float temperature) {
    float m = in[0];
    for (uint64_t c = 1; c < count; ++c) m = std::max(m, in[c * step]);
    float s = 0.0f;
    for (uint64_t c = 0; c < count; ++c) s += expf((in[c * step] - m) / temperature);
    for (uint64_t c = 0; c < count; ++c) out[c * step] = expf((in[c * step] - m) / temperature) / s;
}

}  // namespace

template <class Dtype>
void layer_test_softmax<Dtype>::allocate(const layer_model_base&) {
    if (this->inputs.size() != 1)
        throw std::runtime_error("layer_test_softmax::allocate(): Incorrect input size");
    this->set_shape(1, this->inputs[0]->y_size_1d());
    this->size_output();
}

template <class Dtype>
void layer_test_softmax<Dtype>::fprop_test(uint64_t batch, const layer_model_base&) {
    const uint64_t n = this->y_size_1d();
    if (n == 0) return;
    for (uint64_t b = 0; b < batch && (b + 1) * n <= this->y.size(); ++b) {
        float m = this->x()[b * n];
        for (uint64_t i = 1; i < n; ++i) m = std::max(m, this->x()[b * n + i]);
        float s = 0.0f;
        for (uint64_t i = 0; i < n; ++i) s += expf(this->x()[b * n + i] - m);
        for (uint64_t i = 0; i < n; ++i) this->y[b * n + i] = expf(this->x()[b * n + i] - m) / s;
    }
}

template <class Dtype>
void layer_test_softmax_map<Dtype>::allocate(const layer_model_base&) {
    if (this->inputs.size() != 1)
        throw std::runtime_error("layer_test_softmax_map::allocate(): Incorrect input size");
    this->copy_shape(*this->inputs[0]);
    this->size_output();
    temperature = 1.0f;
}

template <class Dtype>
void layer_test_softmax_map<Dtype>::fprop_test(uint64_t, const layer_model_base&) {
    const uint64_t D = this->y_dim, C = this->y_size[D - 1];
    uint64_t P = 1;
    for (uint64_t d = 0; d + 1 < D; ++d) P *= this->y_size[d];
    if (C == 0) return;
    for (uint64_t p = 0; p < P; ++p) softmax(this->x() + p, this->y.data() + p, C, P, temperature);
}

template <class Dtype>
void layer_test_softmax_map2<Dtype>::allocate(const layer_model_base& record) {
    if (this->inputs.size() != 1)
        throw std::runtime_error("layer_test_softmax_map::allocate(): Incorrect input size");
    this->copy_shape(*this->inputs[0]);
    this->size_output();
    temperature = 1.0f;
    // A group of 0 would never end, and a partial last group would read past the map.
    const int32_t g = static_cast<const layer_model_softmax_map2&>(record).group_size;
    if (g < 1 || this->y_size_1d() % static_cast<uint64_t>(g) != 0) {
        throw std::runtime_error(
            "layer_test_softmax_map2::allocate(): group size must divide the map");
    }
}

template <class Dtype>
void layer_test_softmax_map2<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const uint64_t g =
        static_cast<uint64_t>(static_cast<const layer_model_softmax_map2&>(record).group_size);
    const uint64_t T = this->inputs[0]->y_size_1d();
    for (uint64_t start = 0; start < T; start += g)
        softmax(this->x() + start, this->y.data() + start, g, 1, temperature);
}

template <class Dtype>
void layer_test_cost_logreg<Dtype>::allocate(const layer_model_base&) {
    if (this->inputs.size() != 2)
        throw std::runtime_error("layer_test_logreg::allocate(): Incorrect input size");
    this->set_shape(1, 1);
    this->size_output();
}

template <class Dtype>
void layer_test_cost_logreg<Dtype>::fprop_test(uint64_t batch, const layer_model_base&) {
    const uint64_t n = this->inputs[0]->y_size_1d();
    const auto& scores = this->inputs[0]->y;
    const auto& labels = this->inputs[1]->y;
    float sum = 0.0f;
    for (uint64_t i = 0; i < batch; ++i) {
        const float label = i < labels.size() ? labels[i] : 0.0f;
        const uint64_t index = label > 0 ? static_cast<uint64_t>(label) : 0;
        // A label past the scores names no class: refused rather than read.
        if (index >= n || i * n + index >= scores.size()) {
            throw std::runtime_error("layer_test_logreg::fprop_test(): label out of range");
        }
        sum -= logf(scores[i * n + index]);
    }
    this->y[0] = sum / static_cast<float>(batch);
}

template class layer_test_data<float>;
template class layer_test_fc<float>;
template class layer_test_activation<float>;
template class layer_test_softmax<float>;
template class layer_test_softmax_map<float>;
template class layer_test_softmax_map2<float>;
template class layer_test_cost_logreg<float>;

}  // namespace deepnet
