// TIFF, BMP and the portable formats through OpenCV's codecs. OpenCV reads no
// header without decoding, so the size comes from our own reading first.
// The codecs are loaded when the first such file is met: linked, they would
// bring some hundred shared libraries (GDAL, poppler, ...) into every run,
// a cost a JPEG or PNG run should not pay.
#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iostream>
#include <mutex>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "host/codecs.h"
#include "host/exif_orientation.h"
#include "host/tiff_directory.h"

namespace smartCrop::host {

namespace {

HeaderSize bmp_size(const std::vector<uint8_t>& b) {
    if (b.size() < 26) throw HostError("the BMP file is truncated");
    auto u16 = [&](size_t at) -> uint32_t { return b[at] | b[at + 1] << 8; };
    auto i32 = [&](size_t at) -> int64_t {
        return static_cast<int32_t>(u16(at) | u16(at + 2) << 16);
    };
    if (u16(14) == 12) return {u16(18), u16(20)};  // the old OS/2 header
    const int64_t height = i32(22);                // negative: stored top down
    return {static_cast<uint64_t>(std::max<int64_t>(i32(18), 0)),
            static_cast<uint64_t>(height < 0 ? -height : height)};
}

// After the pixel limit: uncompressed rows are all there or the file is cut.
// A header of a thousand bytes must not make a picture of gigabytes
// (compressed rows, RLE, may rightly be far fewer bytes than pixels).
void check_bmp_rows(const std::vector<uint8_t>& b, HeaderSize size) {
    auto u16 = [&](size_t at) -> uint32_t { return b[at] | b[at + 1] << 8; };
    auto u32 = [&](size_t at) -> uint64_t { return u16(at) | uint64_t{u16(at + 2)} << 16; };
    if (b.size() < 34 || u16(14) == 12 || u32(30) != 0) return;
    const uint64_t bits = u16(28);
    const uint64_t row = (size.width * bits + 31) / 32 * 4;
    const uint64_t offset = std::min<uint64_t>(u32(10), b.size());
    if (bits > 0 && row * size.height > b.size() - offset)
        throw HostError("the BMP file is truncated (its header describes " +
                        std::to_string(size.width) + " x " + std::to_string(size.height) +
                        " pixels, " + std::to_string(row * size.height) +
                        " bytes, the file holds " + std::to_string(b.size()) + ")");
}

// P1 to P6: magic, width, height, with comments; P7: WIDTH and HEIGHT lines.
HeaderSize pnm_size(const std::vector<uint8_t>& b) {
    size_t p = 2;
    const size_t end = std::min<size_t>(b.size(), 4096);
    auto token = [&]() {
        std::string t;
        while (p < end) {
            if (b[p] == '#') {
                while (p < end && b[p] != '\n') ++p;
            } else if (std::isspace(b[p])) {
                if (!t.empty()) break;
                ++p;
            } else {
                t += static_cast<char>(b[p++]);
            }
        }
        return t;
    };
    auto number = [&](const std::string& t) -> uint64_t {
        if (t.empty() || t.size() > 10 || t.find_first_not_of("0123456789") != std::string::npos)
            throw HostError("the PNM header is damaged");
        return std::stoull(t);
    };
    HeaderSize size;
    if (b[1] == '7') {
        for (std::string t = token(); !t.empty() && t != "ENDHDR"; t = token()) {
            if (t == "WIDTH") size.width = number(token());
            if (t == "HEIGHT") size.height = number(token());
        }
        return size;
    }
    size.width = number(token());
    size.height = number(token());
    return size;
}

HeaderSize tiff_size(const std::vector<uint8_t>& b) {
    uint32_t width = 0, height = 0;
    if (!first_directory_value(b.data(), b.size(), 256, width) ||
        !first_directory_value(b.data(), b.size(), 257, height))
        throw HostError("the TIFF header is damaged");
    // The reader holds a whole tile: one far larger than the picture costs
    // its size in memory for nothing (a 16 x 16 picture in 4096 x 4096
    // tiles took 64 MB more). Tiles of a megapixel serve any real file.
    uint32_t tileWidth = 0, tileHeight = 0;
    if (first_directory_value(b.data(), b.size(), 322, tileWidth) &&
        first_directory_value(b.data(), b.size(), 323, tileHeight) &&
        uint64_t{tileWidth} * tileHeight >
            std::max<uint64_t>(uint64_t{1} << 20, 4 * uint64_t{width} * height))
        throw HostError("the TIFF file's tiles (" + std::to_string(tileWidth) + " x " +
                        std::to_string(tileHeight) + ") are far larger than its picture (" +
                        std::to_string(width) + " x " + std::to_string(height) + ")");
    return {width, height};
}

// cv::imdecode(InputArray, int), looked up in OpenCV's codec library.
using Imdecode = cv::Mat (*)(const cv::_InputArray&, int);

Imdecode opencv_imdecode() {
    static std::once_flag once;
    static Imdecode function = nullptr;
    std::call_once(once, [] {
        // Kept loaded for the rest of the process, as a linked library would be.
        void* library = dlopen(SMARTCROP_IMGCODECS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (library != nullptr)
            function =
                reinterpret_cast<Imdecode>(dlsym(library, "_ZN2cv8imdecodeERKNS_11_InputArrayEi"));
    });
    if (function == nullptr)
        throw HostError("the TIFF, BMP and PNM reader (" SMARTCROP_IMGCODECS_LIBRARY
                        ") cannot be loaded");
    return function;
}

// OpenCV says what went wrong in a file twice on standard error, as a
// logged warning and as a line its imdecode writes to std::cerr, before we
// say it once in the user's terms. Its warnings are kept to errors, and
// std::cerr writes nothing while a file is decoded: the decodes here take
// turns, and nothing else of ours writes there meanwhile.
class QuietOpenCv {
public:
    QuietOpenCv() : lock(mutex), previous(std::cerr.rdbuf(&nothing)) {
        static std::once_flag once;
        std::call_once(once, [] {
            if (cv::utils::logging::getLogLevel() > cv::utils::logging::LOG_LEVEL_ERROR)
                cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
        });
    }
    ~QuietOpenCv() { std::cerr.rdbuf(previous); }

private:
    struct Nothing : std::streambuf {
        int overflow(int c) override { return traits_type::not_eof(c); }
    };
    static inline std::mutex mutex;
    std::lock_guard<std::mutex> lock;
    Nothing nothing;
    std::streambuf* previous;
};

}  // namespace

RawDecode decode_other(std::vector<uint8_t>& bytes, ImageFormat format,
                       const DecodeOptions& options, SizeCheck check) {
    const HeaderSize size = format == ImageFormat::Bmp   ? bmp_size(bytes)
                            : format == ImageFormat::Pnm ? pnm_size(bytes)
                                                         : tiff_size(bytes);
    check(size, options);
    if (format == ImageFormat::Bmp) check_bmp_rows(bytes, size);
    RawDecode out;
    // OpenCV's TIFF reader turns the picture upright itself, whatever the
    // flags say: the orientation is applied once, there, and a quarter turn
    // swaps the sides the header gave.
    const bool turned =
        format == ImageFormat::Tiff && tiff_orientation(bytes.data(), bytes.size()) >= 5;
    const HeaderSize expected = turned ? HeaderSize{size.height, size.width} : size;
    const Imdecode imdecode = opencv_imdecode();
    cv::Mat bgr;
    try {
        const QuietOpenCv quiet;
        bgr = imdecode(bytes, cv::IMREAD_COLOR | cv::IMREAD_IGNORE_ORIENTATION);
    } catch (const cv::Exception&) {
        bgr.release();
    }
    bytes = std::vector<uint8_t>();  // the file's bytes are no longer needed
    if (bgr.empty())
        throw HostError(std::string("the ") + format_name(format) + " data is damaged" +
                        (options.lenient ? " (its reader keeps nothing of a damaged file)" : ""));
    if (static_cast<uint64_t>(bgr.cols) != expected.width ||
        static_cast<uint64_t>(bgr.rows) != expected.height)
        throw HostError(std::string("the ") + format_name(format) +
                        " file's size differs from its header");
    DecodedImage& image = out.image;
    image.format = format;
    image.width = image.fullWidth = static_cast<uint32_t>(bgr.cols);
    image.height = image.fullHeight = static_cast<uint32_t>(bgr.rows);
    image.pixels = PixelBuffer(image.width, image.height);
    for (int y = 0; y < bgr.rows; ++y) {
        const uint8_t* in = bgr.ptr<uint8_t>(y);
        uint8_t* o = &image.pixels[size_t{static_cast<uint32_t>(y)} * image.width * 4];
        for (int x = 0; x < bgr.cols; ++x) {
            o[4 * x] = 0;
            o[4 * x + 1] = in[3 * x + 2];
            o[4 * x + 2] = in[3 * x + 1];
            o[4 * x + 3] = in[3 * x];
        }
    }
    return out;
}

}  // namespace smartCrop::host
