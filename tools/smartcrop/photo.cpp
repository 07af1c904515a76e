#include "photo.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace cli {

namespace {

bool is_jpeg(const std::vector<uint8_t>& b) {
    return b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF;
}

// Width and height from the first start-of-frame marker; false if none.
bool jpeg_size(const std::vector<uint8_t>& b, int& width, int& height) {
    size_t p = 2;
    while (p + 9 < b.size()) {
        if (b[p] != 0xFF) return false;
        const uint8_t marker = b[p + 1];
        if (marker == 0xFF) {
            ++p;
            continue;
        }
        const size_t length = (size_t{b[p + 2]} << 8) | b[p + 3];
        const bool sof =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (sof) {
            height = (b[p + 5] << 8) | b[p + 6];
            width = (b[p + 7] << 8) | b[p + 8];
            return width > 0 && height > 0;
        }
        p += 2 + length;
    }
    return false;
}

// A complete JPEG ends with its end-of-image marker (trailing bytes allowed).
bool jpeg_complete(const std::vector<uint8_t>& b) {
    const size_t from = b.size() > 65536 ? b.size() - 65536 : 2;
    for (size_t p = b.size() - 1; p > from; --p) {
        if (b[p - 1] == 0xFF && b[p] == 0xD9) return true;
    }
    return false;
}

int ceil_div(int a, int b) {
    return (a + b - 1) / b;
}

}  // namespace

Photo decode(const std::string& path, bool allowReduced) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot open the file");
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                     std::istreambuf_iterator<char>());
    if (bytes.empty()) throw std::runtime_error("the file is empty");

    int width = 0, height = 0, factor = 1;
    const bool jpeg = is_jpeg(bytes);
    if (jpeg) {
        if (!jpeg_complete(bytes)) throw std::runtime_error("the JPEG file is truncated");
        if (allowReduced && jpeg_size(bytes, width, height)) {
            while (factor < 8 && std::max(width, height) / (factor * 2) >= 1024) factor *= 2;
        }
    }
    const int flags = factor == 8   ? cv::IMREAD_REDUCED_COLOR_8
                      : factor == 4 ? cv::IMREAD_REDUCED_COLOR_4
                      : factor == 2 ? cv::IMREAD_REDUCED_COLOR_2
                                    : cv::IMREAD_COLOR;
    Photo photo;
    try {
        photo.bgr = cv::imdecode(bytes, flags);  // applies the EXIF orientation
    } catch (const cv::Exception&) {
        photo.bgr.release();
    }
    if (photo.bgr.empty())
        throw std::runtime_error("cannot decode the image (unknown or damaged format)");
    photo.fullWidth = photo.bgr.cols;
    photo.fullHeight = photo.bgr.rows;
    if (factor > 1) {
        // The decoder rounds reduced sizes up; a rotated orientation swaps them.
        const bool upright =
            ceil_div(width, factor) == photo.bgr.cols && ceil_div(height, factor) == photo.bgr.rows;
        photo.fullWidth = upright ? width : height;
        photo.fullHeight = upright ? height : width;
    }
    return photo;
}

std::vector<uint8_t> library_pixels(const cv::Mat& bgr) {
    std::vector<uint8_t> pixels(static_cast<size_t>(bgr.cols) * bgr.rows * 4);
    for (int y = 0; y < bgr.rows; ++y) {
        const uint8_t* in = bgr.ptr<uint8_t>(y);
        uint8_t* out = &pixels[static_cast<size_t>(y) * bgr.cols * 4];
        for (int x = 0; x < bgr.cols; ++x) {
            out[4 * x] = 0;
            out[4 * x + 1] = in[3 * x + 2];
            out[4 * x + 2] = in[3 * x + 1];
            out[4 * x + 3] = in[3 * x];
        }
    }
    return pixels;
}

smartCrop::CropRect to_full(const Photo& photo, const smartCrop::CropRect& crop, double ratio,
                            int exactWidth, int exactHeight) {
    if (!photo.reduced()) return crop;
    const int W = photo.fullWidth, H = photo.fullHeight;
    const double sx = static_cast<double>(W) / photo.bgr.cols;
    const double sy = static_cast<double>(H) / photo.bgr.rows;
    int fw, fh;
    if (exactWidth > 0) {
        fw = exactWidth;
        fh = exactHeight;
    } else {
        // The larger crop of the wanted ratio, one side rounded from the other.
        fw = std::min(W, static_cast<int>(std::lround((crop.right - crop.left + 1) * sx)));
        fh = static_cast<int>(std::lround(fw / ratio));
        if (fh > H) {
            fh = H;
            fw = std::min(W, static_cast<int>(std::lround(fh * ratio)));
        }
        fw = std::max(fw, 1);
        fh = std::max(fh, 1);
    }
    smartCrop::CropRect full = crop;
    full.left = std::clamp(static_cast<int>(std::lround(crop.left * sx)), 0, W - fw);
    full.top = std::clamp(static_cast<int>(std::lround(crop.top * sy)), 0, H - fh);
    full.right = full.left + fw - 1;
    full.bottom = full.top + fh - 1;
    return full;
}

}  // namespace cli
