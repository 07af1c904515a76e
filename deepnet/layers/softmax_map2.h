// Softmax within groups of consecutive values.
#ifndef SMARTCROP_DEEPNET_LAYERS_SOFTMAX_MAP2_H
#define SMARTCROP_DEEPNET_LAYERS_SOFTMAX_MAP2_H

#include "deepnet/layers/softmax.h"
#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

template <class Dtype>
class layer_test_softmax_map2 : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
    float temperature = 1.0f;
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_SOFTMAX_MAP2_H
