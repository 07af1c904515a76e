#include "deepnet/layer_list_reader.h"

#include <cstring>
#include <stdexcept>

#include "deepnet/layer_registry.h"
#include "deepnet/record_reader.h"

namespace deepnet {

namespace {

void read_base(record_reader& in, layer_model_base& record, const layer_model_list& layers) {
    record.type = in.i32();
    const uint32_t nameLength = in.u32();
    const uint8_t* name = in.take(nameLength);
    record.name.assign(reinterpret_cast<const char*>(name), nameLength);
    const uint32_t inputCount = in.u32();
    for (uint32_t i = 0; i < inputCount; ++i) {
        const uint32_t length = in.u32();
        const uint8_t* bytes = in.take(length);
        layer_model_base* found = nullptr;
        for (const auto& layer : layers) {
            if (layer->name.size() == length &&
                std::memcmp(layer->name.data(), bytes, length) == 0) {
                found = layer.get();
                break;
            }
        }
        if (found == nullptr) throw std::runtime_error("layer_model_base::deserialize()");
        record.inputs.push_back(found);
    }
}

}  // namespace

const uint8_t* deenpet_deserialize_layer_model(const uint8_t* data, size_t size,
                                               layer_model_list& layers) {
    record_reader in(data, data + size);
    in.take(12);
    const uint32_t count = in.u32();
    for (uint32_t n = 0; n < count; ++n) {
        in.take(8);
        // Peek at the code: the record is appended before its base is read
        // (so that a layer may name itself), then its payload is read.
        record_reader peek = in;
        const layer_kind* kind = find_layer_kind(peek.i32());
        if (kind == nullptr)
            throw std::runtime_error("deenpet_deserialize_layer_model(): unknown layer type");
        layers.push_back(kind->new_record());
        layer_model_base& record = *layers.back();
        read_base(in, record, layers);
        kind->read_payload(in, record);
    }
    return in.position();
}

}  // namespace deepnet
