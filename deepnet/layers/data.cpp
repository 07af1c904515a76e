#include "deepnet/layers/data.h"

#include <algorithm>

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

template class layer_test_data<float>;

}  // namespace deepnet
