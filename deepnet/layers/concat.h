// Concatenation along a dimension.
#ifndef SMARTCROP_DEEPNET_LAYERS_CONCAT_H
#define SMARTCROP_DEEPNET_LAYERS_CONCAT_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

template <class Dtype>
class layer_test_concat : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
    uint64_t dim = 0;  // the effective concatenation dimension
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_CONCAT_H
