#include "faces/face_config_path.h"

#include <mutex>

namespace smartCrop {

namespace {

// A host may set the path from any thread; the lock makes a late call merely
// ineffective instead of a data race with a first detection.
std::mutex& path_mutex() {
    static std::mutex m;
    return m;
}

std::string& path_storage() {
    static std::string path = "data/ovex3";
    return path;
}

}  // namespace

void set_face_config_path(const char* path) {
    std::lock_guard<std::mutex> lock(path_mutex());
    path_storage() = path != nullptr ? path : "";
}

std::string face_config_path() {
    std::lock_guard<std::mutex> lock(path_mutex());
    return path_storage();
}

}  // namespace smartCrop
