// The anti-aliased resize, the presets and the pyramid.
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "faces/antialias_resize.h"
#include "faces/cascade_detection.h"

namespace smartCrop {
namespace {

TEST(AntialiasResize, SameSizeIsExactAndShapesAreKept) {
    cv::Mat image(17, 23, CV_8UC3);
    cv::randu(image, 0, 256);
    const cv::Mat same = resize_antialias(image, image.size());
    EXPECT_EQ(cv::norm(same, image, cv::NORM_INF), 0);
    const cv::Mat half = resize_antialias(image, cv::Size(11, 8));
    EXPECT_EQ(half.size(), cv::Size(11, 8));
    EXPECT_EQ(resize_image(image, cv::Size(40, 30), 1).size(), cv::Size(40, 30));
    EXPECT_EQ(resize_image(image, cv::Size(40, 30), 0).size(), cv::Size(40, 30));
}

TEST(AntialiasResize, HalvingAveragesTwelveTaps) {
    // A flat row halves to the same value; a single bright pixel far from the
    // edges reaches the outputs whose 12-tap windows hold it, and no others.
    cv::Mat flat(1, 60, CV_8UC3, cv::Scalar::all(100));
    const cv::Mat h = resize_antialias_oracle(flat, 30, 1);
    EXPECT_EQ(cv::norm(h, cv::Mat(1, 30, CV_8UC3, cv::Scalar::all(100)), cv::NORM_INF), 0);
    cv::Mat impulse(1, 60, CV_8UC3, cv::Scalar::all(0));
    impulse.at<cv::Vec3b>(0, 30) = cv::Vec3b(255, 255, 255);
    const cv::Mat r = resize_antialias_oracle(impulse, 30, 1);
    for (int i = 0; i < 30; ++i) {
        const float c = (i + 0.5f) * 2.0f;
        if (std::fabs(30 - c + 0.5f) >= 6.0f) {
            EXPECT_EQ(r.at<cv::Vec3b>(0, i)[0], 0) << i;
        }
    }
    EXPECT_GT(r.at<cv::Vec3b>(0, 15)[0], 100);
}

TEST(AntialiasResize, WrongTypeAndSizeMessages) {
    std::ostringstream err;
    std::streambuf* old = std::cerr.rdbuf(err.rdbuf());
    const cv::Mat grey(5, 5, CV_8UC1, cv::Scalar(3));
    const cv::Mat back = resize_antialias(grey, cv::Size(2, 2));
    const cv::Mat none = resize_antialias_oracle(cv::Mat(4, 4, CV_8UC3), 2, 2);
    std::cerr.rdbuf(old);
    EXPECT_EQ(back.data, grey.data);  // the source itself, not resized
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(err.str(), "Error: resize_antialias type\nError: resize_antialias_oracle size\n");
}

TEST(DetectorSettings, PresetsAndThePyramidOfAfw) {
    // The preset the library asks for; its numbers show in the pyramid below.
    const DetectionSettings afw = get_detector_settings("afw");
    EXPECT_EQ(get_detector_settings("AFW").long_side, 1480);  // names are case sensitive

    // A long side of 1024: ratio 1.25, smallest face 53, base long side 289.
    const cv::Mat image(683, 1024, CV_8UC3, cv::Scalar::all(9));
    std::vector<cv::Mat> levels;
    std::vector<float> scales;
    build_pyramid(image, afw, levels, scales);
    ASSERT_FALSE(levels.empty());
    EXPECT_EQ(levels[0].cols, 289);
    EXPECT_NEAR(scales[0], 12.0f / 53 * 1.25f, 1e-6f);
    for (const cv::Mat& l : levels) EXPECT_GE(std::min(l.rows, l.cols), 12);
    EXPECT_LE(levels.size(), 12u);
    // An image whose short side stays below the window at the base scale has no level.
    build_pyramid(cv::Mat(10, 300, CV_8UC3, cv::Scalar::all(1)), afw, levels, scales);
    EXPECT_TRUE(levels.empty());
}

}  // namespace
}  // namespace smartCrop
