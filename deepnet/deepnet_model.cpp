#include "deepnet_model.h"

#include <fstream>

namespace deepnet {

DeepnetModel::DeepnetModel(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    file.seekg(0, std::ios::end);
    // A file that failed to open reports -1: as a size that is too long for
    // any vector, which is the failure a missing model file ends in.
    const std::streamoff size = file.tellg();
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
