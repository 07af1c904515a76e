// Softmax over a whole input, and the softmax the map kinds share.
#ifndef SMARTCROP_DEEPNET_LAYERS_SOFTMAX_H
#define SMARTCROP_DEEPNET_LAYERS_SOFTMAX_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

// Softmax over `count` elements `step` apart, divided by `temperature`.
void softmax(const float* in, float* out, uint64_t count, uint64_t step, float temperature);

template <class Dtype>
class layer_test_softmax : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_SOFTMAX_H
