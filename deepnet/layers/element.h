// Element-wise sums, products and maxima of the inputs.
#ifndef SMARTCROP_DEEPNET_LAYERS_ELEMENT_H
#define SMARTCROP_DEEPNET_LAYERS_ELEMENT_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

template <class Dtype>
class layer_test_element : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_ELEMENT_H
