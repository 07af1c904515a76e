// The converted face networks against a plain interpreter of the original
// TFLite graphs, written here from the operators' definitions: channel-last
// tensors, explicit broadcasting, SAME padding as TFLite places it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

#include "deepnet/deepnet_model.h"
#include "deepnet/forward_pass.h"
#include "mtcnn_conversion.h"
#include "tflite_graph.h"

namespace {

using namespace tflite_graph;

struct Nd {
    std::vector<int32_t> shape;
    std::vector<float> v;
};

size_t count(const std::vector<int32_t>& shape) {
    size_t n = 1;
    for (int32_t d : shape) n *= static_cast<size_t>(d);
    return n;
}

// Output size and low padding along one axis.
void window(int32_t n, int32_t k, int32_t s, int32_t padding, int32_t* out, int32_t* low) {
    if (padding == kValid) {
        *out = (n - k) / s + 1;
        *low = 0;
    } else {
        *out = (n + s - 1) / s;
        *low = std::max((*out - 1) * s + k - n, 0) / 2;
    }
}

Nd conv_or_pool(const Operator& op, const Nd& x, const Nd* w, const Nd* b) {
    const int32_t H = x.shape[1], W = x.shape[2], C = x.shape[3];
    const bool pool = w == nullptr;
    const int32_t kh = pool ? op.filter_h : w->shape[1], kw = pool ? op.filter_w : w->shape[2];
    const int32_t O = pool ? C : w->shape[0];
    int32_t oh, ow, ph, pw;
    window(H, kh, op.stride_h, op.padding, &oh, &ph);
    window(W, kw, op.stride_w, op.padding, &ow, &pw);
    Nd y{{1, oh, ow, O}, std::vector<float>(count({1, oh, ow, O}))};
    for (int32_t i = 0; i < oh; ++i)
        for (int32_t j = 0; j < ow; ++j)
            for (int32_t o = 0; o < O; ++o) {
                float acc = pool ? -INFINITY : b->v[o];
                for (int32_t a = 0; a < kh; ++a)
                    for (int32_t c = 0; c < kw; ++c) {
                        const int32_t r = i * op.stride_h - ph + a, q = j * op.stride_w - pw + c;
                        if (r < 0 || r >= H || q < 0 || q >= W) continue;
                        const float* px = &x.v[((size_t)r * W + q) * C];
                        if (pool) {
                            acc = std::max(acc, px[o]);
                        } else {
                            for (int32_t ch = 0; ch < C; ++ch)
                                acc += px[ch] * w->v[(((size_t)o * kh + a) * kw + c) * C + ch];
                        }
                    }
                y.v[((size_t)i * ow + j) * O + o] = acc;
            }
    return y;
}

template <class F>
Nd broadcast(const Nd& a, const Nd& b, F f) {
    const size_t rank = std::max(a.shape.size(), b.shape.size());
    auto padded = [rank](std::vector<int32_t> s) {
        s.insert(s.begin(), rank - s.size(), 1);
        return s;
    };
    const std::vector<int32_t> sa = padded(a.shape), sb = padded(b.shape);
    Nd y;
    for (size_t d = 0; d < rank; ++d) y.shape.push_back(std::max(sa[d], sb[d]));
    y.v.resize(count(y.shape));
    for (size_t i = 0; i < y.v.size(); ++i) {
        size_t rest = i, ia = 0, ib = 0, ma = 1, mb = 1;
        for (size_t d = rank; d-- > 0;) {
            const size_t at = rest % y.shape[d];
            rest /= y.shape[d];
            ia += (sa[d] == 1 ? 0 : at) * ma;
            ib += (sb[d] == 1 ? 0 : at) * mb;
            ma *= sa[d];
            mb *= sb[d];
        }
        y.v[i] = f(a.v[ia], b.v[ib]);
    }
    return y;
}

Nd reduce_last(const Nd& x, bool max) {
    const size_t n = x.shape.back(), outer = x.v.size() / n;
    Nd y{x.shape, std::vector<float>(outer)};
    y.shape.back() = 1;
    for (size_t i = 0; i < outer; ++i) {
        float acc = max ? -INFINITY : 0.0f;
        for (size_t k = 0; k < n; ++k)
            acc = max ? std::max(acc, x.v[i * n + k]) : acc + x.v[i * n + k];
        y.v[i] = acc;
    }
    return y;
}

// Runs the whole graph on an image of any size; returns every tensor.
std::vector<Nd> interpret(const Graph& g, const cv::Mat& rgb) {
    std::vector<Nd> t(g.tensors.size());
    for (size_t i = 0; i < g.tensors.size(); ++i)
        if (g.tensors[i].constant()) t[i] = {g.tensors[i].shape, g.tensors[i].floats};
    Nd& in = t[g.inputs[0]];
    in.shape = {1, rgb.cols, rgb.rows, 3};  // transposed: axis 1 runs along x
    in.v.resize(count(in.shape));
    for (int x = 0; x < rgb.cols; ++x)
        for (int y = 0; y < rgb.rows; ++y)
            for (int c = 0; c < 3; ++c)
                in.v[((size_t)x * rgb.rows + y) * 3 + c] =
                    (rgb.at<cv::Vec3b>(y, x)[c] - 127.5f) / 128.0f;
    for (const Operator& op : g.operators) {
        const Nd& a = t[op.inputs[0]];
        Nd& y = t[op.outputs[0]];
        switch (op.code) {
            case kConv2d:
                y = conv_or_pool(op, a, &t[op.inputs[1]], &t[op.inputs[2]]);
                break;
            case kMaxPool2d:
                y = conv_or_pool(op, a, nullptr, nullptr);
                break;
            case kFullyConnected: {
                const Nd& w = t[op.inputs[1]];
                const size_t O = w.shape[0], N = w.shape[1];
                y = {{1, (int32_t)O}, t[op.inputs[2]].v};
                for (size_t o = 0; o < O; ++o)
                    for (size_t n = 0; n < N; ++n) y.v[o] += w.v[o * N + n] * a.v[n];
                break;
            }
            case kRelu:
                y = broadcast(a, a, [](float p, float) { return p > 0 ? p : 0.0f; });
                break;
            case kNeg:
                y = broadcast(a, a, [](float p, float) { return -p; });
                break;
            case kExp:
                y = broadcast(a, a, [](float p, float) { return std::exp(p); });
                break;
            case kAdd:
                y = broadcast(a, t[op.inputs[1]], std::plus<float>());
                break;
            case kSub:
                y = broadcast(a, t[op.inputs[1]], std::minus<float>());
                break;
            case kMul:
                y = broadcast(a, t[op.inputs[1]], std::multiplies<float>());
                break;
            case kDiv:
                y = broadcast(a, t[op.inputs[1]], std::divides<float>());
                break;
            case kReduceMax:
                y = reduce_last(a, true);
                break;
            case kSum:
                y = reduce_last(a, false);
                break;
            default:
                ADD_FAILURE() << "operator " << op.code;
                return t;
        }
    }
    return t;
}

const std::string kData = SMARTCROP_SOURCE_DIR "/data/";
const std::string kOriginals = SMARTCROP_SOURCE_DIR "/tests/data/mtcnn/";

std::vector<uint8_t> file_bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
}

// The tensor of a graph output by its last name component ("prob1", ...).
const Nd& output(const Graph& g, const std::vector<Nd>& t, const std::string& suffix) {
    for (int32_t o : g.outputs) {
        const std::string& n = g.tensors[o].name;
        if (n.size() >= suffix.size() &&
            n.compare(n.size() - suffix.size(), suffix.size(), suffix) == 0)
            return t[o];
    }
    throw std::runtime_error("no output " + suffix);
}

cv::Mat random_image(int width, int height, unsigned seed) {
    cv::Mat m(height, width, CV_8UC3);
    std::mt19937 rng(seed);
    for (auto it = m.begin<cv::Vec3b>(); it != m.end<cv::Vec3b>(); ++it)
        for (int c = 0; c < 3; ++c) (*it)[c] = static_cast<uint8_t>(rng() & 255);
    return m;
}

// The portrait, or with `face` set its face alone, at the given size.
cv::Mat portrait(int width, int height, bool face = false) {
    cv::Mat bgr = cv::imread(SMARTCROP_SOURCE_DIR "/tests/data/grace_hopper.jpg"), rgb;
    cv::cvtColor(bgr, rgb, cv::COLOR_BGR2RGB);
    if (face) rgb = rgb(cv::Rect(114, 66, 135, 135));
    cv::resize(rgb, rgb, cv::Size(width, height), 0, 0, cv::INTER_AREA);
    return rgb;
}

struct Stage {
    std::string tflite, converted;
};

TEST(FaceDetectorConversion, ScanningNetworkMatchesTheGraphAtAnySize) {
    const Graph g = read_graph_file(kOriginals + "pnet.tflite");
    const deepnet::DeepnetModel model(kData + "mtcnn-pnet");
    int compared = 0;
    float largest = 0.0f;
    for (const cv::Mat& image : {random_image(12, 12, 1), random_image(13, 17, 2),
                                 random_image(40, 29, 3), portrait(51, 60), portrait(96, 113)}) {
        const std::vector<Nd> t = interpret(g, image);
        const Nd& prob = output(g, t, "prob1");  // [1, x, y, 2], the face at 1
        mp::matrix y;
        deepnet::deepnet_compute_feature(model, y, image, "Y");
        ASSERT_EQ(y.cols, prob.shape[1]);
        ASSERT_EQ(y.rows, prob.shape[2]);
        for (int32_t x = 0; x < y.cols; ++x)
            for (int32_t r = 0; r < y.rows; ++r) {
                const float want = prob.v[((size_t)x * y.rows + r) * 2 + 1];
                EXPECT_NEAR(y.at(r, x), want, 1e-5f) << "at " << x << "," << r;
                largest = std::max(largest, want);
                ++compared;
            }
    }
    EXPECT_GT(compared, 800);
    EXPECT_GT(largest, 0.9f);  // the portrait reaches confident positions
}

TEST(FaceDetectorConversion, PatchNetworksMatchTheGraph) {
    for (const auto& [tflite, converted, side] :
         {std::tuple<std::string, std::string, int>{"rnet.tflite", "mtcnn-rnet", 24},
          {"onet.tflite", "mtcnn-onet", 48}}) {
        const Graph g = read_graph_file(kOriginals + tflite);
        const deepnet::DeepnetModel model(kData + converted);
        std::vector<float> seen;
        for (unsigned seed = 0; seed < 4; ++seed) {
            const cv::Mat image =
                seed == 3 ? portrait(side, side, true) : random_image(side, side, seed);
            const std::vector<Nd> t = interpret(g, image);
            mp::matrix y;
            deepnet::deepnet_compute_feature(model, y, image, "Y");
            ASSERT_EQ(y.rows * y.cols, 1) << converted;
            EXPECT_NEAR(y.data[0], output(g, t, "prob1").v[1], 1e-5f) << converted << " " << seed;
            seen.push_back(y.data[0]);
        }
        EXPECT_GT(seen.back(), 0.5f) << converted << ": the portrait is a face";
    }
}

TEST(FaceDetectorConversion, RefiningNetworkGivesLandmarkPairsAndANeutralCorrection) {
    const Graph g = read_graph_file(kOriginals + "onet.tflite");
    const deepnet::DeepnetModel model(kData + "mtcnn-onet-landmarks");
    for (unsigned seed = 0; seed < 3; ++seed) {
        const cv::Mat image = seed == 2 ? portrait(48, 48, true) : random_image(48, 48, seed + 10);
        const std::vector<Nd> t = interpret(g, image);
        const Nd& points = output(g, t, "conv6-3");  // all x, then all y
        std::vector<mp::matrix> y;
        deepnet::deepnet_compute_feature(model, y, image, {"Y2", "Y"});
        ASSERT_EQ(y.size(), 2u);
        ASSERT_EQ(y[0].cols, 10);
        for (int k = 0; k < 5; ++k) {
            EXPECT_NEAR(y[0].data[2 * k], points.v[k], 1e-5f);
            EXPECT_NEAR(y[0].data[2 * k + 1], points.v[5 + k], 1e-5f);
        }
        ASSERT_EQ(y[1].cols, 3);
        EXPECT_EQ(y[1].data[0], 0.0f);
        EXPECT_EQ(y[1].data[1], 0.0f);
        EXPECT_EQ(y[1].data[2], 1.0f);
    }
}

TEST(FaceDetectorConversion, ShippedFilesAreTheConvertersOutput) {
    using face_detector::StageOutput;
    for (const auto& [tflite, converted, kind] :
         {std::tuple<std::string, std::string, StageOutput>{"pnet.tflite", "mtcnn-pnet",
                                                            StageOutput::kProbability},
          {"rnet.tflite", "mtcnn-rnet", StageOutput::kProbability},
          {"onet.tflite", "mtcnn-onet", StageOutput::kProbability},
          {"onet.tflite", "mtcnn-onet-landmarks", StageOutput::kLandmarks}}) {
        EXPECT_EQ(face_detector::convert_stage(read_graph_file(kOriginals + tflite), kind),
                  file_bytes(kData + converted))
            << converted << " is stale: run scripts/convert_face_detector.sh";
    }
}

TEST(FaceDetectorConversion, DamagedOrForeignGraphsAreRefusedWithAReason) {
    const std::vector<uint8_t> whole = file_bytes(kOriginals + "pnet.tflite");
    size_t prefixes = 0, refused = 0;
    for (size_t n = 0; n < whole.size(); n += 61, ++prefixes) {
        try {
            read_graph(std::vector<uint8_t>(whole.begin(), whole.begin() + n));
        } catch (const std::runtime_error&) {
            ++refused;
        }
    }
    EXPECT_EQ(refused, prefixes);
    std::vector<uint8_t> renamed = whole;
    renamed[5] = 'X';
    EXPECT_THROW(read_graph(renamed), std::runtime_error);

    Graph g = read_graph(whole);
    for (Operator& op : g.operators)
        if (op.code == kMaxPool2d) op.code = 1;  // AVERAGE_POOL_2D
    try {
        face_detector::convert_stage(g);
        FAIL() << "an unsupported operator was converted";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "convert_stage: operator 1 is not supported here");
    }
    EXPECT_THROW(
        face_detector::convert_stage(read_graph(whole), face_detector::StageOutput::kLandmarks),
        std::runtime_error);  // the scanning network has no landmarks
}

}  // namespace
