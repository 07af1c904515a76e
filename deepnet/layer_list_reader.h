// Reading a network file's list of layer records, each kind's payload by
// the registry's table.
#ifndef SMARTCROP_DEEPNET_LAYER_LIST_READER_H
#define SMARTCROP_DEEPNET_LAYER_LIST_READER_H

#include <cstddef>
#include <cstdint>

#include "deepnet/layer_models.h"

namespace deepnet {

// Parses the `size` bytes of a network file into `layers`, appending each
// record before it is parsed, and returns the position behind the last one.
// Throws std::runtime_error for an unknown type, an unresolved input, a group
// mismatch, and any length or count that would lead outside the bytes.
const uint8_t* deenpet_deserialize_layer_model(const uint8_t* data, size_t size,
                                               layer_model_list& layers);

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_LAYER_LIST_READER_H
