#include "deepnet/layer_registry.h"

#include "deepnet/layers/activation.h"
#include "deepnet/layers/concat.h"
#include "deepnet/layers/conv3d.h"
#include "deepnet/layers/cost_logreg.h"
#include "deepnet/layers/data.h"
#include "deepnet/layers/deconv3d.h"
#include "deepnet/layers/element.h"
#include "deepnet/layers/fc.h"
#include "deepnet/layers/local.h"
#include "deepnet/layers/normcross3d.h"
#include "deepnet/layers/pool3d.h"
#include "deepnet/layers/softmax.h"
#include "deepnet/layers/softmax_map.h"
#include "deepnet/layers/softmax_map2.h"

namespace deepnet {

namespace {

template <class Record>
std::shared_ptr<layer_model_base> record() {
    return std::make_shared<Record>();
}

template <class Layer>
std::shared_ptr<layer_test_base<float>> layer(const data_provider_image_label&) {
    return std::make_shared<Layer>();
}

std::shared_ptr<layer_test_base<float>> data_layer(const data_provider_image_label& provider) {
    return std::make_shared<layer_test_data<float>>(&provider);
}

void no_payload(record_reader&, layer_model_base&) {}

void read_data_payload(record_reader& in, layer_model_base& r) {
    static_cast<layer_model_data&>(r).is_label = in.u32();
}

// A deconvolution's record is a convolution's, marked before it is read.
void read_deconv3d_payload(record_reader& in, layer_model_base& r) {
    static_cast<layer_model_conv3d&>(r).is_deconv = true;
    read_conv3d_payload(in, r);
}

void read_normcross3d_payload(record_reader& in, layer_model_base& record) {
    auto& r = static_cast<layer_model_normcross3d&>(record);
    r.local_size = in.u32();
    r.k = in.f32();
    r.alpha = in.f32();
    r.beta = in.f32();
}

void read_activation_payload(record_reader& in, layer_model_base& r) {
    static_cast<layer_model_activation&>(r).activation_type = in.i32();
}

void read_concat_payload(record_reader& in, layer_model_base& r) {
    static_cast<layer_model_concat&>(r).concat_dim = in.u32();
}

void read_element_payload(record_reader& in, layer_model_base& record) {
    auto& r = static_cast<layer_model_element&>(record);
    r.op = in.i32();
    r.coefficients = in.floats(r.inputs.size());
}

void read_softmax_map2_payload(record_reader& in, layer_model_base& record) {
    auto& r = static_cast<layer_model_softmax_map2&>(record);
    r.map_param_a = in.i32();
    r.map_param_b = in.i32();
    r.group_size = in.i32();
}

const layer_kind kKinds[] = {
    {type_data, record<layer_model_data>, read_data_payload, data_layer},
    {type_conv3d, record<layer_model_conv3d>, read_conv3d_payload, layer<layer_test_conv3d<float>>},
    {type_local, record<layer_model_local>, read_local_payload, layer<layer_test_local<float>>},
    {type_fc, record<layer_model_fc>, read_fc_payload, layer<layer_test_fc<float>>},
    {type_normcross3d, record<layer_model_normcross3d>, read_normcross3d_payload,
     layer<layer_test_normcross3d<float>>},
    {type_poolmax3d, record<layer_model_poolmax3d>, read_pool3d_payload,
     layer<layer_test_poolmax3d<float>>},
    {type_poolavg3d, record<layer_model_poolavg3d>, read_pool3d_payload,
     layer<layer_test_poolavg3d<float>>},
    {type_activation, record<layer_model_activation>, read_activation_payload,
     layer<layer_test_activation<float>>},
    {type_concat, record<layer_model_concat>, read_concat_payload, layer<layer_test_concat<float>>},
    {type_element, record<layer_model_element>, read_element_payload,
     layer<layer_test_element<float>>},
    {type_softmax, record<layer_model_softmax>, no_payload, layer<layer_test_softmax<float>>},
    {type_cost_logreg, record<layer_model_cost_logreg>, no_payload,
     layer<layer_test_cost_logreg<float>>},
    {type_deconv3d, record<layer_model_conv3d>, read_deconv3d_payload,
     layer<layer_test_deconv3d<float>>},
    {type_softmax_map, record<layer_model_softmax_map>, no_payload,
     layer<layer_test_softmax_map<float>>},
    {type_softmax_map2, record<layer_model_softmax_map2>, read_softmax_map2_payload,
     layer<layer_test_softmax_map2<float>>},
};

}  // namespace

const layer_kind* find_layer_kind(int32_t type) {
    for (const layer_kind& kind : kKinds) {
        if (kind.type == type) return &kind;
    }
    return nullptr;
}

}  // namespace deepnet
