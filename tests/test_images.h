// Images made by tests, held by a counted pointer that releases itself.
#ifndef SMARTCROP_TESTS_TEST_IMAGES_H
#define SMARTCROP_TESTS_TEST_IMAGES_H

#include <cstdint>
#include <functional>
#include <vector>

#include "SmartCrop.h"

namespace test {

// Four bytes a pixel: ignored, red, green, blue.
struct Rgb {
    uint8_t r, g, b;
};

inline std::vector<uint8_t> MakePixels(int width, int height,
                                       const std::function<Rgb(int x, int y)>& colour) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Rgb c = colour(x, y);
            uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
            p[0] = 0;
            p[1] = c.r;
            p[2] = c.g;
            p[3] = c.b;
        }
    }
    return pixels;
}

class Image {
public:
    Image(int width, int height, const std::function<Rgb(int, int)>& colour = nullptr) {
        const uint64_t offsets[4] = {0, 1, 2, 3};
        if (colour) {
            const std::vector<uint8_t> pixels = MakePixels(width, height, colour);
            image = CreateImageObj(height, width, 4, offsets, pixels.data());
        } else {
            image = CreateImageObj(height, width, 4, offsets, nullptr);
        }
    }
    ~Image() {
        if (image != nullptr) image->Release();
    }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    smartCrop::IImage* get() const { return image; }

private:
    smartCrop::IImage* image = nullptr;
};

}  // namespace test

#endif  // SMARTCROP_TESTS_TEST_IMAGES_H
