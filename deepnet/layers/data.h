// The input layer: the image planes, or the labels.
#ifndef SMARTCROP_DEEPNET_LAYERS_DATA_H
#define SMARTCROP_DEEPNET_LAYERS_DATA_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

template <class Dtype>
class layer_test_data : public layer_test_base<Dtype> {
public:
    explicit layer_test_data(const data_provider_image_label* provider) : provider(provider) {}
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
    const data_provider_image_label* provider;
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_DATA_H
