// The sharp-detail map: hand-worked shares, and the same bits as the OpenCV
// pipeline it is written out from (area resize, grey by per-channel scaling,
// the 3 x 3 Laplacian, a median floor), at every size the decoder hands over.
#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

#include "host/sharpness_map.h"
#include "portable_paths.h"

namespace smartCrop::host {
namespace {

// The map of a picture as OpenCV's functions make it, as a summed-area table.
std::vector<double> reference_table(const cv::Mat& xrgb, int& rows, int& cols) {
    const double shrink = std::min(1.0, 512.0 / std::max(xrgb.cols, xrgb.rows));
    cv::Mat small, laplacian;
    cv::resize(xrgb, small, cv::Size(), shrink, shrink, cv::INTER_AREA);
    std::vector<cv::Mat> planes;
    cv::split(small, planes);
    cv::Mat red, green, blue;
    planes[1].convertTo(red, CV_32F, 0.299);
    planes[2].convertTo(green, CV_32F, 0.587);
    planes[3].convertTo(blue, CV_32F, 0.114);
    const cv::Mat grey = red + green + blue;
    cv::Laplacian(grey, laplacian, CV_32F, 3);
    laplacian = cv::abs(laplacian);
    std::vector<float> values(laplacian.begin<float>(), laplacian.end<float>());
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    const float floor = values[values.size() / 2];
    rows = small.rows;
    cols = small.cols;
    std::vector<double> table(static_cast<size_t>(rows + 1) * (cols + 1), 0.0);
    for (int y = 0; y < rows; ++y) {
        double run = 0;
        for (int x = 0; x < cols; ++x) {
            run += std::max(0.0f, laplacian.at<float>(y, x) - floor);
            table[(y + 1) * static_cast<size_t>(cols + 1) + x + 1] =
                table[y * static_cast<size_t>(cols + 1) + x + 1] + run;
        }
    }
    return table;
}

TEST(SharpnessMap, OneBrightDotHasItsDiagonalRing) {
    // Black but the centre of 5 x 5: the aperture gives the centre 8 times its
    // grey and each diagonal neighbour twice, the rest 0 (the median floor).
    cv::Mat xrgb(5, 5, CV_8UC4, cv::Scalar::all(0));
    xrgb.at<cv::Vec4b>(2, 2) = cv::Vec4b(0, 100, 100, 100);
    const SharpnessMap map(xrgb.data, 5, 5, xrgb.step);
    EXPECT_EQ(map.share(2, 2, 2, 2, 5, 5), 0.5);    // 8 of 16
    EXPECT_EQ(map.share(0, 0, 2, 2, 5, 5), 0.625);  // centre and one diagonal
    EXPECT_EQ(map.share(0, 0, 1, 4, 5, 5), 0.25);   // two diagonals
    EXPECT_EQ(map.share(0, 0, 4, 4, 5, 5), 1.0);
    EXPECT_EQ(map.share(0, 0, 5, 5, 10, 10), 0.625);  // a picture twice the size
    const cv::Mat flat(4, 6, CV_8UC4, cv::Scalar(0, 40, 80, 120));
    EXPECT_EQ(SharpnessMap(flat.data, 6, 4, flat.step).share(0, 0, 5, 3, 6, 4), 0.0);
}

TEST(SharpnessMap, SameBitsAsTheOpenCvPipeline) {
    std::mt19937 random(7);
    // Shrunk by OpenCV's own path at whole factors (1024, 2048), by the
    // map's own area resize otherwise, not at all up to 512.
    const cv::Size sizes[] = {{1, 1},     {1, 9},      {2, 2},     {3, 5},
                              {37, 23},   {640, 4},    {512, 384}, {1008, 756},
                              {1500, 20}, {1024, 100}, {2048, 30}, {700, 701}};
    for (const cv::Size& size : sizes) {
        // Smooth areas, edges and noise, so that the floor and the sums vary.
        cv::Mat xrgb(size, CV_8UC4);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                for (int c = 0; c < 4; ++c)
                    xrgb.at<cv::Vec4b>(y, x)[c] = static_cast<uint8_t>(
                        (x / 7 + y / 5) % 3 == 0 ? random() % 256 : (x * (c + 1) + y * 3) % 256);
        int rows = 0, cols = 0;
        const std::vector<double> table = reference_table(xrgb, rows, cols);
        const SharpnessMap map(xrgb.data, size.width, size.height, xrgb.step);
        const auto W = static_cast<uint32_t>(cols), H = static_cast<uint32_t>(rows);
        // Shares over the map's own cells read the table directly.
        for (int trial = 0; trial < 200; ++trial) {
            const int x0 = static_cast<int>(random() % W), y0 = static_cast<int>(random() % H);
            const int x1 = x0 + static_cast<int>(random() % (W - x0));
            const int y1 = y0 + static_cast<int>(random() % (H - y0));
            const size_t w = W + 1;
            const double sum = table[(y1 + 1) * w + x1 + 1] - table[y0 * w + x1 + 1] -
                               table[(y1 + 1) * w + x0] + table[y0 * w + x0];
            const double expected = table.back() > 0 ? sum / table.back() : 0.0;
            ASSERT_EQ(map.share(x0, y0, x1, y1, W, H), expected)
                << size << " cells " << x0 << "," << y0 << " to " << x1 << "," << y1;
        }
    }
}

}  // namespace
}  // namespace smartCrop::host
