// Deconvolution (transposed convolution); its records are read as convolutions.
#ifndef SMARTCROP_DEEPNET_LAYERS_DECONV3D_H
#define SMARTCROP_DEEPNET_LAYERS_DECONV3D_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

template <class Dtype>
class layer_test_deconv3d : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
    std::vector<Dtype> scratch;
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_DECONV3D_H
