// One network file, read whole and parsed once; read-only afterwards.
#ifndef SMARTCROP_DEEPNET_DEEPNET_MODEL_H
#define SMARTCROP_DEEPNET_DEEPNET_MODEL_H

#include <string>
#include <vector>

#include "deepnet/layer_models.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

class DeepnetModel {
public:
    // Throws std::length_error when the file cannot be opened (its size reads
    // as -1) and std::runtime_error when it cannot be parsed.
    explicit DeepnetModel(const std::string& path);
    // A model from bytes already in memory.
    explicit DeepnetModel(std::vector<uint8_t> bytes);

    std::vector<uint8_t> file_bytes;
    layer_model_list layer_models;
    data_provider_image_label provider;  // never used: every pass makes its own
    layer_test_list layer_tests;         // the same
};

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_DEEPNET_MODEL_H
