#include "deepnet/layer_models.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace deepnet {

namespace {

[[noreturn]] void truncated() {
    throw std::runtime_error("deenpet_deserialize_layer_model(): the data ends inside a record");
}

// A moving position that never reads outside [begin, end).
class Reader {
public:
    Reader(const uint8_t* begin, const uint8_t* end) : pos(begin), end(end) {}

    const uint8_t* take(uint64_t n) {
        if (n > static_cast<uint64_t>(end - pos)) truncated();
        const uint8_t* at = pos;
        pos += n;
        return at;
    }
    uint32_t u32() {
        const uint8_t* b = take(4);
        return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
               static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
    }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    float f32() {
        const uint32_t bits = u32();
        float v;
        std::memcpy(&v, &bits, 4);
        return v;
    }
    // `count` floats, copied by block; the count is checked against the bytes first.
    std::vector<float> floats(uint64_t count) {
        if (count > static_cast<uint64_t>(end - pos) / 4) truncated();
        std::vector<float> v(static_cast<size_t>(count));
        if (count > 0) std::memcpy(v.data(), take(count * 4), count * 4);
        return v;
    }
    const uint8_t* position() const { return pos; }

private:
    const uint8_t* pos;
    const uint8_t* end;
};

// a * b, or a value no buffer can hold when the product overflows.
uint64_t times(uint64_t a, uint64_t b) {
    if (a != 0 && b > std::numeric_limits<uint64_t>::max() / a)
        return std::numeric_limits<uint64_t>::max();
    return a * b;
}

// A window lying wholly in the padding reads nothing, and padding without
// bound lets a tiny file ask for any amount of work and memory on every
// input: padding must stay below the kernel, in both dimensions.
void check_padding(uint64_t kernel0, uint64_t kernel1, uint64_t pad0Low, uint64_t pad0High,
                   uint64_t pad1Low, uint64_t pad1High, const char* who) {
    if (std::max(pad0Low, pad0High) >= kernel0 || std::max(pad1Low, pad1High) >= kernel1)
        throw std::runtime_error(std::string(who) + ": padding as large as the kernel");
}

void read_base(Reader& in, layer_model_base& record, const layer_model_list& layers) {
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

void read_conv3d(Reader& in, layer_model_conv3d& r) {
    r.pad_mode = in.u32();
    r.output_channels = in.u32();
    r.groups = in.u32();
    r.kernel0 = in.u32();
    r.kernel1 = in.u32();
    r.input_channels = in.u32();
    r.stride0 = in.u32();
    r.stride1 = in.u32();
    r.pad0_low = in.u32();
    r.pad0_high = in.u32();
    r.pad1_low = in.u32();
    r.pad1_high = in.u32();
    // A group count of 0 would divide by zero below.
    if (r.groups == 0 || r.input_channels % r.groups != 0) {
        throw std::runtime_error("layer_model_conv3d::allocate(): Group size mismatch");
    }
    // A deconvolution's padding crops its output instead.
    if (!r.is_deconv) {
        check_padding(r.kernel0, r.kernel1, r.pad0_low, r.pad0_high, r.pad1_low, r.pad1_high,
                      "layer_model_conv3d::deserialize()");
    }
    // A saturated product stays far beyond any buffer after the division.
    r.weights = in.floats(
        times(times(times(r.kernel0, r.input_channels), r.kernel1) / r.groups, r.output_channels));
    r.biases = in.floats(r.is_deconv ? r.input_channels : r.output_channels);
}

void read_local(Reader& in, layer_model_local& r) {
    r.pad_mode = in.u32();
    r.output_channels = in.u32();
    r.kernel0 = in.u32();
    r.kernel1 = in.u32();
    r.input_channels = in.u32();
    r.out0 = in.u32();
    r.out1 = in.u32();
    r.stride0 = in.u32();
    r.stride1 = in.u32();
    r.pad0_low = in.u32();
    r.pad0_high = in.u32();
    r.pad1_low = in.u32();
    r.pad1_high = in.u32();
    check_padding(r.kernel0, r.kernel1, r.pad0_low, r.pad0_high, r.pad1_low, r.pad1_high,
                  "layer_model_local::deserialize()");
    const uint64_t positions = times(times(r.out0, r.out1), r.output_channels);
    r.weights = in.floats(times(times(times(r.input_channels, r.kernel0), r.kernel1), positions));
    r.biases = in.floats(positions);
}

void read_fc(Reader& in, layer_model_fc& r) {
    uint64_t total = 0;
    for (size_t i = 0; i < r.inputs.size(); ++i) {
        r.input_sizes.push_back(in.u32());
        total += r.input_sizes.back();
    }
    r.output_size = in.u32();
    r.weights = in.floats(times(r.output_size, total));
    r.biases = in.floats(r.output_size);
}

void read_pool(Reader& in, layer_model_pool3d& r) {
    for (uint64_t* field : {&r.kernel0, &r.kernel1, &r.stride0, &r.stride1, &r.pad0_low,
                            &r.pad0_high, &r.pad1_low, &r.pad1_high}) {
        *field = in.u32();
    }
    check_padding(r.kernel0, r.kernel1, r.pad0_low, r.pad0_high, r.pad1_low, r.pad1_high,
                  "layer_model_pool3d::deserialize()");
}

// Appends the record before it is parsed (so that a layer may name itself),
// reads its base part, then its payload.
template <class Record, class Payload>
void parse_record(Reader& in, layer_model_list& layers, Payload payload) {
    auto record = std::make_shared<Record>();
    Record& r = *record;
    layers.push_back(std::move(record));
    read_base(in, r, layers);
    payload(r);
}

void no_payload(layer_model_base&) {}

}  // namespace

const uint8_t* deenpet_deserialize_layer_model(const uint8_t* data, size_t size,
                                               layer_model_list& layers) {
    Reader in(data, data + size);
    in.take(12);
    const uint32_t count = in.u32();
    for (uint32_t n = 0; n < count; ++n) {
        in.take(8);
        // Peek at the code: the record is appended before its base is read.
        Reader peek = in;
        const int32_t code = peek.i32();
        switch (code) {
            case type_data:
                parse_record<layer_model_data>(in, layers, [&](auto& r) { r.is_label = in.u32(); });
                break;
            case type_conv3d:
            case type_deconv3d:
                parse_record<layer_model_conv3d>(in, layers, [&](auto& r) {
                    r.is_deconv = code == type_deconv3d;
                    read_conv3d(in, r);
                });
                break;
            case type_local:
                parse_record<layer_model_local>(in, layers, [&](auto& r) { read_local(in, r); });
                break;
            case type_fc:
                parse_record<layer_model_fc>(in, layers, [&](auto& r) { read_fc(in, r); });
                break;
            case type_normcross3d:
                parse_record<layer_model_normcross3d>(in, layers, [&](auto& r) {
                    r.local_size = in.u32();
                    r.k = in.f32();
                    r.alpha = in.f32();
                    r.beta = in.f32();
                });
                break;
            case type_poolmax3d:
                parse_record<layer_model_poolmax3d>(in, layers, [&](auto& r) { read_pool(in, r); });
                break;
            case type_poolavg3d:
                parse_record<layer_model_poolavg3d>(in, layers, [&](auto& r) { read_pool(in, r); });
                break;
            case type_activation:
                parse_record<layer_model_activation>(
                    in, layers, [&](auto& r) { r.activation_type = in.i32(); });
                break;
            case type_concat:
                parse_record<layer_model_concat>(in, layers,
                                                 [&](auto& r) { r.concat_dim = in.u32(); });
                break;
            case type_element:
                parse_record<layer_model_element>(in, layers, [&](auto& r) {
                    r.op = in.i32();
                    r.coefficients = in.floats(r.inputs.size());
                });
                break;
            case type_softmax:
                parse_record<layer_model_softmax>(in, layers, no_payload);
                break;
            case type_cost_logreg:
                parse_record<layer_model_cost_logreg>(in, layers, no_payload);
                break;
            case type_softmax_map:
                parse_record<layer_model_softmax_map>(in, layers, no_payload);
                break;
            case type_softmax_map2:
                parse_record<layer_model_softmax_map2>(in, layers, [&](auto& r) {
                    r.map_param_a = in.i32();
                    r.map_param_b = in.i32();
                    r.group_size = in.i32();
                });
                break;
            default:
                throw std::runtime_error("deenpet_deserialize_layer_model(): unknown layer type");
        }
    }
    return in.position();
}

}  // namespace deepnet
