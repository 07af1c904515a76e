// The Lab conversion against OpenCV's, on every 8-bit colour.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "saliency/lab_conversion.h"

namespace smartCrop {
namespace {

TEST(LabConversion, EveryColourAsOpenCvGivesIt) {
    cv::Mat colours(4096, 4096, CV_8UC3), reference;
    for (uint32_t i = 0; i < (1u << 24); ++i) {
        uint8_t* p = colours.data + 3 * size_t{i};
        p[0] = static_cast<uint8_t>(i >> 16);
        p[1] = static_cast<uint8_t>(i >> 8);
        p[2] = static_cast<uint8_t>(i);
    }
    cv::cvtColor(colours, reference, cv::COLOR_RGB2Lab);
    rgb_to_lab(colours.data, colours.total());
    size_t differing = 0;
    for (size_t i = 0; i < colours.total() * 3; ++i)
        differing += colours.data[i] != reference.data[i];
    EXPECT_EQ(differing, 0u);
    // Black and white at the ends of the scale, grey without colour.
    uint8_t ends[9] = {0, 0, 0, 255, 255, 255, 128, 128, 128};
    rgb_to_lab(ends, 3);
    EXPECT_EQ(std::vector<uint8_t>(ends, ends + 9),
              std::vector<uint8_t>({0, 128, 128, 255, 128, 128, 137, 128, 128}));
}

}  // namespace
}  // namespace smartCrop
