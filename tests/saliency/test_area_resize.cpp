// The area resize against OpenCV's, byte for byte, on the paths it takes
// itself and on those it hands to OpenCV.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <random>

#include "saliency/area_resize.h"

namespace smartCrop {
namespace {

// Noise in patches and smooth ramps, so that sums round both ways.
cv::Mat test_image(int width, int height, std::mt19937& random) {
    cv::Mat image(height, width, CV_8UC3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c)
                image.at<cv::Vec3b>(y, x)[c] = static_cast<uint8_t>(
                    (x / 5 + y / 3) % 2 ? random() % 256 : (x * (c + 2) + y * 7) % 256);
    return image;
}

TEST(AreaResize, SameBytesAsOpenCv) {
    std::mt19937 random(11);
    struct Case {
        int width, height;
        double factor;
    };
    // The saliency's 300-pixel copies, other shrinks (one whose cells end
    // within a hundredth of a pixel), a whole factor, a factor of one, an
    // enlargement, and a thin image.
    const Case cases[] = {{640, 427, 300.0 / 640},
                          {427, 640, 300.0f / 640},
                          {640, 480, 300.0f / 640},
                          {1000, 999, 0.3},
                          {33, 17, 0.77},
                          {600, 400, 0.5},
                          {64, 48, 1.0},
                          {50, 30, 2.5},
                          {3001, 12, 0.1},
                          {1000, 20, 1 / 1.004}};
    for (const Case& c : cases) {
        const cv::Mat image = test_image(c.width, c.height, random);
        cv::Mat ours, theirs;
        cv::resize(image, theirs, cv::Size(), c.factor, c.factor, cv::INTER_AREA);
        resize_area(image, c.factor, ours);
        ASSERT_EQ(ours.size(), theirs.size()) << c.width << " x " << c.height;
        EXPECT_EQ(cv::norm(ours, theirs, cv::NORM_INF), 0.0) << c.width << " x " << c.height;
    }
    // A window into a larger image: rows apart, and a last pixel followed
    // by bytes of the next row.
    const cv::Mat large = test_image(700, 500, random);
    const cv::Mat window = large(cv::Rect(13, 7, 640, 427));
    cv::Mat ours, theirs;
    cv::resize(window, theirs, cv::Size(), 0.46875, 0.46875, cv::INTER_AREA);
    resize_area(window, 0.46875, ours);
    EXPECT_EQ(cv::norm(ours, theirs, cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace smartCrop
