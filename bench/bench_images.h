// Photo-like synthetic images for the benchmarks: a smooth background with
// noise and a textured object off-centre, deterministic for a given size.
#ifndef SMARTCROP_BENCH_BENCH_IMAGES_H
#define SMARTCROP_BENCH_BENCH_IMAGES_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace bench {

// Four bytes a pixel: ignored, red, green, blue.
inline std::vector<uint8_t> photo_like(int width, int height) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> noise(-6, 6);
    const double cx = width * 0.65, cy = height * 0.4, r = std::min(width, height) * 0.18;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
            const double d = std::hypot(x - cx, y - cy) / r;
            int red = 70 + 60 * y / height, green = 110 + 40 * x / width,
                blue = 170 - 50 * y / height;
            if (d < 1.0) {
                const int stripe = ((x / 6 + y / 9) % 2) * 60;
                red = 200 - stripe;
                green = 90 + stripe / 2;
                blue = 40;
            }
            p[0] = 0;
            p[1] = static_cast<uint8_t>(std::clamp(red + noise(rng), 0, 255));
            p[2] = static_cast<uint8_t>(std::clamp(green + noise(rng), 0, 255));
            p[3] = static_cast<uint8_t>(std::clamp(blue + noise(rng), 0, 255));
        }
    }
    return pixels;
}

}  // namespace bench

#endif  // SMARTCROP_BENCH_BENCH_IMAGES_H
