// Max and average pooling.
#ifndef SMARTCROP_DEEPNET_LAYERS_POOL3D_H
#define SMARTCROP_DEEPNET_LAYERS_POOL3D_H

#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

// Reads the payload of a record of this kind.
void read_pool3d_payload(record_reader& in, layer_model_base& record);

namespace detail {
struct pool_type_max {};
struct pool_type_avg {};
}  // namespace detail

template <class Dtype, class Pool>
class layer_test_pool_3d_base : public layer_test_base<Dtype> {
public:
    void fprop_test(uint64_t batch, const layer_model_base& record) override;
    void allocate(const layer_model_base& record) override;
    std::vector<Dtype> scratch;  // allocated, never used
};
template <class Dtype>
class layer_test_poolmax3d : public layer_test_pool_3d_base<Dtype, detail::pool_type_max> {};
template <class Dtype>
class layer_test_poolavg3d : public layer_test_pool_3d_base<Dtype, detail::pool_type_avg> {};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYERS_POOL3D_H
