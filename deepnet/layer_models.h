// The records of a network file: one per layer, with its name, its inputs
// (earlier layers) and its parameters and trained values.
#ifndef SMARTCROP_DEEPNET_LAYER_MODELS_H
#define SMARTCROP_DEEPNET_LAYER_MODELS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace deepnet {

enum layer_type : int32_t {
    type_data = 0,
    type_conv3d = 1,
    type_local = 2,
    type_fc = 3,
    type_normcross3d = 4,
    type_poolmax3d = 5,
    type_poolavg3d = 6,
    type_activation = 7,
    type_concat = 10,
    type_element = 14,
    type_softmax = 16,
    type_cost_logreg = 17,
    type_deconv3d = 20,
    type_softmax_map = 21,
    type_softmax_map2 = 22,
};

// Plain records without virtual functions; the shared owners of the model's
// array keep the derived records alive, the records point at each other plainly.
struct layer_model_base {
    int32_t type = 0;
    std::string name;
    std::vector<layer_model_base*> inputs;
};

struct layer_model_data : layer_model_base {
    uint64_t is_label = 0;
};

// Convolution and deconvolution. In a deconvolution input_channels is the
// number of channels produced and output_channels the number consumed.
struct layer_model_conv3d : layer_model_base {
    std::vector<float> weights, biases;
    uint64_t pad_mode = 0, output_channels = 0, groups = 0, kernel0 = 0, kernel1 = 0,
             input_channels = 0, stride0 = 0, stride1 = 0, pad0_low = 0, pad0_high = 0,
             pad1_low = 0, pad1_high = 0;
    bool is_deconv = false;
};

struct layer_model_local : layer_model_base {
    std::vector<float> weights, biases;
    uint64_t pad_mode = 0, output_channels = 0, kernel0 = 0, kernel1 = 0, input_channels = 0,
             out0 = 0, out1 = 0, stride0 = 0, stride1 = 0, pad0_low = 0, pad0_high = 0,
             pad1_low = 0, pad1_high = 0;
};

struct layer_model_fc : layer_model_base {
    std::vector<float> weights, biases;
    std::vector<uint64_t> input_sizes;
    uint64_t output_size = 0;
};

struct layer_model_normcross3d : layer_model_base {
    uint64_t local_size = 0;
    float k = 0, alpha = 0, beta = 0;
};

struct layer_model_pool3d : layer_model_base {
    uint64_t kernel0 = 0, kernel1 = 0, stride0 = 0, stride1 = 0, pad0_low = 0, pad0_high = 0,
             pad1_low = 0, pad1_high = 0;
};
struct layer_model_poolmax3d : layer_model_pool3d {};
struct layer_model_poolavg3d : layer_model_pool3d {};

struct layer_model_activation : layer_model_base {
    int32_t activation_type = 0;
};

struct layer_model_concat : layer_model_base {
    uint64_t concat_dim = 0;
};

struct layer_model_element : layer_model_base {
    int32_t op = 0;
    std::vector<float> coefficients;  // one per input
};

struct layer_model_softmax : layer_model_base {};
struct layer_model_cost_logreg : layer_model_base {};
struct layer_model_softmax_map : layer_model_base {};

struct layer_model_softmax_map2 : layer_model_base {
    int32_t map_param_a = 0, map_param_b = 0, group_size = 0;
};

using layer_model_list = std::vector<std::shared_ptr<layer_model_base>>;

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYER_MODELS_H
