// The one table of layer kinds: for each type code of the file format, how
// its record is made and its payload read, and how its run-time layer is
// made. Adding a kind means a file in layers/ and a line here.
#ifndef SMARTCROP_DEEPNET_LAYER_REGISTRY_H
#define SMARTCROP_DEEPNET_LAYER_REGISTRY_H

#include <cstdint>
#include <memory>

#include "deepnet/layer_models.h"
#include "deepnet/record_reader.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

struct layer_kind {
    int32_t type;
    std::shared_ptr<layer_model_base> (*new_record)();
    void (*read_payload)(record_reader& in, layer_model_base& record);
    std::shared_ptr<layer_test_base<float>> (*new_layer)(const data_provider_image_label& provider);
};

// Null for a type code no kind has.
const layer_kind* find_layer_kind(int32_t type);

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYER_REGISTRY_H
