// The detector's configuration, model loading and the cascade end to end.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "faces/cascade_model.h"
#include "scratch_folder.h"
#include "synthetic_detector.h"

namespace smartCrop {
namespace {

namespace fs = std::filesystem;

void write(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

TEST(CascadeConfiguration, TokensCommentsAndRecords) {
    const test::ScratchFolder dir("config");
    netwriter::NetworkWriter().data("in").save((dir / "a").string());
    netwriter::NetworkWriter().data("in").relu("r", "in").save((dir / "b.v2").string());
    netwriter::NetworkWriter().data("in").relu("r", "in").relu("s", "r").save(
        (dir / "real.bin").string());
    netwriter::NetworkWriter().data("in").save((dir / "real").string());
    // A comment first, a line of only "#", a comment with numbers, two records
    // on one line, a record over three lines, a folder-and-two-dots fallback,
    // and a token that opens as it stands.
    write(dir / "config", "# first 1 2\n#\na.net 12 0.5 # 99 0.1\nother/dir/b.v2.net 24 0.6 " +
                              (dir / "real.bin").string() + "\n48\n0.7\n");
    const CasCNNModel model((dir / "config").string());
    ASSERT_EQ(model.stage_models.size(), 3u);
    EXPECT_EQ(model.patch_sizes, (std::vector<int32_t>{12, 24, 48}));
    EXPECT_FLOAT_EQ(model.stage_thresholds[2], 0.7f);
    EXPECT_EQ(model.stage_models[0]->layer_models.size(), 1u);
    EXPECT_EQ(model.stage_models[1]->layer_models.size(), 2u);  // b.v2, beside the configuration
    EXPECT_EQ(model.stage_models[2]->layer_models.size(), 3u);  // real.bin, not real
    EXPECT_EQ(resolve_model_path("x/y/model.v2.bin", "folder"), "folder/model.v2");
    EXPECT_EQ(config_folder("data/ovex3"), "data");
    EXPECT_EQ(config_folder("ovex3"), ".");
}

TEST(CascadeConfiguration, MissingOrEmptyConfigurationsAndModels) {
    const test::ScratchFolder dir("missing");
    EXPECT_TRUE(CasCNNModel((dir / "nothing").string()).stage_models.empty());
    write(dir / "empty", "");
    EXPECT_TRUE(CasCNNModel((dir / "empty").string()).stage_models.empty());
    write(dir / "comments", "# only\n#\n");
    EXPECT_TRUE(CasCNNModel((dir / "comments").string()).stage_models.empty());
    EXPECT_TRUE(CasCNNModel(dir.path().string()).stage_models.empty());  // a folder
    write(dir / "lost", "gone.net 12 0.5\n");
    EXPECT_THROW(CasCNNModel((dir / "lost").string()), std::length_error);
}

TEST(Cascade, FindsTheSquareThroughThreeFourAndFiveStages) {
    const test::ScratchFolder dir("stages");
    const cv::Rect face(200, 80, 60, 60);
    const cv::Mat image = test::square_image(320, 240, face);
    const DetectionSettings afw = get_detector_settings("afw");
    for (int stages : {3, 4, 5}) {
        CasCNNModel model(test::write_detector(dir, stages));
        DetectionResult result;
        model.run_cascade(image, afw, result);
        ASSERT_FALSE(result.boxes.empty()) << stages;
        if (stages > 3) {
            ASSERT_EQ(result.boxes.size(), 1u) << stages;  // the late suppression leaves one
        }
        for (const FaceBox& b : result.boxes) {
            const cv::Rect r(b.x, b.y, b.width, b.height);
            EXPECT_GE((r & face).area(), 0.8 * face.area()) << stages;  // boxes frame the square
            EXPECT_TRUE(face.contains(cv::Point(b.x + b.width / 2, b.y + b.height / 2))) << stages;
        }
        if (stages > 3) {
            ASSERT_EQ(result.landmarks[0].size(), 10u);
            const FaceBox& b = result.boxes[0];
            EXPECT_NEAR(result.landmarks[0][4], b.x + 0.5f * b.width, stages == 5 ? b.width : 1.0f);
        }
        EXPECT_GT(model.stage_counters[0].load(), 0u);
    }
    // With padding the boxes come back in the image's own coordinates.
    DetectionSettings padded = afw;
    padded.pad_fraction = 0.2f;
    CasCNNModel model(test::write_detector(dir, 4));
    const std::vector<FaceBox> boxes = model.detect(image, padded);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_GE((cv::Rect(boxes[0].x, boxes[0].y, boxes[0].width, boxes[0].height) & face).area(),
              0.8 * face.area());
    // Other stage counts run nothing; so does an image smaller than the window.
    for (int stages : {1, 2, 6})
        EXPECT_TRUE(CasCNNModel(test::write_detector(dir, stages)).detect(image, afw).empty());
    EXPECT_TRUE(model.detect(test::square_image(3, 3, cv::Rect(0, 0, 1, 1)), afw).empty());
}

TEST(Cascade, ThreadsGetTheSameAnswers) {
    const test::ScratchFolder dir("threads");
    CasCNNModel model(test::write_detector(dir, 4));
    const DetectionSettings afw = get_detector_settings("afw");
    std::vector<cv::Mat> images;
    for (int i = 0; i < 4; ++i)
        images.push_back(test::square_image(320, 240, cv::Rect(40 + 50 * i, 60, 60, 60)));
    std::vector<std::vector<FaceBox>> alone(4), together(4);
    for (int i = 0; i < 4; ++i) alone[i] = model.detect(images[i], afw);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] { together[i] = model.detect(images[i], afw); });
    for (auto& t : threads) t.join();
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(alone[i].size(), together[i].size());
        for (size_t k = 0; k < alone[i].size(); ++k) {
            EXPECT_EQ(alone[i][k].x, together[i][k].x);
            EXPECT_EQ(alone[i][k].score, together[i][k].score);
        }
    }
}

}  // namespace
}  // namespace smartCrop
