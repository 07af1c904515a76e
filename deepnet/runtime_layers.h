// The run-time network: one object per layer record, with its output shape
// computed for the input at hand and its buffers allocated. Built afresh for
// every forward pass, so any input size works and calls share nothing.
#ifndef SMARTCROP_DEEPNET_RUNTIME_LAYERS_H
#define SMARTCROP_DEEPNET_RUNTIME_LAYERS_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "deepnet/layer_models.h"

namespace deepnet {

// The input of a forward pass.
struct data_provider_image_label {
    uint64_t cols = 0, rows = 0, channels = 0, label_size = 1, image_count = 0;
    std::vector<float> image;  // `channels` planes of rows x cols
    std::vector<uint64_t> labels;
};

// Dimension 0 varies fastest: element (x, y, c) of an image-like output sits
// at (c * height + y) * width + x.
template <class Dtype>
class layer_test_base {
public:
    virtual void fprop_test(uint64_t batch, const layer_model_base& record) = 0;
    virtual ~layer_test_base() = default;
    // Sets the output shape, checks the inputs against the record, sizes buffers.
    virtual void allocate(const layer_model_base& record) = 0;

    uint64_t y_size_1d() const;
    const Dtype* x(size_t i = 0) const { return inputs[i]->y.data(); }

    uint64_t batch_size = 1;
    uint64_t y_dim = 0;
    uint64_t y_size[4] = {0, 0, 0, 0};
    std::vector<Dtype> y;
    std::vector<layer_test_base*> inputs;

protected:
    void set_shape(uint64_t dim, uint64_t s0, uint64_t s1 = 0, uint64_t s2 = 0, uint64_t s3 = 0);
    void copy_shape(const layer_test_base& from);
    // Sizes y (zeroed) for the shape, within the network's memory budget.
    void size_output();
};

// Buffers of one run-time network together may not exceed this (1 GiB unless
// set otherwise): a damaged file must not be able to exhaust the host's
// memory. Fuzzing sets a smaller bound to stay fast.
uint64_t network_buffer_limit();
void set_network_buffer_limit(uint64_t bytes);

// a * b, throwing on overflow.
uint64_t checked_product(uint64_t a, uint64_t b);
// Zeroed floats, counted against the budget of the network being built.
void size_buffer(std::vector<float>& buffer, uint64_t count);
// Counts a buffer against the limit without allocating it.
void count_buffer(uint64_t count);
// What the network under construction on this thread has counted so far, and
// a way back to it: a network kept for many runs counts each run's outputs
// from what its buffers took, not on top of the runs before.
uint64_t counted_buffers();
void recount_buffers(uint64_t bytes);

// Output positions along one axis of a windowed layer; throws with
// `who` for a zero kernel or stride, or a window wider than the padded input.
uint64_t window_positions(uint64_t size, uint64_t padLow, uint64_t padHigh, uint64_t kernel,
                          uint64_t stride, uint64_t padMode, const char* who);

using layer_test_list = std::vector<std::shared_ptr<layer_test_base<float>>>;

// One object per record, in record order, each wired to the objects of its
// inputs and allocated. Throws std::runtime_error with the layer's message.
void deepnet_construct_layer_test(layer_test_list& layers, const layer_model_list& models,
                                  const data_provider_image_label& provider, uint64_t batch);
// The same objects allocated again for what their provider now holds, in
// record order: buffers keep their memory when the new sizes fit it.
void deepnet_reallocate_layer_test(layer_test_list& layers, const layer_model_list& models);

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_RUNTIME_LAYERS_H
