// A hand-made face detector for tests: networks that respond to a bright
// square on a dark ground, written with the network writer into a folder
// with a configuration file listing `stages` of them.
#ifndef SMARTCROP_TESTS_FACES_SYNTHETIC_DETECTOR_H
#define SMARTCROP_TESTS_FACES_SYNTHETIC_DETECTOR_H

#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <string>

#include "network_writer.h"

namespace test {

// Centre minus surround of the first input plane over a k x k window: the
// mean of the inner two thirds minus the mean of the ring around them. Highest
// (near 1) when the window frames a bright square with a dark margin.
inline netwriter::NetworkWriter centre_surround_network(int k, int stride) {
    std::vector<float> w(k * k * 3, 0.0f);
    const int margin = k / 6, inner = (k - 2 * margin) * (k - 2 * margin), ring = k * k - inner;
    for (int y = 0; y < k; ++y)
        for (int x = 0; x < k; ++x) {
            const bool in = x >= margin && x < k - margin && y >= margin && y < k - margin;
            w[y * k + x] = in ? 1.0f / static_cast<float>(inner) : -1.0f / static_cast<float>(ring);
        }
    netwriter::NetworkWriter n;
    n.data("in").conv("Y", "in", 1, 3, k, k, stride, stride, w, {0.0f});
    return n;
}

// Landmarks at "Y" (five points in units of the patch) and, with `correction`,
// the neutral correction (0, 0, 1) at "Y2": flat outputs, all their values.
inline netwriter::NetworkWriter refining_network(int k, bool correction) {
    const uint32_t inputs = static_cast<uint32_t>(k * k * 3);
    netwriter::NetworkWriter n;
    n.data("in").fc("Y", {"in"}, {inputs}, 10, std::vector<float>(inputs * 10, 0.0f),
                    {0.3f, 0.3f, 0.7f, 0.3f, 0.5f, 0.5f, 0.35f, 0.75f, 0.65f, 0.75f});
    if (correction)
        n.fc("Y2", {"in"}, {inputs}, 3, std::vector<float>(inputs * 3, 0.0f), {0.0f, 0.0f, 1.0f});
    return n;
}

// Writes the networks and a configuration of `stages` records; returns its path.
inline std::string write_detector(const std::filesystem::path& dir, int stages) {
    std::filesystem::create_directories(dir);
    centre_surround_network(12, 2).save((dir / "scan").string());
    centre_surround_network(24, 1).save((dir / "rescore").string());
    refining_network(24, true).save((dir / "refine").string());
    refining_network(24, false).save((dir / "landmarks").string());
    const char* records[] = {"scan.net 12 0.4", "rescore.net 24 0.5", "rescore.net 24 0.6",
                             "refine.net 24 0", "landmarks.net 24 0", "rescore.net 24 0"};
    const std::string path = (dir / ("stages" + std::to_string(stages))).string();
    std::ofstream config(path);
    config << "# a synthetic detector\n";
    for (int i = 0; i < stages; ++i) config << records[i] << "\n";
    return path;
}

// A dark image with a white square "face".
inline cv::Mat square_image(int width, int height, cv::Rect face) {
    cv::Mat image(height, width, CV_8UC3, cv::Scalar::all(10));
    image(face).setTo(cv::Scalar::all(255));
    return image;
}

}  // namespace test

#endif  // SMARTCROP_TESTS_FACES_SYNTHETIC_DETECTOR_H
