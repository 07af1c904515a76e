// Arbitrary bytes as the face detector's configuration, checked by the host
// layer before the library sees it. Beside it lie copies of the shipped
// networks under the shipped names, so that a configuration can pass the
// check and reach the library's loader and a probe detection; whatever it
// holds, the answer is a HostError or a detector that loads, and never a
// crash or a runaway.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/face_detector_setup.h"
#include "host/host_error.h"

namespace {

// A folder of this process's, removed when it ends.
struct Folder {
    Folder()
        : path(std::filesystem::temp_directory_path() /
               ("smartcrop-fuzz-detector-" + std::to_string(getpid()))) {
        std::filesystem::create_directories(path);
        for (const char* name : {"mtcnn-pnet", "mtcnn-rnet", "mtcnn-onet", "mtcnn-onet-landmarks"})
            std::filesystem::copy_file(std::filesystem::path(SMARTCROP_SOURCE_DIR) / "data" / name,
                                       path / name,
                                       std::filesystem::copy_options::overwrite_existing);
    }
    ~Folder() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    std::filesystem::path path;
};

const std::filesystem::path& folder() {
    static const Folder dir;
    return dir.path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::filesystem::path config = folder() / "ovex3";
    std::ofstream(config, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    try {
        smartCrop::host::use_face_detector(config.string());
    } catch (const smartCrop::host::HostError&) {
    }
    return 0;
}
