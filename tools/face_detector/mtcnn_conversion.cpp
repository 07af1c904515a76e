#include "mtcnn_conversion.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "network_writer.h"

namespace face_detector {

namespace {

using tflite_graph::Graph;
using tflite_graph::Operator;
using tflite_graph::Tensor;

constexpr int kFaceChannel = 1;
// The runtime feeds byte / 255 - 0.5; the networks were trained on
// (byte - 127.5) / 128, which is the same times 255 / 128.
constexpr float kInputScale = 255.0f / 128.0f;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("convert_stage: " + what);
}

// A converted activation: the runtime layer that holds it and its sizes along
// image x, image y and channels. A flat [1, C] tensor is 1 x 1 x C.
struct Mapped {
    std::string layer;
    uint32_t x = 1, y = 1, c = 1;
};

class Converter {
public:
    Converter(const Graph& g, StageOutput output) : g(g), output(output) {}

    std::vector<uint8_t> run() {
        if (g.inputs.size() != 1) fail("expected one input");
        const Tensor& in = tensor(g.inputs[0]);
        if (in.shape.size() != 4 || in.shape[0] != 1 || in.shape[3] != 3)
            fail("expected an input of shape [1, x, y, 3]");
        w.data("data");
        mapped[g.inputs[0]] = {"data", dim(in, 1), dim(in, 2), 3};

        const int32_t target =
            output == StageOutput::kProbability ? probability_output() : landmark_output();
        const std::set<size_t> needed = ops_leading_to(target);
        for (size_t i = 0; i < g.operators.size(); ++i) {
            if (needed.count(i) == 0) continue;
            if (output == StageOutput::kLandmarks &&
                op(i).outputs == std::vector<int32_t>{target}) {
                landmark_head(i);
                return w.bytes();
            }
            i = convert_at(i) - 1;
        }
        if (!mapped.count(target)) fail("the output was not reached");
        return w.bytes();
    }

private:
    const Tensor& tensor(int32_t index) const {
        if (index < 0 || static_cast<size_t>(index) >= g.tensors.size()) fail("missing tensor");
        return g.tensors[static_cast<size_t>(index)];
    }
    static uint32_t dim(const Tensor& t, size_t axis) {
        if (axis >= t.shape.size() || t.shape[axis] < 1)
            fail("tensor \"" + t.name + "\" has no size");
        return static_cast<uint32_t>(t.shape[axis]);
    }
    const Mapped& source(int32_t index) const {
        const auto it = mapped.find(index);
        if (it == mapped.end())
            fail("tensor \"" + tensor(index).name + "\" is used before it is made");
        return it->second;
    }
    const Operator& op(size_t i) const { return g.operators[i]; }
    bool is(size_t i, int32_t code) const { return i < g.operators.size() && op(i).code == code; }
    int32_t in(size_t i, size_t k) const {
        if (k >= op(i).inputs.size()) fail("an operator lacks an input");
        return op(i).inputs[k];
    }
    int32_t out(size_t i) const {
        if (op(i).outputs.size() != 1) fail("an operator has not exactly one output");
        return op(i).outputs[0];
    }
    const std::vector<float>& constant(int32_t index) const {
        const Tensor& t = tensor(index);
        if (t.floats.empty()) fail("tensor \"" + t.name + "\" is not a float constant");
        return t.floats;
    }

    // The output that ends in the softmax's division.
    int32_t probability_output() const {
        for (int32_t o : g.outputs)
            for (const Operator& p : g.operators)
                if (p.code == tflite_graph::kDiv && p.outputs.size() == 1 && p.outputs[0] == o)
                    return o;
        fail("no output ends in a softmax");
    }

    // The output of ten values made by a fully connected layer.
    int32_t landmark_output() const {
        for (int32_t o : g.outputs) {
            const Tensor& t = tensor(o);
            if (t.shape == std::vector<int32_t>{1, 2 * kLandmarks})
                for (const Operator& p : g.operators)
                    if (p.code == tflite_graph::kFullyConnected &&
                        p.outputs == std::vector<int32_t>{o})
                        return o;
        }
        fail("no output of five landmarks");
    }

    std::set<size_t> ops_leading_to(int32_t target) const {
        std::set<int32_t> wanted{target};
        std::set<size_t> ops;
        for (size_t i = g.operators.size(); i-- > 0;) {
            bool makes = false;
            for (int32_t o : op(i).outputs) makes = makes || wanted.count(o) != 0;
            if (!makes) continue;
            ops.insert(i);
            for (int32_t t : op(i).inputs) wanted.insert(t);
        }
        return ops;
    }

    // A layer name from the tensor's name: its second path component
    // ("pnet/conv1/BiasAdd" gives "conv1"), made unique.
    std::string name_for(int32_t index) {
        const std::string& full = tensor(index).name;
        const size_t a = full.find('/');
        std::string base =
            a == std::string::npos ? full : full.substr(a + 1, full.find('/', a + 1) - a - 1);
        if (base.empty()) base = "layer";  // "data" and "Y" are taken from the start
        std::string name = base;
        for (int k = 2; !names.insert(name).second; ++k) name = base + "_" + std::to_string(k);
        return name;
    }

    void check_shape(const Mapped& m, int32_t index) const {
        const Tensor& t = tensor(index);
        const bool flat = t.shape.size() == 2;
        const uint32_t x = flat ? 1 : dim(t, 1), y = flat ? 1 : dim(t, 2),
                       c = dim(t, t.shape.size() - 1);
        if (m.x != x || m.y != y || m.c != c)
            fail("the converted layer \"" + m.layer + "\" has another size than \"" + t.name +
                 "\"");
    }

    // Converts the operator at i, or the pattern that starts there; returns
    // the index of the first operator behind what was converted.
    size_t convert_at(size_t i) {
        const Operator& o = op(i);
        if (o.activation != 0) fail("fused activations are not supported");
        switch (o.code) {
            case tflite_graph::kConv2d:
            case tflite_graph::kFullyConnected:
                kernel_layer(i);
                return i + 1;
            case tflite_graph::kMaxPool2d:
                max_pool(i);
                return i + 1;
            case tflite_graph::kRelu:
                return prelu(i);
            case tflite_graph::kReduceMax:
                return softmax(i);
            default:
                fail("operator " + std::to_string(o.code) + " is not supported here");
        }
    }

    // A convolution, or a fully connected layer as a convolution whose kernel
    // covers its whole input: the same sums, and the output stays a map so
    // that a channel-wise PReLU can follow.
    void kernel_layer(size_t i) {
        const Operator& o = op(i);
        const int32_t inputIndex = in(i, 0);
        const Mapped& x = source(inputIndex);
        const Tensor& wt = tensor(in(i, 1));
        const std::vector<float>& weights = constant(in(i, 1));
        const uint32_t cout = dim(wt, 0);
        uint32_t k0 = x.x, k1 = x.y, s0 = 1, s1 = 1;
        std::vector<float> ours(weights.size());
        if (o.code == tflite_graph::kConv2d) {
            if (wt.shape.size() != 4 || dim(wt, 3) != x.c)
                fail("convolution weights of another shape");
            if (o.dilation_h != 1 || o.dilation_w != 1)
                fail("dilated convolutions are not supported");
            k0 = dim(wt, 1);
            k1 = dim(wt, 2);
            if (o.padding != tflite_graph::kValid && (k0 != 1 || k1 != 1))
                fail("SAME padding is supported for 1 x 1 convolutions only");
            s0 = static_cast<uint32_t>(o.stride_h);
            s1 = static_cast<uint32_t>(o.stride_w);
        } else if (wt.shape.size() != 2 || dim(wt, 1) != static_cast<uint64_t>(x.x) * x.y * x.c) {
            fail("fully connected weights of another shape");
        }
        // TFLite: [out][k0][k1][in], where a fully connected layer's input is
        // flattened channel-last from [1, x, y, c]. Ours: [out][in][k1][k0].
        const uint32_t cin = x.c;
        const bool first = inputIndex == g.inputs[0];
        for (uint32_t oc = 0; oc < cout; ++oc)
            for (uint32_t c = 0; c < cin; ++c)
                for (uint32_t b = 0; b < k1; ++b)
                    for (uint32_t a = 0; a < k0; ++a) {
                        // The runtime's planes are pixel channels 2, 1, 0 of
                        // the red-green-blue image the detector is given.
                        const uint32_t tc = first ? 2 - c : c;
                        const float v = weights[((oc * k0 + a) * k1 + b) * cin + tc];
                        ours[((oc * cin + c) * k1 + b) * k0 + a] = first ? v * kInputScale : v;
                    }
        std::vector<float> biases(cout, 0.0f);
        if (o.inputs.size() > 2 && in(i, 2) >= 0) biases = constant(in(i, 2));
        if (biases.size() != cout) fail("biases of another size");

        if (x.x < k0 || x.y < k1 || s0 < 1 || s1 < 1)
            fail("a kernel larger than its input, or no stride");
        Mapped y{name_for(out(i)), (x.x - k0) / s0 + 1, (x.y - k1) / s1 + 1, cout};
        w.conv(y.layer, x.layer, cout, cin, k0, k1, s0, s1, ours, biases);
        check_shape(y, out(i));
        mapped[out(i)] = y;
    }

    // SAME pooling as explicit padding. With the kernel as wide as the step,
    // s - 1 at the high end gives ceil(n / s) for every input size, which the
    // scanning network needs; otherwise the padding fits the stored size only.
    static netwriter::Pads same_pads(uint32_t n0, uint32_t n1, uint32_t k0, uint32_t k1,
                                     uint32_t s0, uint32_t s1) {
        auto one = [](uint32_t n, uint32_t k, uint32_t s, uint32_t* low, uint32_t* high) {
            if (k == s) {
                *low = 0;
                *high = s - 1;
                return;
            }
            const uint32_t outSize = (n + s - 1) / s;
            const int64_t total = static_cast<int64_t>(outSize - 1) * s + k - n;
            const uint32_t t = total > 0 ? static_cast<uint32_t>(total) : 0;
            *low = t / 2;
            *high = t - t / 2;
        };
        netwriter::Pads p;
        one(n0, k0, s0, &p.low0, &p.high0);
        one(n1, k1, s1, &p.low1, &p.high1);
        return p;
    }

    void max_pool(size_t i) {
        const Operator& o = op(i);
        const Mapped& x = source(in(i, 0));
        const uint32_t k0 = static_cast<uint32_t>(o.filter_h),
                       k1 = static_cast<uint32_t>(o.filter_w);
        const uint32_t s0 = static_cast<uint32_t>(o.stride_h),
                       s1 = static_cast<uint32_t>(o.stride_w);
        if (k0 < 1 || k1 < 1 || s0 < 1 || s1 < 1) fail("a pooling without kernel or stride");
        netwriter::Pads pads;
        if (o.padding == tflite_graph::kSame) pads = same_pads(x.x, x.y, k0, k1, s0, s1);
        Mapped y{name_for(out(i)), (x.x + pads.low0 + pads.high0 - k0) / s0 + 1,
                 (x.y + pads.low1 + pads.high1 - k1) / s1 + 1, x.c};
        w.pool(5, y.layer, x.layer, k0, k1, s0, s1, pads);
        check_shape(y, out(i));
        mapped[out(i)] = y;
    }

    // RELU(x), NEG(x), RELU, NEG, MUL(alpha, .), ADD: relu(x) + alpha min(x, 0).
    // Rebuilt exactly, for any alpha: r = relu(x); m = x - r; s = alpha m by a
    // 1 x 1 convolution with one group per channel; y = r + s.
    size_t prelu(size_t i) {
        const int32_t x = in(i, 0);
        const bool pattern = is(i + 1, tflite_graph::kNeg) && is(i + 2, tflite_graph::kRelu) &&
                             is(i + 3, tflite_graph::kNeg) && is(i + 4, tflite_graph::kMul) &&
                             is(i + 5, tflite_graph::kAdd) && in(i + 1, 0) == x &&
                             in(i + 2, 0) == out(i + 1) && in(i + 3, 0) == out(i + 2);
        if (!pattern) fail("a RELU outside the PReLU pattern");
        const Operator& mul = op(i + 4);
        const int32_t alphaIndex =
            mul.inputs.size() == 2 && mul.inputs[1] == out(i + 3) ? mul.inputs[0] : in(i + 4, 1);
        const Operator& add = op(i + 5);
        const bool addsBoth =
            add.inputs.size() == 2 && ((add.inputs[0] == out(i) && add.inputs[1] == out(i + 4)) ||
                                       (add.inputs[1] == out(i) && add.inputs[0] == out(i + 4)));
        if (!addsBoth) fail("a PReLU that does not add its two halves");
        const Mapped& src = source(x);
        const std::vector<float>& alpha = constant(alphaIndex);
        if (alpha.size() != src.c) fail("PReLU alphas of another count than channels");

        const std::string base = name_for(out(i + 5));
        const std::string r = base + "/relu", m = base + "/negative", s = base + "/scaled";
        w.relu(r, src.layer);
        w.element(m, {src.layer, r}, 1, {1.0f, -1.0f});
        w.conv(s, m, src.c, src.c, 1, 1, 1, 1, alpha, std::vector<float>(src.c, 0.0f), {}, src.c);
        w.element(base, {r, s}, 1, {1.0f, 1.0f});
        Mapped y = src;
        y.layer = base;
        mapped[out(i + 5)] = y;
        return i + 6;
    }

    // REDUCE_MAX, SUB, EXP, SUM, DIV over the channels: the runtime's softmax
    // map; then "Y" keeps the face channel alone.
    size_t softmax(size_t i) {
        const int32_t x = in(i, 0);
        const bool pattern = is(i + 1, tflite_graph::kSub) && is(i + 2, tflite_graph::kExp) &&
                             is(i + 3, tflite_graph::kSum) && is(i + 4, tflite_graph::kDiv) &&
                             in(i + 1, 0) == x && in(i + 1, 1) == out(i) &&
                             in(i + 2, 0) == out(i + 1) && in(i + 3, 0) == out(i + 2) &&
                             in(i + 4, 0) == out(i + 2) && in(i + 4, 1) == out(i + 3);
        if (!pattern) fail("a REDUCE_MAX outside the softmax pattern");
        const size_t rank = tensor(x).shape.size();
        for (size_t k : {i, i + 3}) {
            const std::vector<int32_t>& axes = tensor(in(k, 1)).ints;
            if (axes.size() != 1 || (axes[0] != static_cast<int32_t>(rank) - 1 && axes[0] != -1))
                fail("a softmax over another axis than the channels");
        }
        const Mapped& src = source(x);
        if (src.c <= kFaceChannel) fail("a probability without a face channel");
        const std::string prob = name_for(out(i + 4));
        w.plain(21, prob, {src.layer});
        std::vector<float> pick(src.c, 0.0f);
        pick[kFaceChannel] = 1.0f;
        w.conv("Y", prob, 1, src.c, 1, 1, 1, 1, pick, {0.0f});
        Mapped y = src;
        y.layer = prob;
        mapped[out(i + 4)] = y;
        return i + 5;
    }

    // The landmarks through the runtime's fully connected layer, whose output
    // is flat, so that "Y" gives all ten values; rows reordered from all x
    // then all y to pairs. Then the neutral correction "Y2".
    void landmark_head(size_t i) {
        const Mapped& x = source(in(i, 0));
        if (x.x != 1 || x.y != 1) fail("landmarks from a map");
        const uint32_t inputs = x.c;
        const std::vector<float>& weights = constant(in(i, 1));
        const std::vector<float>& biases = constant(in(i, 2));
        if (weights.size() != 2u * kLandmarks * inputs || biases.size() != 2u * kLandmarks)
            fail("landmark weights of another shape");
        std::vector<float> ours(weights.size()), bias(biases.size());
        for (uint32_t k = 0; k < 2u * kLandmarks; ++k) {
            const uint32_t row = k % 2 == 0 ? k / 2 : kLandmarks + k / 2;
            std::copy(weights.begin() + row * inputs, weights.begin() + (row + 1) * inputs,
                      ours.begin() + k * inputs);
            bias[k] = biases[row];
        }
        w.fc("Y", {x.layer}, {inputs}, 2 * kLandmarks, ours, bias);
        w.fc("Y2", {x.layer}, {inputs}, 3, std::vector<float>(3 * inputs, 0.0f),
             {0.0f, 0.0f, 1.0f});
    }

    static constexpr int32_t kLandmarks = 5;

    const Graph& g;
    const StageOutput output;
    netwriter::NetworkWriter w;
    std::map<int32_t, Mapped> mapped;
    std::set<std::string> names{"data", "Y"};
};

}  // namespace

std::vector<uint8_t> convert_stage(const tflite_graph::Graph& graph, StageOutput output) {
    return Converter(graph, output).run();
}

}  // namespace face_detector
