#include "deepnet/layers/normcross3d.h"

#include <algorithm>
#include <cmath>

namespace deepnet {

template <class Dtype>
void layer_test_normcross3d<Dtype>::allocate(const layer_model_base& record) {
    if (this->inputs.size() != 1 || this->inputs[0]->y_dim != 3) {
        throw std::runtime_error("layer_test_normcross3d::allocate(): Input mismatch");
    }
    // Half the window may not exceed the channels: C - h is unsigned.
    if (static_cast<const layer_model_normcross3d&>(record).local_size / 2 >
        this->inputs[0]->y_size[2]) {
        throw std::runtime_error("layer_test_normcross3d::allocate(): Input mismatch");
    }
    this->copy_shape(*this->inputs[0]);
    this->size_output();
}

template <class Dtype>
void layer_test_normcross3d<Dtype>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_normcross3d&>(record);
    const uint64_t C = this->y_size[2], S = this->y_size[0] * this->y_size[1], h = r.local_size / 2;
    const float* x = this->x();
    for (uint64_t c = 0; c < C; ++c) {
        const uint64_t first = c - std::min(c, h);
        const uint64_t last = c < C - h ? c + h + 1 : C;
        for (uint64_t p = 0; p < S; ++p) {
            const float v = x[c * S + p];
            if (v == 0) {
                this->y[c * S + p] = 0.0f;
                continue;
            }
            float sum = 0.0f;
            for (uint64_t k = first; k < last; ++k) sum += x[k * S + p] * x[k * S + p];
            this->y[c * S + p] = v / powf(sum * r.alpha + r.k, r.beta);
        }
    }
}

template class layer_test_normcross3d<float>;

}  // namespace deepnet
