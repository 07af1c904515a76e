// The face networks as shipped: the converter's output, refusing damaged
// graphs, and the outputs the runtime gives with them.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

#include "deepnet/deepnet_model.h"
#include "deepnet/forward_pass.h"
#include "failure_text.h"
#include "mtcnn_conversion.h"
#include "tflite_graph.h"

namespace {

using namespace tflite_graph;

const std::string kData = SMARTCROP_SOURCE_DIR "/data/";
const std::string kOriginals = SMARTCROP_SOURCE_DIR "/tests/data/mtcnn/";

std::vector<uint8_t> file_bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
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

// Recorded when the conversion was checked against a plain interpreter of the
// original graphs (channel-last tensors, TFLite's SAME padding; every output
// within 1e-5), so a change of the runtime or of the files shows here. The
// runtime computes in a fixed order, so the builds agree far below the
// printed digits.
TEST(FaceDetectorConversion, ShippedNetworksGiveTheirRecordedOutputs) {
    const deepnet::DeepnetModel pnet(kData + "mtcnn-pnet");
    const struct {
        cv::Mat image;
        int rows, cols, bestRow, bestCol;
        float best, first, middle, last;
    } scans[] = {
        {portrait(51, 60), 25, 21, 6, 13, 0.999545276f, 0.0454104133f, 0.0221420154f,
         0.0057838182f},
        {portrait(96, 113), 52, 43, 5, 27, 0.999829769f, 0.0212663095f, 0.0110819805f,
         0.00628629699f},
    };
    for (const auto& s : scans) {
        mp::matrix y;
        deepnet::deepnet_compute_feature(pnet, y, s.image, "Y");
        ASSERT_EQ(y.rows, s.rows);
        ASSERT_EQ(y.cols, s.cols);
        int bestRow = 0, bestCol = 0;
        for (int32_t r = 0; r < y.rows; ++r)
            for (int32_t x = 0; x < y.cols; ++x)
                if (y.at(r, x) > y.at(bestRow, bestCol)) bestRow = r, bestCol = x;
        EXPECT_EQ(bestRow, s.bestRow);
        EXPECT_EQ(bestCol, s.bestCol);
        EXPECT_NEAR(y.at(bestRow, bestCol), s.best, 1e-6f);
        EXPECT_NEAR(y.at(0, 0), s.first, 1e-6f);
        EXPECT_NEAR(y.at(y.rows / 2, y.cols / 2), s.middle, 1e-6f);
        EXPECT_NEAR(y.at(y.rows - 1, y.cols - 1), s.last, 1e-6f);
    }
    // Random patches (seeds 0 to 2) and the face alone.
    const std::tuple<std::string, int, std::array<float, 4>> patches[] = {
        {"mtcnn-rnet", 24, {0.0225500073f, 0.0679140165f, 0.00842106435f, 0.996597826f}},
        {"mtcnn-onet", 48, {0.00124570075f, 0.00073068752f, 0.000188127378f, 0.999982595f}},
    };
    for (const auto& [converted, side, expected] : patches) {
        const deepnet::DeepnetModel model(kData + converted);
        for (unsigned seed = 0; seed < 4; ++seed) {
            const cv::Mat image =
                seed == 3 ? portrait(side, side, true) : random_image(side, side, seed);
            mp::matrix y;
            deepnet::deepnet_compute_feature(model, y, image, "Y");
            ASSERT_EQ(y.rows * y.cols, 1) << converted;
            EXPECT_NEAR(y.data[0], expected[seed], 1e-6f) << converted << " " << seed;
        }
    }
    // The refining network: five landmarks as (x, y) pairs, and the neutral correction.
    const deepnet::DeepnetModel refine(kData + "mtcnn-onet-landmarks");
    std::vector<mp::matrix> y;
    deepnet::deepnet_compute_feature(refine, y, portrait(48, 48, true), {"Y2", "Y"});
    ASSERT_EQ(y.size(), 2u);
    const float points[10] = {0.245278835f, 0.459528089f, 0.681130648f, 0.424300522f, 0.479745209f,
                              0.675556064f, 0.290595055f, 0.886088073f, 0.674186945f, 0.865378976f};
    ASSERT_EQ(y[0].cols, 10);
    for (int k = 0; k < 10; ++k) EXPECT_NEAR(y[0].data[k], points[k], 1e-6f) << k;
    ASSERT_EQ(y[1].cols, 3);
    EXPECT_EQ(std::vector<float>(y[1].data, y[1].data + 3), (std::vector<float>{0, 0, 1}));
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
    EXPECT_EQ(test::FailureOf([&] { face_detector::convert_stage(g); }),
              "convert_stage: operator 1 is not supported here");
    EXPECT_THROW(
        face_detector::convert_stage(read_graph(whole), face_detector::StageOutput::kLandmarks),
        std::runtime_error);  // the scanning network has no landmarks
}

}  // namespace
