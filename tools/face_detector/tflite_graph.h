// A TFLite model read into plain records: tensors with their constant data,
// operators with the options the small face networks use. Enough to convert
// or to interpret such a network without TensorFlow.
#ifndef SMARTCROP_TOOLS_TFLITE_GRAPH_H
#define SMARTCROP_TOOLS_TFLITE_GRAPH_H

#include <cstdint>
#include <string>
#include <vector>

namespace tflite_graph {

enum Builtin : int32_t {
    kAdd = 0,
    kConv2d = 3,
    kFullyConnected = 9,
    kMaxPool2d = 17,
    kMul = 18,
    kRelu = 19,
    kSub = 41,
    kDiv = 42,
    kExp = 47,
    kNeg = 59,
    kSum = 74,
    kReduceMax = 82,
};

enum Padding : int32_t { kSame = 0, kValid = 1 };

struct Tensor {
    std::string name;
    std::vector<int32_t> shape;
    int32_t type = 0;           // 0 float32, 2 int32
    std::vector<float> floats;  // constant float data, empty for activations
    std::vector<int32_t> ints;  // constant int32 data
    bool constant() const { return !floats.empty() || !ints.empty(); }
};

struct Operator {
    int32_t code = -1;
    std::vector<int32_t> inputs, outputs;
    // Convolution and pooling options; stride and filter "h" run along the
    // tensor's axis 1, "w" along axis 2.
    int32_t padding = kSame;
    int32_t stride_h = 1, stride_w = 1;
    int32_t filter_h = 0, filter_w = 0;
    int32_t dilation_h = 1, dilation_w = 1;
    int32_t activation = 0;  // fused: 0 none, 1 RELU
};

struct Graph {
    std::vector<Tensor> tensors;
    std::vector<Operator> operators;
    std::vector<int32_t> inputs, outputs;
};

// Throws std::runtime_error naming the problem for anything that is not a
// well-formed single-subgraph model with float32 or int32 tensors.
Graph read_graph(const std::vector<uint8_t>& bytes);
Graph read_graph_file(const std::string& path);

}  // namespace tflite_graph

#endif  // SMARTCROP_TOOLS_TFLITE_GRAPH_H
