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
}

template <class Dtype>
void layer_test_element<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_element&>(record);
    const uint64_t n = this->y_size_1d();
    const float* x = this->x();
    float* y = this->y.data();
    size_t j = 1;
    if (r.op == 1) {
        // A weighted sum, one pass per input, the first two together: each
        // product is rounded before it is added, as a scratch array of the
        // weighted input would have it, and the sum runs in input order.
        const float c0 = r.coefficients[0];
        if (this->inputs.size() > 1) {
            const float* z = this->x(1);
            const float c1 = r.coefficients[1];
            for (uint64_t i = 0; i < n; ++i) {
                const float first = x[i] * c0, second = c1 * z[i];
                y[i] = first + second;
            }
            j = 2;
        } else {
            for (uint64_t i = 0; i < n; ++i) y[i] = x[i] * c0;
        }
    } else {
        std::copy(x, x + n, y);
    }
    for (; j < this->inputs.size(); ++j) {
        const float* z = this->x(j);
        switch (r.op) {
            case 0:
                for (uint64_t i = 0; i < n; ++i) y[i] = y[i] * z[i];
                break;
            case 1: {
                const float c = r.coefficients[j];
                for (uint64_t i = 0; i < n; ++i) {
                    const float weighted = c * z[i];
                    y[i] = y[i] + weighted;
                }
                break;
            }
            case 2:
                for (uint64_t i = 0; i < n; ++i) {
                    if (z[i] > y[i]) y[i] = z[i];
                }
                break;
            default:
                throw std::runtime_error("Unsupported operation type");
        }
    }
}

template class layer_test_element<float>;

}  // namespace deepnet
