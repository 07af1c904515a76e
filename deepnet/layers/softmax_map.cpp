#include "deepnet/layers/softmax_map.h"

namespace deepnet {

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

template class layer_test_softmax_map<float>;

}  // namespace deepnet
