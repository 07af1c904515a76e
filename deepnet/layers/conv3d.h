// Convolution, grouped and with several inputs.
#ifndef SMARTCROP_DEEPNET_LAYERS_CONV3D_H
#define SMARTCROP_DEEPNET_LAYERS_CONV3D_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

// Reads the payload of a record of this kind.
void read_conv3d_payload(record_reader& in, layer_model_base& record);

template <class Dtype>
class layer_test_conv3d : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
    std::vector<Dtype> scratch;  // counted against the buffer limit, left empty
    std::vector<Dtype> unused;   // kept empty
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_CONV3D_H
