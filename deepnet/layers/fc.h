// Fully connected, over one or more inputs.
#ifndef SMARTCROP_DEEPNET_LAYERS_FC_H
#define SMARTCROP_DEEPNET_LAYERS_FC_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

// Reads the payload of a record of this kind.
void read_fc_payload(record_reader& in, layer_model_base& record);

template <class Dtype>
class layer_test_fc : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_FC_H
