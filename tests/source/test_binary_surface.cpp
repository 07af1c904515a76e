// The shared library as a host sees it: loaded with dlopen, reached by name.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "SmartCrop.h"

namespace {

struct LibraryHandle {
    void* handle = dlopen(SMARTCROP_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ~LibraryHandle() {
        if (handle != nullptr) dlclose(handle);
    }
    template <class Fn>
    Fn* Resolve(const char* name) {
        return reinterpret_cast<Fn*>(dlsym(handle, name));
    }
};

TEST(BinarySurface, HostLoadsTheLibraryAndUsesItsExports) {
    LibraryHandle lib;
    ASSERT_NE(lib.handle, nullptr) << dlerror();
    auto* createImage = lib.Resolve<decltype(CreateImageObj)>("CreateImageObj");
    auto* createSmartCrop = lib.Resolve<decltype(CreateSmartCropObj)>("CreateSmartCropObj");
    auto* setConfig = lib.Resolve<decltype(SetFaceDetectorConfigDir)>("SetFaceDetectorConfigDir");
    ASSERT_NE(createImage, nullptr);
    ASSERT_NE(createSmartCrop, nullptr);
    ASSERT_NE(setConfig, nullptr);

    setConfig("some/where/ovex3");
    const uint64_t offsets[4] = {0, 1, 2, 3};
    const uint8_t pixels[2 * 2 * 4] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    smartCrop::IImage* image = createImage(2, 2, 4, offsets, pixels);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->GetWidth(), 2u);
    EXPECT_EQ(image->GetConstPixels()[15], 16);
    EXPECT_EQ(createImage(2, 2, 4, nullptr, pixels), nullptr);
    EXPECT_EQ(image->Release(), 1u);
}

TEST(BinarySurface, ExportsExactlyTheThreeEntryPoints) {
    const std::string command = std::string("nm -D --defined-only ") + SMARTCROP_SHARED_LIBRARY;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    ASSERT_NE(pipe, nullptr);
    std::set<std::string> symbols;
    char line[1024];
    while (fgets(line, sizeof line, pipe.get()) != nullptr) {
        std::istringstream fields(line);
        std::string address, type, name;
        if (fields >> address >> type >> name) symbols.insert(name);
    }
    const std::set<std::string> expected = {"CreateImageObj", "CreateSmartCropObj",
                                            "SetFaceDetectorConfigDir"};
    EXPECT_EQ(symbols, expected);
}

}  // namespace
