#include "deepnet/layers/element.h"

namespace deepnet {

template <class Dtype>
void layer_test_element<Dtype>::allocate(const layer_model_base&) {
    if (this->inputs.empty())
        throw std::runtime_error("layer_test_element::allocate(): incorrect input size");
    const auto* x = this->inputs[0];
    for (size_t j = 1; j < this->inputs.size(); ++j) {
        const auto* in = this->inputs[j];
        if (in->y_dim != x->y_dim)
            throw std::runtime_error("layer_test_element::allocate(): dimension mismatch");
        for (int d = 0; d < 4; ++d) {
            if (in->y_size[d] != x->y_size[d]) {
                throw std::runtime_error("layer_test_element::allocate(): output size mismatch");
            }
        }
    }
    this->copy_shape(*x);
    this->size_output();
    size_buffer(scratch, this->y_size_1d());
}

template <class Dtype>
void layer_test_element<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_element&>(record);
    const uint64_t n = this->y_size_1d();
    std::copy(this->x(), this->x() + n, this->y.begin());
    if (r.op == 1) {
        for (uint64_t i = 0; i < n; ++i) this->y[i] *= r.coefficients[0];
    }
    for (size_t j = 1; j < this->inputs.size(); ++j) {
        const float* z = this->x(j);
        switch (r.op) {
            case 0:
                for (uint64_t i = 0; i < n; ++i) this->y[i] = this->y[i] * z[i];
                break;
            case 1:
                for (uint64_t i = 0; i < n; ++i) scratch[i] = r.coefficients[j] * z[i];
                for (uint64_t i = 0; i < n; ++i) this->y[i] = this->y[i] + scratch[i];
                break;
            case 2:
                for (uint64_t i = 0; i < n; ++i) {
                    if (z[i] > this->y[i]) this->y[i] = z[i];
                }
                break;
            default:
                throw std::runtime_error("Unsupported operation type");
        }
    }
}

template class layer_test_element<float>;

}  // namespace deepnet
