#include "deepnet/forward_pass.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace deepnet {

namespace {

void fill_provider(data_provider_image_label& provider, const cv::Mat& image) {
    if (image.type() != CV_8UC3) {
        throw std::runtime_error(
            "deepnet_compute_feature(): the image must have three 8-bit channels");
    }
    provider.channels = 3;
    provider.label_size = 1;
    provider.image_count = 1;
    provider.cols = static_cast<uint64_t>(image.cols);
    provider.rows = static_cast<uint64_t>(image.rows);
    provider.labels.assign(1, 0);
    const size_t planeSize = provider.cols * provider.rows;
    provider.image.resize(planeSize * 3);
    for (int y = 0; y < image.rows; ++y) {
        const uint8_t* row = image.ptr<uint8_t>(y);
        for (int x = 0; x < image.cols; ++x) {
            for (int p = 0; p < 3; ++p) {
                const float v = static_cast<float>(row[3 * x + 2 - p]);
                provider.image[p * planeSize + static_cast<size_t>(y) * image.cols + x] =
                    v / 255.0f - 0.5f;
            }
        }
    }
}

int32_t narrow(uint64_t v) {
    if (v > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
        throw std::runtime_error("deepnet_compute_feature(): an output too large for a matrix");
    }
    return static_cast<int32_t>(v);
}

}  // namespace

mp::matrix layer_output(const layer_test_base<float>& layer) {
    int32_t rows = 1, cols = 0;
    if (layer.y_dim == 1) {
        cols = narrow(layer.y_size_1d());
    } else if (layer.y_dim == 2) {
        cols = narrow(layer.y_size[0]);
    } else {
        layer.y_size_1d();  // rejects a dimension outside 1..4
        rows = narrow(layer.y_size[1]);
        cols = narrow(layer.y_size[0]);
    }
    // Counted against the same budget as the network that produced it.
    count_buffer(checked_product(static_cast<uint64_t>(rows), static_cast<uint64_t>(cols)));
    mp::matrix m(rows, cols);
    const size_t n = std::min(static_cast<size_t>(rows) * cols, layer.y.size());
    if (n > 0) std::memcpy(m.data, layer.y.data(), n * sizeof(float));
    return m;
}

void NetworkRun::prepare(const cv::Mat& image) {
    fill_provider(provider, image);
    if (image.rows != rows || image.cols != cols || layers.empty()) {
        const bool built = !layers.empty();
        rows = cols = -1;  // until the network stands at the new size
        try {
            // A network already built is sized again: the pyramid's levels
            // shrink, so their buffers fit in the first level's memory
            // instead of being faulted in afresh.
            if (built) {
                deepnet_reallocate_layer_test(layers, model.layer_models);
            } else {
                deepnet_construct_layer_test(layers, model.layer_models, provider, 1);
            }
        } catch (...) {
            layers.clear();
            throw;
        }
        builtBytes = counted_buffers();
        rows = image.rows;
        cols = image.cols;
    }
    recount_buffers(builtBytes);
}

mp::matrix& NetworkRun::compute(mp::matrix& result, const cv::Mat& image, const char* name) {
    prepare(image);
    const std::string wanted(name);
    size_t found = 0;
    while (found < model.layer_models.size() && model.layer_models[found]->name != wanted) ++found;
    if (found == model.layer_models.size()) {
        throw std::runtime_error(
            "deepnet_compute_feature(): Cannot find a layer with matching name");
    }
    for (size_t i = 0; i <= found; ++i)
        layers[i]->fprop_test(provider.image_count, *model.layer_models[i]);
    result = layer_output(*layers[found]);
    return result;
}

std::vector<mp::matrix>& NetworkRun::compute(std::vector<mp::matrix>& results, const cv::Mat& image,
                                             const std::vector<std::string>& names) {
    prepare(image);
    std::vector<size_t> remembered;
    for (size_t i = 0; i < layers.size(); ++i) {
        layers[i]->fprop_test(provider.image_count, *model.layer_models[i]);
        // Once per layer, however many names it matches: a name listed
        // twice leaves the count short and fails.
        for (const std::string& name : names) {
            if (model.layer_models[i]->name == name) {
                remembered.push_back(i);
                break;
            }
        }
    }
    if (remembered.size() != names.size()) {
        throw std::runtime_error("deepnet_compute_feature(): Cannot find required layers");
    }
    std::vector<mp::matrix> out;
    for (size_t i : remembered) out.push_back(layer_output(*layers[i]));
    results = std::move(out);
    return results;
}

mp::matrix& deepnet_compute_feature(const DeepnetModel& model, mp::matrix& result,
                                    const cv::Mat& image, const char* name) {
    return NetworkRun(model).compute(result, image, name);
}

std::vector<mp::matrix>& deepnet_compute_feature(const DeepnetModel& model,
                                                 std::vector<mp::matrix>& results,
                                                 const cv::Mat& image,
                                                 const std::vector<std::string>& names) {
    return NetworkRun(model).compute(results, image, names);
}

}  // namespace deepnet
