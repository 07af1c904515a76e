#include "deepnet/layers/cost_logreg.h"

#include <cmath>

namespace deepnet {

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
        // A label past the scores names no class: refused rather than read,
        // and before it is converted, which a huge one would overflow.
        const bool past = label > 0 && !(static_cast<double>(label) < static_cast<double>(n));
        const uint64_t index = label > 0 && !past ? static_cast<uint64_t>(label) : 0;
        if (past || index >= n || i * n + index >= scores.size()) {
            throw std::runtime_error("layer_test_logreg::fprop_test(): label out of range");
        }
        sum -= logf(scores[i * n + index]);
    }
    this->y[0] = sum / static_cast<float>(batch);
}

template class layer_test_cost_logreg<float>;

}  // namespace deepnet
