// A host in a fresh process: the library must start no thread of its own.
// Counts this process's threads before dlopen and after a complete request.
#include <dirent.h>
#include <dlfcn.h>

#include <cstdio>
#include <vector>

#include "SmartCrop.h"

namespace {

int CountThreads() {
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return -1;
    int count = 0;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') ++count;
    }
    closedir(dir);
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
        return 2;
    }
    const int before = CountThreads();
    void* lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) {
        std::fprintf(stderr, "dlopen: %s\n", dlerror());
        return 1;
    }
    auto* createImage = reinterpret_cast<decltype(&CreateImageObj)>(dlsym(lib, "CreateImageObj"));
    auto* createSmartCrop =
        reinterpret_cast<decltype(&CreateSmartCropObj)>(dlsym(lib, "CreateSmartCropObj"));
    if (createImage == nullptr || createSmartCrop == nullptr) return 1;

    // A textured 1200 by 800 image, so that every stage has real work.
    const uint64_t width = 1200, height = 800;
    std::vector<uint8_t> pixels(width * height * 4);
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            uint8_t* p = &pixels[(y * width + x) * 4];
            const bool inside = x > 500 && x < 800 && y > 200 && y < 500;
            p[1] = static_cast<uint8_t>(inside ? 220 : (x * 7 + y) % 64);
            p[2] = static_cast<uint8_t>(inside ? 40 : 90);
            p[3] = static_cast<uint8_t>((x ^ y) & 0x3F);
        }
    }
    const uint64_t offsets[4] = {0, 1, 2, 3};
    smartCrop::IImage* image = createImage(height, width, 4, offsets, pixels.data());
    smartCrop::RatioEntry aspects[] = {{1.0, true}, {16.0 / 9.0, true}};
    smartCrop::RatioEntry scales[] = {{1.0, true}, {0.8, true}, {0.6, true}};
    smartCrop::SmartCropParams params;
    params.aspectRatios = aspects;
    params.aspectRatioCount = 2;
    params.scaleRatios = scales;
    params.scaleRatioCount = 3;
    smartCrop::ISmartCrop* crop = createSmartCrop(image, &params);
    if (crop == nullptr) return 1;
    smartCrop::ICropRects* suggestions = nullptr;
    smartCrop::SelectionParams selection;
    smartCrop::SuggestionParams request;
    const smartCrop::eErrorCode code = crop->GetSuggestions(&suggestions, &selection, &request);
    const int after = CountThreads();
    std::printf("threads before %d, after %d; request code %u\n", before, after, code);
    if (suggestions != nullptr) suggestions->Release();
    crop->Release();
    image->Release();
    return after == before ? 0 : 1;
}
