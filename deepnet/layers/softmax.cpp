#include "deepnet/layers/softmax.h"

#include <algorithm>
#include <cmath>

namespace deepnet {

void softmax(const float* in, float* out, uint64_t count, uint64_t step, float temperature) {
    float m = in[0];
    for (uint64_t c = 1; c < count; ++c) m = std::max(m, in[c * step]);
    float s = 0.0f;
    for (uint64_t c = 0; c < count; ++c) s += expf((in[c * step] - m) / temperature);
    for (uint64_t c = 0; c < count; ++c) out[c * step] = expf((in[c * step] - m) / temperature) / s;
}

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
    for (uint64_t b = 0; b < batch && (b + 1) * n <= this->y.size(); ++b)
        softmax(this->x() + b * n, this->y.data() + b * n, n, 1, 1.0f);
}

template class layer_test_softmax<float>;

}  // namespace deepnet
