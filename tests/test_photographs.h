// The committed photographs of tests/data as the library's images.
#ifndef SMARTCROP_TESTS_TEST_PHOTOGRAPHS_H
#define SMARTCROP_TESTS_TEST_PHOTOGRAPHS_H

#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "test_images.h"

namespace test {

inline std::unique_ptr<Image> Photograph(const std::string& name) {
    const cv::Mat bgr = cv::imread(SMARTCROP_SOURCE_DIR "/tests/data/" + name);
    return std::make_unique<Image>(bgr.cols, bgr.rows, [&](int x, int y) {
        const cv::Vec3b p = bgr.at<cv::Vec3b>(y, x);
        return Rgb{p[2], p[1], p[0]};
    });
}

}  // namespace test

#endif  // SMARTCROP_TESTS_TEST_PHOTOGRAPHS_H
