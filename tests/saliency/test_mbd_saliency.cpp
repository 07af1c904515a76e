// Minimum-barrier saliency: barrier distances, strip models, the whole map.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "saliency/mbd_saliency.h"

namespace smartCrop {
namespace {

cv::Mat grey3(int rows, int cols, uint8_t value) {
    return cv::Mat(rows, cols, CV_8UC3, cv::Scalar::all(value));
}

TEST(MbdSaliency, RasterScanHandWorked) {
    // 5 by 5 of value 10; row 2 holds 200 at column 2 and 120 at column 3.
    // Reverse pass: (2,3) reaches the frame through its right neighbour with
    // barrier 120 - 10 = 110; (2,2) through (2,3) with 200 - 10 = 190; every
    // other interior pixel finds a flat path of barrier 0.
    cv::Mat image = grey3(5, 5, 10);
    image.at<cv::Vec3b>(2, 2) = cv::Vec3b(200, 200, 200);
    image.at<cv::Vec3b>(2, 3) = cv::Vec3b(120, 120, 120);
    const cv::Mat barrier = mbd_raster_scan(image);
    ASSERT_EQ(barrier.type(), CV_32F);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 5; ++x) {
            const float expected = (y == 2 && x == 2)   ? 1.0f
                                   : (y == 2 && x == 3) ? 110.0f / 190
                                                        : 0.0f;
            EXPECT_FLOAT_EQ(barrier.at<float>(y, x), expected) << y << "," << x;
        }
    }
}

// The channels are scanned side by side; each must come out as a scan of
// that channel alone would leave it. Reference: forward and backward passes
// over one channel at a time, the neighbour along the row first. Rows are
// scanned in pairs: an odd and an even number of interior rows.
void expect_channels_scan_independently(int H, int W) {
    cv::Mat image(H, W, CV_8UC3);
    cv::randu(image, 0, 256);
    cv::Mat D(H, W, CV_8UC3, cv::Scalar::all(255)), U = image.clone(), L = image.clone();
    D.row(0).setTo(0);
    D.row(H - 1).setTo(0);
    D.col(0).setTo(0);
    D.col(W - 1).setTo(0);
    for (int c = 0; c < 3; ++c) {
        for (int reverse : {1, 0, 1}) {
            const int s = reverse ? -1 : 1;
            for (int y = reverse ? H - 2 : 1; y != (reverse ? 0 : H - 1); y += s) {
                for (int x = reverse ? W - 2 : 1; x != (reverse ? 0 : W - 1); x += s) {
                    const uint8_t v = image.at<cv::Vec3b>(y, x)[c];
                    for (const auto& [ny, nx] : {std::pair{y, x - s}, std::pair{y - s, x}}) {
                        const uint8_t up = std::max(U.at<cv::Vec3b>(ny, nx)[c], v);
                        const uint8_t lo = std::min(L.at<cv::Vec3b>(ny, nx)[c], v);
                        if (up - lo < D.at<cv::Vec3b>(y, x)[c]) {
                            D.at<cv::Vec3b>(y, x)[c] = static_cast<uint8_t>(up - lo);
                            U.at<cv::Vec3b>(y, x)[c] = up;
                            L.at<cv::Vec3b>(y, x)[c] = lo;
                        }
                    }
                }
            }
        }
    }
    cv::Mat expected(H, W, CV_32F);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            const cv::Vec3b d = D.at<cv::Vec3b>(y, x);
            expected.at<float>(y, x) = static_cast<float>(
                (static_cast<float>(d[0]) + static_cast<float>(d[1]) + static_cast<float>(d[2])) /
                3.0);
        }
    }
    cv::normalize(expected, expected, 0.0, 1.0, cv::NORM_MINMAX);
    const cv::Mat barrier = mbd_raster_scan(image);
    EXPECT_EQ(cv::countNonZero(barrier != expected), 0) << H << " x " << W;
}

TEST(MbdSaliency, ChannelsScanIndependently) {
    expect_channels_scan_independently(17, 23);
    expect_channels_scan_independently(18, 9);
}

TEST(MbdSaliency, NoInteriorMeansZeroBarrier) {
    cv::Mat thin = grey3(2, 7, 10);
    thin.at<cv::Vec3b>(0, 3) = cv::Vec3b(250, 0, 0);
    const cv::Mat barrier = mbd_raster_scan(thin);
    EXPECT_EQ(cv::countNonZero(barrier), 0);
}

TEST(MbdSaliency, StripsOfA300By200Image) {
    cv::Rect s[4];
    border_strips(300, 200, 0.1f, s);
    EXPECT_EQ(s[0], cv::Rect(0, 0, 299, 19));
    EXPECT_EQ(s[1], cv::Rect(0, 0, 29, 199));
    EXPECT_EQ(s[2], cv::Rect(270, 0, 29, 199));
    EXPECT_EQ(s[3], cv::Rect(0, 180, 299, 19));
    // One row or column still gets four non-empty strips inside the image.
    border_strips(1, 9, 0.1f, s);
    for (const cv::Rect& r : s) {
        EXPECT_GE(r.width, 1);
        EXPECT_LE(r.x + r.width, 1);
    }
}

TEST(MbdSaliency, UniformImageGivesZerosAtInputSize) {
    const cv::Mat map = compute_mbd_saliency(grey3(120, 90, 128), false);
    EXPECT_EQ(map.size(), cv::Size(90, 120));
    EXPECT_EQ(map.type(), CV_32F);
    EXPECT_EQ(cv::countNonZero(map), 0);
}

// The plain definition of reconstruction: dilate (erode) the marker by the
// element, bound it by the image, until nothing changes.
cv::Mat reference_reconstruction(const cv::Mat& image, const cv::Mat& element, bool dilate) {
    cv::Mat out;
    if (dilate) {
        cv::erode(image, out, cv::Mat(), cv::Point(-1, -1), 2, cv::BORDER_CONSTANT,
                  cv::morphologyDefaultBorderValue());
    } else {
        cv::dilate(image, out, cv::Mat(), cv::Point(-1, -1), 2, cv::BORDER_CONSTANT,
                   cv::morphologyDefaultBorderValue());
    }
    cv::Mat previous;
    do {
        out.copyTo(previous);
        if (dilate) {
            cv::dilate(previous, out, element, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
                       cv::morphologyDefaultBorderValue());
            out = cv::min(out, image);
        } else {
            cv::erode(previous, out, element, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
                      cv::morphologyDefaultBorderValue());
            out = cv::max(out, image);
        }
    } while (cv::countNonZero(previous != out) > 0);
    return out;
}

TEST(MbdSaliency, ReconstructionsEqualTheIteratedDefinition) {
    const cv::Mat element =
        cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(3, 3), cv::Point(1, 1));
    cv::RNG rng(99);
    for (int trial = 0; trial < 20; ++trial) {
        cv::Mat image(17 + trial * 5, 23 + trial * 3, CV_8U);
        rng.fill(image, cv::RNG::UNIFORM, 0, 256);
        if (trial % 2 == 1) cv::GaussianBlur(image, image, cv::Size(5, 5), 1.5);
        ASSERT_EQ(cv::norm(reconstruct_by_dilation(image, element, 5),
                           reference_reconstruction(image, element, true), cv::NORM_INF),
                  0)
            << trial;
        ASSERT_EQ(cv::norm(reconstruct_by_erosion(image, element, 5),
                           reference_reconstruction(image, element, false), cv::NORM_INF),
                  0)
            << trial;
    }
}

}  // namespace
}  // namespace smartCrop
