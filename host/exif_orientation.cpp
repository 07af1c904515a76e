#include "host/exif_orientation.h"

#include <cstring>
#include <utility>

#include "host/tiff_directory.h"

namespace smartCrop::host {

int tiff_orientation(const uint8_t* data, size_t size) {
    uint32_t value = 1;
    if (first_directory_value(data, size, 0x0112, value) && value >= 1 && value <= 8)
        return static_cast<int>(value);
    return 1;
}

int webp_orientation(const std::vector<uint8_t>& b) {
    // RIFF chunks after "RIFF", the size and "WEBP": a code, a little-endian
    // length, the payload padded to an even length.
    size_t p = 12;
    while (p + 8 <= b.size()) {
        const size_t length = size_t{b[p + 4]} | size_t{b[p + 5]} << 8 | size_t{b[p + 6]} << 16 |
                              size_t{b[p + 7]} << 24;
        if (length > b.size() - p - 8) break;
        const uint8_t* body = &b[p + 8];
        if (std::memcmp(&b[p], "EXIF", 4) == 0) {
            // Some writers keep JPEG's "Exif\0\0" in front of the TIFF structure.
            if (length >= 6 && std::memcmp(body, "Exif\0\0", 6) == 0)
                return tiff_orientation(body + 6, length - 6);
            return tiff_orientation(body, length);
        }
        p += 8 + length + (length & 1);
    }
    return 1;
}

int jpeg_orientation(const std::vector<uint8_t>& b) {
    size_t p = 2;
    while (p + 4 <= b.size()) {
        if (b[p] != 0xFF) {  // stray bytes between segments
            ++p;
            continue;
        }
        const uint8_t marker = b[p + 1];
        if (marker == 0xFF) {
            ++p;
            continue;
        }
        if (marker == 0xDA || marker == 0xD9) break;  // the image data starts: no more metadata
        const size_t length = size_t{b[p + 2]} << 8 | b[p + 3];
        if (length < 2 || p + 2 + length > b.size()) break;
        const uint8_t* body = &b[p + 4];
        const size_t bodySize = length - 2;
        if (marker == 0xE1 && bodySize >= 6 && std::memcmp(body, "Exif\0\0", 6) == 0)
            return tiff_orientation(body + 6, bodySize - 6);
        p += 2 + length;
    }
    return 1;
}

void apply_orientation(DecodedImage& image, int orientation) {
    if (orientation < 2 || orientation > 8) return;
    const size_t W = image.width, H = image.height;
    const bool swaps = orientation >= 5;
    const size_t outW = swaps ? H : W, outH = swaps ? W : H;
    PixelBuffer out(static_cast<uint32_t>(outW), static_cast<uint32_t>(outH));
    const uint8_t* in = image.pixels.data();
    for (size_t y = 0; y < outH; ++y) {
        for (size_t x = 0; x < outW; ++x) {
            size_t sx = x, sy = y;  // where the upright pixel (x, y) lies in the stored image
            switch (orientation) {
                case 2:
                    sx = W - 1 - x;
                    break;
                case 3:
                    sx = W - 1 - x;
                    sy = H - 1 - y;
                    break;
                case 4:
                    sy = H - 1 - y;
                    break;
                case 5:
                    sx = y;
                    sy = x;
                    break;
                case 6:
                    sx = y;
                    sy = H - 1 - x;
                    break;
                case 7:
                    sx = W - 1 - y;
                    sy = H - 1 - x;
                    break;
                case 8:
                    sx = W - 1 - y;
                    sy = x;
                    break;
            }
            std::memcpy(&out[4 * (y * outW + x)], &in[4 * (sy * W + sx)], 4);
        }
    }
    image.pixels = std::move(out);
    image.width = static_cast<uint32_t>(outW);
    image.height = static_cast<uint32_t>(outH);
    if (swaps) std::swap(image.fullWidth, image.fullHeight);
}

}  // namespace smartCrop::host
