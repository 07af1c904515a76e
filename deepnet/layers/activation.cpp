#include "deepnet/layers/activation.h"

namespace deepnet {

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

template class layer_test_activation<float>;

}  // namespace deepnet
