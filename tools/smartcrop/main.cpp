// smartcrop: proposes good crops of photographs from the command line.
// A host like any other: it uses only the public header and the shared
// library. Exit codes: 0 all images done, 1 any image failed, 2 usage.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SmartCrop.h"
#include "options.h"
#include "photo.h"

namespace {

struct Result {
    std::string file;
    int width = 0, height = 0;
    std::vector<smartCrop::CropRect> crops;
    bool facesAsked = false;
    std::vector<cv::Rect> faces;  // as detected, in full-resolution pixels
    std::string error;  // empty on success
};

template <class T>
struct Releaser {
    void operator()(T* p) const { p->Release(); }
};
template <class T>
using Counted = std::unique_ptr<T, Releaser<T>>;

std::string library_error(smartCrop::ISmartCrop* crop, smartCrop::eErrorCode code) {
    std::ostringstream out;
    out << "code " << code;
    const std::string text = crop->GetLastErrorText();
    if (!text.empty()) out << ": " << text;
    return out.str();
}

// The requested ratio a crop stands for: the nearest of the list.
double nearest_ratio(const std::vector<double>& ratios, const smartCrop::CropRect& c) {
    const double r = (c.right - c.left + 1.0) / (c.bottom - c.top + 1.0);
    double best = ratios.front();
    for (double x : ratios) {
        if (std::fabs(std::log(x / r)) < std::fabs(std::log(best / r))) best = x;
    }
    return best;
}

std::string with_index(const std::string& path, size_t index, size_t total) {
    if (total <= 1) return path;
    const std::filesystem::path p(path);
    return (p.parent_path() /
            (p.stem().string() + "-" + std::to_string(index + 1) + p.extension().string()))
        .string();
}

void draw_preview(const cv::Mat& bgr, const Result& result, double scaleToDecoded,
                  const std::string& path) {
    const std::vector<smartCrop::CropRect>& crops = result.crops;
    const double shrink = std::min(1.0, 1024.0 / std::max(bgr.cols, bgr.rows));
    cv::Mat preview;
    cv::resize(bgr, preview, cv::Size(), shrink, shrink, cv::INTER_AREA);
    const double s = shrink * scaleToDecoded;
    for (const cv::Rect& f : result.faces) {
        const cv::Rect r(cv::Point(static_cast<int>(f.x * s), static_cast<int>(f.y * s)),
                         cv::Point(static_cast<int>(f.br().x * s), static_cast<int>(f.br().y * s)));
        cv::rectangle(preview, r, cv::Scalar(60, 60, 255), 2);
    }
    for (size_t k = crops.size(); k-- > 0;) {  // rank 1 drawn last, on top
        const smartCrop::CropRect& c = crops[k];
        const cv::Rect r(cv::Point(static_cast<int>(c.left * s), static_cast<int>(c.top * s)),
                         cv::Point(static_cast<int>((c.right + 1) * s) - 1,
                                   static_cast<int>((c.bottom + 1) * s) - 1));
        const bool first = k == 0;
        const cv::Scalar colour = first ? cv::Scalar(0, 230, 255) : cv::Scalar(255, 200, 80);
        cv::rectangle(preview, r, cv::Scalar(0, 0, 0), first ? 7 : 4);
        cv::rectangle(preview, r, colour, first ? 4 : 2);
        const std::string label = std::to_string(k + 1);
        const cv::Point at(r.x + 8, r.y + (first ? 34 : 26));
        const double fontScale = first ? 1.1 : 0.8;
        cv::putText(preview, label, at, cv::FONT_HERSHEY_SIMPLEX, fontScale, cv::Scalar(0, 0, 0), 5,
                    cv::LINE_AA);
        cv::putText(preview, label, at, cv::FONT_HERSHEY_SIMPLEX, fontScale, colour, 2,
                    cv::LINE_AA);
    }
    if (!cv::imwrite(path, preview)) throw std::runtime_error("cannot write the preview " + path);
}

void write_crops(const cli::Photo& photo, const Result& result, const std::string& dir,
                 const std::string& file) {
    std::filesystem::create_directories(dir);
    const std::filesystem::path input(file);
    std::string ext = input.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
    if (ext != ".jpg" && ext != ".jpeg" && ext != ".png" && ext != ".webp" && ext != ".tif" &&
        ext != ".tiff" && ext != ".bmp") {
        ext = ".png";
    }
    for (size_t k = 0; k < result.crops.size(); ++k) {
        const smartCrop::CropRect& c = result.crops[k];
        const cv::Rect r(c.left, c.top, c.right - c.left + 1, c.bottom - c.top + 1);
        const std::string out = (std::filesystem::path(dir) /
                                 (input.stem().string() + "-" + std::to_string(k + 1) + ext))
                                    .string();
        if (!cv::imwrite(out, photo.bgr(r))) throw std::runtime_error("cannot write " + out);
    }
}

// The faces the library added to the rectangles of interest while answering.
std::vector<cv::Rect> detected_faces(smartCrop::ISmartCrop* crop, const cli::Photo& photo) {
    smartCrop::IRectsOfInterest* out = nullptr;
    if (crop->GetRectsOfInterest(&out) != smartCrop::eSuccess || out == nullptr) return {};
    Counted<smartCrop::IRectsOfInterest> list(out);
    const double sx = static_cast<double>(photo.fullWidth) / photo.bgr.cols;
    const double sy = static_cast<double>(photo.fullHeight) / photo.bgr.rows;
    std::vector<cv::Rect> faces;
    for (uint64_t i = 0; i < list->GetCount(); ++i) {
        const smartCrop::RectOfInterest& r = list->GetRects()[i];
        if (!r.isFace) continue;
        const cv::Point tl(static_cast<int>(std::lround(r.left * sx)),
                           static_cast<int>(std::lround(r.top * sy)));
        const cv::Point br(static_cast<int>(std::lround((r.right + 1) * sx)),
                           static_cast<int>(std::lround((r.bottom + 1) * sy)));
        faces.emplace_back(tl, br);
    }
    return faces;
}

Result process(const cli::Options& o, const std::string& file, size_t index) {
    Result result;
    result.file = file;
    try {
        // Crops are cut from full-resolution pixels, and rectangles of
        // interest must hold to the pixel: both want the full decode.
        const bool allowReduced = o.rects.empty() && o.cropsDir.empty();
        const cli::Photo photo = cli::decode(file, allowReduced);
        result.width = photo.fullWidth;
        result.height = photo.fullHeight;
        const std::vector<uint8_t> pixels = cli::library_pixels(photo.bgr);
        const uint64_t offsets[4] = {0, 1, 2, 3};
        Counted<smartCrop::IImage> image(
            CreateImageObj(photo.bgr.rows, photo.bgr.cols, 4, offsets, pixels.data()));
        if (!image) throw std::runtime_error("out of memory for the image");

        std::vector<smartCrop::RatioEntry> aspects, scales;
        for (double r : o.aspects) aspects.push_back({r, true});
        for (double s : o.scales) scales.push_back({s, true});
        smartCrop::SmartCropParams params;
        params.aspectRatios = aspects.data();
        params.aspectRatioCount = static_cast<uint32_t>(aspects.size());
        params.scaleRatios = scales.data();
        params.scaleRatioCount = static_cast<uint32_t>(scales.size());
        params.rectsOfInterest = const_cast<smartCrop::RectOfInterest*>(o.rects.data());
        params.rectsOfInterestCount = static_cast<uint32_t>(o.rects.size());
        params.detectFaces = o.faces;
        Counted<smartCrop::ISmartCrop> crop(CreateSmartCropObj(image.get(), &params));
        if (!crop) throw std::runtime_error("the library could not create its object");

        smartCrop::SuggestionParams request;
        request.useFaces = o.faces;
        const double sx = static_cast<double>(photo.bgr.cols) / photo.fullWidth;
        const double sy = static_cast<double>(photo.bgr.rows) / photo.fullHeight;
        if (o.sizeWidth > 0) {
            request.width = std::max(1.0, std::round(o.sizeWidth * sx));
            request.height = std::max(1.0, std::round(o.sizeHeight * sy));
        } else if (o.aspects.size() == 1 && !o.perAspect) {
            request.aspectRatio = o.aspects[0];
        }
        smartCrop::SelectionParams selection;
        selection.count = o.count;
        selection.mode = o.mode;
        std::copy(o.weights.begin(), o.weights.end(), selection.weights);
        selection.perAspectRatio = o.perAspect;
        smartCrop::ICropRects* out = nullptr;
        const smartCrop::eErrorCode code = crop->GetSuggestions(&out, &selection, &request);
        if (code != smartCrop::eSuccess) throw std::runtime_error(library_error(crop.get(), code));
        Counted<smartCrop::ICropRects> list(out);

        const bool exact =
            o.sizeWidth > 0 && o.sizeWidth <= photo.fullWidth && o.sizeHeight <= photo.fullHeight;
        std::vector<double> ratios = o.aspects;
        if (exact) ratios = {o.sizeWidth / o.sizeHeight};
        for (uint64_t i = 0; i < list->GetCount(); ++i) {
            const smartCrop::CropRect& c = list->GetRects()[i];
            result.crops.push_back(cli::to_full(photo, c, nearest_ratio(ratios, c),
                                                exact ? static_cast<int>(o.sizeWidth) : 0,
                                                exact ? static_cast<int>(o.sizeHeight) : 0));
        }
        result.facesAsked = o.faces;
        if (o.faces) result.faces = detected_faces(crop.get(), photo);
        if (!o.preview.empty()) {
            draw_preview(photo.bgr, result, sx,
                         with_index(o.preview, index, o.images.size()));
        }
        if (!o.cropsDir.empty()) write_crops(photo, result, o.cropsDir, file);
    } catch (const std::exception& e) {
        result.error = e.what();
    }
    return result;
}

void print_table(const Result& r) {
    std::printf("%s  %dx%d\n", r.file.c_str(), r.width, r.height);
    std::printf(
        "  rank   left    top  right bottom  width height   score  aesth  cover border   roi\n");
    for (size_t k = 0; k < r.crops.size(); ++k) {
        const smartCrop::CropRect& c = r.crops[k];
        std::printf("  %4zu %6d %6d %6d %6d %6d %6d  %6.3f %6.3f %6.3f %6.3f %5.3f\n", k + 1,
                    c.left, c.top, c.right, c.bottom, c.right - c.left + 1, c.bottom - c.top + 1,
                    c.score, c.aestheticScore, c.coverageScore, c.borderScore, c.roiScore);
    }
    if (r.facesAsked) {
        std::printf("  faces: %zu", r.faces.size());
        for (const cv::Rect& f : r.faces)
            std::printf("  (%d,%d)-(%d,%d)", f.x, f.y, f.br().x - 1, f.br().y - 1);
        std::printf("\n");
    }
}

std::string json_string(const std::string& s) {
    std::string out = "\"";
    for (unsigned char ch : s) {
        if (ch == '"' || ch == '\\') {
            out += '\\';
            out += static_cast<char>(ch);
        } else if (ch < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", ch);
            out += buf;
        } else {
            out += static_cast<char>(ch);
        }
    }
    return out + "\"";
}

std::string json_number(double v) {
    if (!std::isfinite(v)) return "null";
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

void print_json(const std::vector<Result>& results) {
    std::printf("[\n");
    for (size_t i = 0; i < results.size(); ++i) {
        const Result& r = results[i];
        std::printf("  {\"file\": %s", json_string(r.file).c_str());
        if (!r.error.empty()) {
            std::printf(", \"error\": %s}", json_string(r.error).c_str());
        } else {
            std::printf(", \"width\": %d, \"height\": %d, \"suggestions\": [", r.width, r.height);
            for (size_t k = 0; k < r.crops.size(); ++k) {
                const smartCrop::CropRect& c = r.crops[k];
                std::printf(
                    "%s\n    {\"rank\": %zu, \"left\": %d, \"top\": %d, \"right\": %d, \"bottom\": "
                    "%d, \"width\": %d, "
                    "\"height\": %d, \"score\": %s, \"aestheticScore\": %s, \"coverageScore\": %s, "
                    "\"borderScore\": %s, "
                    "\"peakShare\": %s, \"centreShare\": %s, \"roiScore\": %s, \"wellCovered\": "
                    "%s}",
                    k ? "," : "", k + 1, c.left, c.top, c.right, c.bottom, c.right - c.left + 1,
                    c.bottom - c.top + 1, json_number(c.score).c_str(),
                    json_number(c.aestheticScore).c_str(), json_number(c.coverageScore).c_str(),
                    json_number(c.borderScore).c_str(), json_number(c.peakShare).c_str(),
                    json_number(c.centreShare).c_str(), json_number(c.roiScore).c_str(),
                    c.wellCovered ? "true" : "false");
            }
            std::printf("%s]", r.crops.empty() ? "" : "\n  ");
            if (r.facesAsked) {
                std::printf(", \"faces\": [");
                for (size_t k = 0; k < r.faces.size(); ++k) {
                    const cv::Rect& f = r.faces[k];
                    std::printf("%s{\"left\": %d, \"top\": %d, \"right\": %d, \"bottom\": %d}",
                                k ? ", " : "", f.x, f.y, f.br().x - 1, f.br().y - 1);
                }
                std::printf("]");
            }
            std::printf("}");
        }
        std::printf("%s\n", i + 1 < results.size() ? "," : "");
    }
    std::printf("]\n");
}

// The face detector installed with this program, if there is one; else the
// library's own default applies ("data/ovex3" below the working folder, as
// in the source tree).
std::string installed_detector() {
    std::error_code ec;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return {};
    const std::filesystem::path config = exe.parent_path() / SMARTCROP_DETECTOR_FROM_BIN;
    return std::filesystem::is_regular_file(config, ec) ? config.lexically_normal().string() : "";
}

}  // namespace

int main(int argc, char** argv) {
    cli::Options o;
    try {
        o = cli::parse(argc, argv);
    } catch (const cli::UsageError& e) {
        if (*e.what()) std::fprintf(stderr, "smartcrop: %s\n", e.what());
        std::fputs(cli::kUsage, stderr);
        return 2;
    }
    if (!o.formatGiven) o.format = isatty(STDOUT_FILENO) ? cli::Format::Table : cli::Format::Json;
    if (o.models.empty()) o.models = installed_detector();
    if (!o.models.empty()) SetFaceDetectorConfigDir(o.models.c_str());

    std::vector<Result> results(o.images.size());
    std::atomic<size_t> next{0}, done{0};
    std::mutex progressMutex;
    const bool progress = o.images.size() > 1 && isatty(STDERR_FILENO);
    auto worker = [&] {
        for (size_t i; (i = next++) < o.images.size();) {
            results[i] = process(o, o.images[i], i);
            const size_t n = ++done;
            if (progress) {
                std::lock_guard<std::mutex> lock(progressMutex);
                const int width = 30, filled = static_cast<int>(width * n / o.images.size());
                std::fprintf(stderr, "\r[%s%s] %zu/%zu", std::string(filled, '#').c_str(),
                             std::string(width - filled, ' ').c_str(), n, o.images.size());
                if (n == o.images.size()) std::fprintf(stderr, "\n");
            }
        }
    };
    std::vector<std::thread> threads;
    for (int t = 1; t < std::min<int>(o.jobs, static_cast<int>(o.images.size())); ++t)
        threads.emplace_back(worker);
    worker();
    for (std::thread& t : threads) t.join();

    int status = 0;
    for (const Result& r : results) {
        if (!r.error.empty()) {
            std::fprintf(stderr, "smartcrop: %s: %s\n", r.file.c_str(), r.error.c_str());
            status = 1;
        }
    }
    if (o.format == cli::Format::Json) {
        print_json(results);
    } else {
        for (const Result& r : results) {
            if (r.error.empty()) print_table(r);
        }
    }
    return status;
}
