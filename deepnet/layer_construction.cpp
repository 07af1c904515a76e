// Building the run-time network from the records, and the shared pieces of
// allocation.
#include <algorithm>
#include <atomic>
#include <limits>

#include "deepnet/layer_registry.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

namespace {

// The budget of the network under construction on this thread.
thread_local uint64_t networkBytes = 0;
std::atomic<uint64_t> bufferLimit{uint64_t{1} << 30};

}  // namespace

uint64_t network_buffer_limit() {
    return bufferLimit.load(std::memory_order_relaxed);
}
void set_network_buffer_limit(uint64_t bytes) {
    bufferLimit.store(bytes, std::memory_order_relaxed);
}

uint64_t checked_product(uint64_t a, uint64_t b) {
    if (a != 0 && b > std::numeric_limits<uint64_t>::max() / a) {
        throw std::runtime_error("deepnet_construct_layer_test(): layer sizes overflow");
    }
    return a * b;
}

void count_buffer(uint64_t count) {
    const uint64_t bytes = checked_product(count, sizeof(float));
    const uint64_t limit = network_buffer_limit();
    if (bytes > limit - std::min(networkBytes, limit)) {
        throw std::runtime_error(
            "deepnet_construct_layer_test(): network buffers exceed their limit");
    }
    networkBytes += bytes;
}

uint64_t counted_buffers() {
    return networkBytes;
}
void recount_buffers(uint64_t bytes) {
    networkBytes = bytes;
}

void size_buffer(std::vector<float>& buffer, uint64_t count) {
    count_buffer(count);
    buffer.assign(static_cast<size_t>(count), 0.0f);
}

uint64_t window_positions(uint64_t size, uint64_t padLow, uint64_t padHigh, uint64_t kernel,
                          uint64_t stride, uint64_t padMode, const char* who) {
    if (kernel == 0 || stride == 0) {
        throw std::runtime_error(std::string(who) + ": kernel and stride must be at least 1");
    }
    const uint64_t n = size + padLow + padHigh;
    if (n < kernel)
        throw std::runtime_error(std::string(who) + ": window larger than the padded input");
    const uint64_t q = (n - kernel) / stride;
    return q + 1 + ((padMode != 0 && n - q * stride > kernel) ? 1 : 0);
}

template <class Dtype>
uint64_t layer_test_base<Dtype>::y_size_1d() const {
    if (y_dim < 1 || y_dim > 4) {
        throw std::runtime_error("layer_test_base::y_size_1d(): Incorrect output dimension");
    }
    uint64_t n = 1;
    for (uint64_t d = 0; d < y_dim; ++d) n = checked_product(n, y_size[d]);
    return n;
}

template <class Dtype>
void layer_test_base<Dtype>::set_shape(uint64_t dim, uint64_t s0, uint64_t s1, uint64_t s2,
                                       uint64_t s3) {
    y_dim = dim;
    const uint64_t sizes[4] = {s0, s1, s2, s3};
    for (int d = 0; d < 4; ++d) y_size[d] = static_cast<uint64_t>(d) < dim ? sizes[d] : 0;
}

template <class Dtype>
void layer_test_base<Dtype>::copy_shape(const layer_test_base& from) {
    y_dim = from.y_dim;
    for (int d = 0; d < 4; ++d) y_size[d] = from.y_size[d];
}

template <class Dtype>
void layer_test_base<Dtype>::size_output() {
    // An empty output would be counted as nothing while the matrix read from
    // it is sized from its other dimensions.
    const uint64_t count = checked_product(batch_size, y_size_1d());
    if (count == 0)
        throw std::runtime_error("deepnet_construct_layer_test(): a layer's output is empty");
    size_buffer(y, count);
}

template class layer_test_base<float>;

void deepnet_construct_layer_test(layer_test_list& layers, const layer_model_list& models,
                                  const data_provider_image_label& provider, uint64_t batch) {
    networkBytes = 0;
    for (size_t i = 0; i < models.size(); ++i) {
        const layer_model_base& record = *models[i];
        const layer_kind* kind = find_layer_kind(record.type);
        if (kind == nullptr)
            throw std::runtime_error("deepnet_construct_layer_test(): unknown layer type");
        auto layer = kind->new_layer(provider);
        layer->batch_size = batch;
        if (record.type != type_data) {
            for (const layer_model_base* input : record.inputs) {
                size_t position = 0;
                while (position < models.size() && models[position].get() != input) ++position;
                // Only a layer built before this one can feed it.
                if (position >= layers.size()) {
                    throw std::runtime_error(
                        "deepnet_construct_layer_test(): an input is not an earlier layer");
                }
                layer->inputs.push_back(layers[position].get());
            }
        }
        layer->allocate(record);
        layers.push_back(std::move(layer));
    }
}

void deepnet_reallocate_layer_test(layer_test_list& layers, const layer_model_list& models) {
    if (layers.size() != models.size())
        throw std::runtime_error("deepnet_reallocate_layer_test(): not the records' network");
    networkBytes = 0;
    for (size_t i = 0; i < models.size(); ++i) layers[i]->allocate(*models[i]);
}

}  // namespace deepnet
