#include "saliency/lab_conversion.h"

#include <algorithm>
#include <cmath>

namespace smartCrop {

namespace {

// Fixed point as OpenCV's 8-bit path: linear values carry 3 extra bits,
// XYZ coefficients 12, the cube-root table 15.
constexpr int kGammaShift = 3, kLabShift = 12, kLabShift2 = kLabShift + kGammaShift;
constexpr int kCbrtSize = 256 * 3 / 2 * (1 << kGammaShift);

constexpr int descale(int x, int n) {
    return (x + (1 << (n - 1))) >> n;
}

struct Tables {
    uint16_t gamma[256];
    uint16_t cbrt[kCbrtSize];
    int coeffs[9];

    Tables() {
        for (int i = 0; i < 256; ++i) {
            const double x = i / 255.0;
            const double linear = x <= 0.04045 ? x / 12.92 : std::pow((x + 0.055) / 1.055, 2.4);
            gamma[i] = static_cast<uint16_t>(std::lrint(255.0 * (1 << kGammaShift) * linear));
        }
        // In single precision, as OpenCV builds this table: the cube root
        // rounded to a float, times 2^15, rounded to an integer.
        const float threshold = 216.0f / 24389.0f, slope = 841.0f / 108.0f, bias = 16.0f / 116.0f;
        const float step = 1.0f / static_cast<float>(255 * (1 << kGammaShift));
        for (int i = 0; i < kCbrtSize; ++i) {
            const float x = step * static_cast<float>(i);
            const float f = x < threshold ? std::fma(x, slope, bias)
                                          : static_cast<float>(std::cbrt(static_cast<double>(x)));
            cbrt[i] = static_cast<uint16_t>(
                std::clamp<long>(std::lrint(f * static_cast<float>(1 << kLabShift2)), 0, 65535));
        }
        // OpenCV's own cube root lands one float below the correctly rounded
        // one at 324/2040, just across a rounding boundary: its table holds
        // one less there, and the bytes must be its.
        cbrt[324] -= 1;
        const double toXyz[9] = {0.412453, 0.357580, 0.180423, 0.212671, 0.715160,
                                 0.072169, 0.019334, 0.119193, 0.950227};
        const double white[3] = {0.950456, 1.0, 1.088754};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                coeffs[r * 3 + c] =
                    static_cast<int>(std::lrint((1 << kLabShift) * toXyz[r * 3 + c] / white[r]));
    }
};

}  // namespace

void rgb_to_lab(uint8_t* p, size_t count) {
    static const Tables t;
    constexpr int lScale = (116 * 255 + 50) / 100;
    constexpr int lShift = -((16 * 255 * (1 << kLabShift2) + 50) / 100);
    const int* c = t.coeffs;
    auto byte = [](int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); };
    for (size_t i = 0; i < count; ++i, p += 3) {
        const int R = t.gamma[p[0]], G = t.gamma[p[1]], B = t.gamma[p[2]];
        const int fX = t.cbrt[descale(R * c[0] + G * c[1] + B * c[2], kLabShift)];
        const int fY = t.cbrt[descale(R * c[3] + G * c[4] + B * c[5], kLabShift)];
        const int fZ = t.cbrt[descale(R * c[6] + G * c[7] + B * c[8], kLabShift)];
        p[0] = byte(descale(lScale * fY + lShift, kLabShift2));
        p[1] = byte(descale(500 * (fX - fY) + 128 * (1 << kLabShift2), kLabShift2));
        p[2] = byte(descale(200 * (fY - fZ) + 128 * (1 << kLabShift2), kLabShift2));
    }
}

}  // namespace smartCrop
