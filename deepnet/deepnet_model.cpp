#include "deepnet/deepnet_model.h"
#include "deepnet/layer_list_reader.h"

#include <fstream>
#include <stdexcept>

namespace deepnet {

DeepnetModel::DeepnetModel(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    file.seekg(0, std::ios::end);
    // A file that failed to open reports -1: as a size that is too long for
    // any vector, which is the failure a missing model file ends in.
    const std::streamoff size = file.tellg();
    // A folder opens too, and reports a size of 2^63 - 1: refused before any
    // allocation, as is anything larger than a network file can sensibly be.
    if (file && (size < 0 || size > (std::streamoff{1} << 30))) {
        throw std::runtime_error("DeepnetModel(): " + path + " is not a network file");
    }
    file_bytes.resize(static_cast<size_t>(size));
    file.seekg(0, std::ios::beg);
    file.read(reinterpret_cast<char*>(file_bytes.data()),
              static_cast<std::streamsize>(file_bytes.size()));
    file.close();
    provider.label_size = 1;
    deenpet_deserialize_layer_model(file_bytes.data(), file_bytes.size(), layer_models);
}

DeepnetModel::DeepnetModel(std::vector<uint8_t> bytes) : file_bytes(std::move(bytes)) {
    provider.label_size = 1;
    deenpet_deserialize_layer_model(file_bytes.data(), file_bytes.size(), layer_models);
}

}  // namespace deepnet
