#include "faces/antialias_resize.h"

#include <cmath>
#include <iostream>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace smartCrop {

namespace {

constexpr double kPi = 3.14159265358979323846;

float sinc(float u) {
    if (u == 0.0f) return 1.0f;
    const float p = static_cast<float>(u * kPi);
    return sinf(p) / p;
}

// Three lobes, closed at -3 and open at 3.
float lanczos3(float t) {
    if (static_cast<double>(t) < -3.0 || !(t < 3.0f)) return 0.0f;
    return sinc(t) * sinc(t / 3.0f);
}

}  // namespace

cv::Mat resize_image(const cv::Mat& source, cv::Size target, int mode) {
    if (mode == 0) {
        cv::Mat out;
        cv::resize(source, out, target, 2.0, 0, cv::INTER_LINEAR);
        return out;
    }
    return resize_antialias(source, target);
}

cv::Mat resize_antialias(const cv::Mat& source, cv::Size target) {
    if (source.type() != CV_8UC3) {
        std::cerr << "Error: resize_antialias type" << std::endl;
        return source;
    }
    const int sw = source.cols, sh = source.rows, tw = target.width, th = target.height;
    if (sw * th < sh * tw) {
        return resize_antialias_oracle(resize_antialias_oracle(source, sw, th), tw, th);
    }
    return resize_antialias_oracle(resize_antialias_oracle(source, tw, sh), tw, th);
}

cv::Mat resize_antialias_oracle(const cv::Mat& source, int width, int height) {
    cv::Mat out(height, width, source.type());
    bool horizontal;
    if (source.rows == height) {
        horizontal = true;
    } else if (source.cols == width) {
        horizontal = false;
    } else {
        std::cerr << "Error: resize_antialias_oracle size" << std::endl;
        return cv::Mat();
    }
    const int n = horizontal ? source.cols : source.rows;
    const int m = horizontal ? width : height;
    const int lines = horizontal ? height : width;
    const int channels = source.channels();
    const float rate = static_cast<float>(n) / static_cast<float>(m);
    const float filterScale = rate < 1.0f ? 1.0f : rate;
    const float support = rate < 1.0f ? 0.5f : 3.0f * rate;
    std::vector<float> weights(2 * static_cast<size_t>(support) + 10, 0.0f);
    const float k = static_cast<float>(1.0 / filterScale);
    for (int i = 0; i < m; ++i) {
        const float c = static_cast<float>((i + 0.5) * rate);
        const int start = static_cast<int>(std::max(0.0f, std::floor(c - support)));
        const int stop = static_cast<int>(std::min(static_cast<float>(n), std::ceil(c + support)));
        float total = 0.0f;
        for (int j = start; j < stop; ++j) {
            const float t =
                static_cast<float>((static_cast<double>(static_cast<float>(j) - c) + 0.5) * k);
            weights[j - start] = lanczos3(t) * k;
            total += weights[j - start];
        }
        const float normaliser = total == 0.0f ? 1.0f : static_cast<float>(1.0 / total);
        for (int line = 0; line < lines; ++line) {
            for (int ch = 0; ch < channels; ++ch) {
                float sum = 0.0f;
                for (int j = start; j < stop; ++j) {
                    const uint8_t s = horizontal ? source.ptr<uint8_t>(line)[j * channels + ch]
                                                 : source.ptr<uint8_t>(j)[line * channels + ch];
                    sum += static_cast<float>(s) * weights[j - start];
                }
                const float v = static_cast<float>(static_cast<double>(sum * normaliser) + 0.5);
                const uint8_t byte = v < 0.5f ? 0 : v >= 255.0f ? 255 : static_cast<uint8_t>(v);
                if (horizontal) {
                    out.ptr<uint8_t>(line)[i * channels + ch] = byte;
                } else {
                    out.ptr<uint8_t>(i)[line * channels + ch] = byte;
                }
            }
        }
    }
    return out;
}

}  // namespace smartCrop
