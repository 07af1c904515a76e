// A fresh folder of this process's own under the temporary directory,
// removed with everything in it when the object goes.
#ifndef SMARTCROP_TESTS_SCRATCH_FOLDER_H
#define SMARTCROP_TESTS_SCRATCH_FOLDER_H

#include <unistd.h>

#include <filesystem>
#include <string>

namespace test {

class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& name)
        : dir(std::filesystem::temp_directory_path() /
              ("smartcrop-" + name + "-" + std::to_string(::getpid()))) {
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::filesystem::path& path() const { return dir; }
    operator const std::filesystem::path&() const { return dir; }
    std::filesystem::path operator/(const std::string& name) const { return dir / name; }

private:
    std::filesystem::path dir;
};

}  // namespace test

#endif  // SMARTCROP_TESTS_SCRATCH_FOLDER_H
