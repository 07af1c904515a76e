// Arbitrary bytes as a network file: parsed, and when that succeeds,
// constructed and run on a small image. Only the runtime's own exceptions
// may come out; nothing may read or write outside its buffers.
#include <opencv2/core.hpp>
#include <stdexcept>

#include "deepnet/forward_pass.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Networks of a few megabytes cover every path; larger ones only take time.
    deepnet::set_network_buffer_limit(uint64_t{16} << 20);
    try {
        const deepnet::DeepnetModel model(std::vector<uint8_t>(data, data + size));
        if (model.layer_models.empty()) return 0;
        const int width = 4 + static_cast<int>(size % 13), height = 4 + static_cast<int>(size % 7);
        cv::Mat image(height, width, CV_8UC3);
        for (int i = 0; i < width * height * 3; ++i)
            image.data[i] = static_cast<uint8_t>(data[i % size] + i);
        mp::matrix result;
        deepnet::deepnet_compute_feature(model, result, image,
                                         model.layer_models.back()->name.c_str());
        std::vector<mp::matrix> results;
        deepnet::deepnet_compute_feature(model, results, image, {model.layer_models.front()->name});
    } catch (const std::runtime_error&) {
    } catch (const std::length_error&) {
    } catch (const std::bad_alloc&) {
    }
    return 0;
}
