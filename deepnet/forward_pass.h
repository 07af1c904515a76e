// Runs a loaded network on an image and returns named outputs as matrices.
#ifndef SMARTCROP_DEEPNET_FORWARD_PASS_H
#define SMARTCROP_DEEPNET_FORWARD_PASS_H

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "deepnet/deepnet_model.h"
#include "deepnet/matrix.h"

namespace deepnet {

// The image (8 bits, 3 channels) enters as planes from pixel channels 2, 1, 0,
// each value / 255 - 0.5. Runs the layers up to the first named `name`.
mp::matrix& deepnet_compute_feature(const DeepnetModel& model, mp::matrix& result,
                                    const cv::Mat& image, const char* name);
// Runs the whole network; one matrix per name, in the order of the layers.
std::vector<mp::matrix>& deepnet_compute_feature(const DeepnetModel& model,
                                                 std::vector<mp::matrix>& results,
                                                 const cv::Mat& image,
                                                 const std::vector<std::string>& names);

// A layer's output as a matrix: 1-d all elements in a row, 2-d the first
// row, 3-d and 4-d the plane of channel 0 (height rows of width).
mp::matrix layer_output(const layer_test_base<float>& layer);

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_FORWARD_PASS_H
