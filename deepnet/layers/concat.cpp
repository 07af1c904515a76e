#include "deepnet/layers/concat.h"

#include <iostream>

namespace deepnet {

template <class Dtype>
void layer_test_concat<Dtype>::allocate(const layer_model_base& record) {
    if (this->inputs.empty())
        throw std::runtime_error("layer_test_concat::allocate(): incorrect input size");
    const auto* x = this->inputs[0];
    this->copy_shape(*x);
    dim = static_cast<const layer_model_concat&>(record).concat_dim;
    if (this->y_dim == 0)
        throw std::runtime_error("layer_test_concat::allocate(): dimension mismatch");
    if (dim > this->y_dim - 1) {
        std::cout << "Warning: [" << record.name << "] concat_dim exceeds y_dim" << std::endl;
        dim = this->y_dim - 1;
    }
    for (size_t j = 1; j < this->inputs.size(); ++j) {
        const auto* in = this->inputs[j];
        if (in->y_dim != this->y_dim)
            throw std::runtime_error("layer_test_concat::allocate(): dimension mismatch");
        for (uint64_t d = 0; d < this->y_dim; ++d) {
            if (d == dim) {
                this->y_size[d] += in->y_size[d];
            } else if (in->y_size[d] != this->y_size[d]) {
                throw std::runtime_error("layer_test_concat::allocate(): output size mismatch");
            }
        }
    }
    this->size_output();
}

template <class Dtype>
void layer_test_concat<Dtype>::fprop_test(uint64_t batch, const layer_model_base&) {
    uint64_t inner = 1, outer = batch;
    for (uint64_t d = 0; d < dim; ++d) inner *= this->y_size[d];
    for (uint64_t d = dim + 1; d < this->y_dim; ++d) outer *= this->y_size[d];
    float* out = this->y.data();
    const float* end = out + this->y.size();
    for (uint64_t o = 0; o < outer; ++o) {
        for (const auto* in : this->inputs) {
            const uint64_t n = inner * in->y_size[dim];
            if (out + n > end || (o + 1) * n > in->y.size()) return;  // a batch beyond the buffers
            std::copy(in->y.data() + o * n, in->y.data() + (o + 1) * n, out);
            out += n;
        }
    }
}

template class layer_test_concat<float>;

}  // namespace deepnet
