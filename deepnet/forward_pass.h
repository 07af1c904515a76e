// Runs a loaded network on an image and returns named outputs as matrices.
#ifndef SMARTCROP_DEEPNET_FORWARD_PASS_H
#define SMARTCROP_DEEPNET_FORWARD_PASS_H

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "deepnet/deepnet_model.h"
#include "deepnet/matrix.h"
#include "deepnet/runtime_layers.h"

namespace deepnet {

// A network built for one input size and kept for the runs that follow: the
// patch networks of a cascade run once per proposal, all of one size, and
// building the layers (their zeroed buffers) cost as much as running them.
// Every layer writes all of its output, so a run on kept buffers gives the
// bits of a run on fresh ones. A new size builds the network again.
class NetworkRun {
public:
    explicit NetworkRun(const DeepnetModel& model) : model(model) {}
    NetworkRun(const NetworkRun&) = delete;  // the layers point at `provider`
    NetworkRun& operator=(const NetworkRun&) = delete;

    // The image (8 bits, 3 channels) enters as planes from pixel channels 2,
    // 1, 0, each value / 255 - 0.5. Runs the layers up to the first named
    // `name`.
    mp::matrix& compute(mp::matrix& result, const cv::Mat& image, const char* name);
    // Runs the whole network; one matrix per name, in the order of the layers.
    std::vector<mp::matrix>& compute(std::vector<mp::matrix>& results, const cv::Mat& image,
                                     const std::vector<std::string>& names);

private:
    void prepare(const cv::Mat& image);

    const DeepnetModel& model;
    data_provider_image_label provider;
    layer_test_list layers;
    int rows = -1, cols = -1;
    uint64_t builtBytes = 0;
};

// One run on a network built for it (see NetworkRun).
mp::matrix& deepnet_compute_feature(const DeepnetModel& model, mp::matrix& result,
                                    const cv::Mat& image, const char* name);
std::vector<mp::matrix>& deepnet_compute_feature(const DeepnetModel& model,
                                                 std::vector<mp::matrix>& results,
                                                 const cv::Mat& image,
                                                 const std::vector<std::string>& names);

// A layer's output as a matrix: 1-d all elements in a row, 2-d the first
// row, 3-d and 4-d the plane of channel 0 (height rows of width).
mp::matrix layer_output(const layer_test_base<float>& layer);

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_FORWARD_PASS_H
