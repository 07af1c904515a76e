#include "deepnet/layers/softmax_map2.h"

namespace deepnet {

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

template class layer_test_softmax_map2<float>;

}  // namespace deepnet
