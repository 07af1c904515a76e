// smartcrop: proposes good crops of photographs from the command line.
// A host like any other: it reaches the library through the host layer and
// the public header. Exit codes: 0 all images done, 1 any image (or any
// output) failed, 2 usage.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <opencv2/core.hpp>
#include <string>
#include <thread>
#include <vector>

#include "heap_policy.h"
#include "host/analysed_image.h"
#include "host/face_detector_setup.h"
#include "host/image_decoding.h"
#include "host/image_encoding.h"
#include "host/photograph.h"
#include "host/safe_output.h"
#include "options.h"
#include "preview.h"

namespace {

namespace host = smartCrop::host;

struct Result {
    std::string file;
    bool analysed = false;  // width, height and answer are valid
    uint32_t width = 0, height = 0;
    host::CropAnswer answer;
    std::string error;  // empty on success
    bool finished = false;
};

// SIGINT or SIGTERM: no image is started after it; those in flight finish
// (their files land whole), and the records of every finished image are
// printed. A second signal ends the program at once.
// Lock-free, so safe in a handler, and read by the worker threads.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void on_stop(int signal) {
    stopSignal = signal;
}

void stop_on_signals() {
    struct sigaction action {};
    action.sa_handler = on_stop;
    action.sa_flags = SA_RESTART | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

std::string with_index(const std::string& path, size_t index, size_t total) {
    if (total <= 1) return path;
    const std::filesystem::path p(path);
    return (p.parent_path() /
            (p.stem().string() + "-" + std::to_string(index + 1) + p.extension().string()))
        .string();
}

std::string write_error(const host::HostError& e) {
    // The one refusal a user can lift from the command line.
    if (dynamic_cast<const host::ExistsError*>(&e) != nullptr)
        return std::string(e.what()) + " (--overwrite replaces it)";
    return e.what();
}

// Every crop of one image, all written or none, cut from full-resolution
// pixels: the analysed ones when the decode was not reduced, else the file
// decoded again at full size (the answer stays the one the reduced decode
// gave, so that asking for crops does not change it).
void write_crops(const std::string& file, const host::DecodeOptions& decoding,
                 const host::AnalysedImage& image, const host::CropAnswer& answer,
                 const std::string& dir, const std::string& stem, bool overwrite,
                 const host::ProtectedFiles& inputs) {
    host::DecodedImage full;
    const uint8_t* pixels = image.pixels();
    size_t stride = image.stride();
    if (image.width() != image.full_width() || image.height() != image.full_height()) {
        host::DecodeOptions fullSize = decoding;
        fullSize.reducedLongSide = 0;
        full = host::decode_file(file, fullSize);
        if (full.width != image.full_width() || full.height != image.full_height())
            throw host::HostError("the file changed while it was read");
        pixels = full.pixels.data();
        stride = size_t{4} * full.width;
    }
    const host::ImageFormat format = host::crop_format(image.format());
    host::OutputGroup group(overwrite, &inputs);
    for (size_t k = 0; k < answer.crops.size(); ++k) {
        const smartCrop::CropRect& c = answer.crops[k];
        const uint8_t* at = pixels + c.top * stride + size_t{4} * c.left;
        const std::string path = (std::filesystem::path(dir) /
                                  (stem + "-" + std::to_string(k + 1) + host::extension_of(format)))
                                     .string();
        group.stage(path,
                    host::encode_image(format, at, static_cast<uint32_t>(c.right - c.left + 1),
                                       static_cast<uint32_t>(c.bottom - c.top + 1), stride));
    }
    group.commit();
}

Result process(const cli::Options& o, size_t index, const std::string& stem,
               const host::ProtectedFiles& inputs) {
    Result result;
    result.file = o.images[index];
    try {
        host::OpenOptions open;
        open.decoding = o.decoding;
        open.beforeAnalysis = [](const host::DecodedImage& decoded) {
            cli::prefault_heap_for(decoded.width, decoded.height);
        };
        const host::AnalysedImage image = host::open_photograph(result.file, o.request, open);
        result.answer = image.suggest();
        result.width = image.full_width();
        result.height = image.full_height();
        result.analysed = true;
        try {
            if (!o.cropsDir.empty())
                write_crops(result.file, o.decoding, image, result.answer, o.cropsDir, stem,
                            o.overwrite, inputs);
            if (!o.preview.empty()) {
                host::write_file_safely(
                    with_index(o.preview, index, o.images.size()),
                    cli::draw_preview(image, result.answer, host::format_for_name(o.preview)),
                    o.overwrite, &inputs);
            }
        } catch (const host::HostError& e) {
            result.error = write_error(e);
        }
    } catch (const std::exception& e) {
        result.error = e.what();
    }
    return result;
}

// A score that is not a number (a lone candidate's rank score) shows as "-".
std::string cell(double v, const char* format) {
    if (!std::isfinite(v)) return "-";
    char buf[32];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

void print_table(const Result& r, bool faces) {
    std::printf("%s  %ux%u\n", r.file.c_str(), r.width, r.height);
    std::printf(
        "  rank   left    top  right bottom  width height   score  aesth  cover border   roi\n");
    for (size_t k = 0; k < r.answer.crops.size(); ++k) {
        const smartCrop::CropRect& c = r.answer.crops[k];
        std::printf("  %4zu %6d %6d %6d %6d %6d %6d  %6s %6s %6s %6s %5s\n", k + 1, c.left, c.top,
                    c.right, c.bottom, c.right - c.left + 1, c.bottom - c.top + 1,
                    cell(c.score, "%.3f").c_str(), cell(c.aestheticScore, "%.3f").c_str(),
                    cell(c.coverageScore, "%.3f").c_str(), cell(c.borderScore, "%.3f").c_str(),
                    cell(c.roiScore, "%.3f").c_str());
    }
    std::printf("  focus: %.3f %.3f\n", r.answer.focus.x, r.answer.focus.y);
    if (faces) {
        std::printf("  faces: %zu", r.answer.faces.size());
        for (const host::FaceRect& f : r.answer.faces)
            std::printf("  (%d,%d)-(%d,%d)", f.left, f.top, f.right, f.bottom);
        std::printf("\n");
    }
}

// The length of the well-formed UTF-8 sequence at s[i], 0 when there is none.
size_t utf8_length(const std::string& s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    for (size_t k = 1; k < n; ++k)
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
    if ((n == 2 && c < 0xC2) || (n == 3 && c == 0xE0 && byte(i + 1) < 0xA0) ||
        (n == 3 && c == 0xED && byte(i + 1) >= 0xA0) ||
        (n == 4 && c == 0xF0 && byte(i + 1) < 0x90) ||
        (n == 4 && (c > 0xF4 || (c == 0xF4 && byte(i + 1) >= 0x90))))
        return 0;
    return n;
}

// A file name is bytes, not always UTF-8: a byte that is not part of UTF-8
// is written as the lone surrogate U+DC00 + byte, as Python's
// surrogateescape reads it (os.fsencode gives the name back).
std::string json_string(const std::string& s) {
    std::string out = "\"";
    char buf[8];
    for (size_t i = 0; i < s.size();) {
        const unsigned char ch = static_cast<unsigned char>(s[i]);
        const size_t n = utf8_length(s, i);
        if (n == 0) {
            std::snprintf(buf, sizeof buf, "\\udc%02x", ch);
            out += buf;
            ++i;
        } else if (ch == '"' || ch == '\\') {
            out += '\\';
            out += static_cast<char>(ch);
            ++i;
        } else if (ch < 0x20) {
            std::snprintf(buf, sizeof buf, "\\u%04x", ch);
            out += buf;
            ++i;
        } else {
            out.append(s, i, n);
            i += n;
        }
    }
    return out + "\"";
}

// Not a number is null: JSON has no NaN.
std::string json_number(double v) {
    return std::isfinite(v) ? cell(v, "%.6g") : "null";
}

// One suggestion's fields; `rank` counts from 1 in its list.
std::string suggestion_json(const Result& r, size_t k, size_t rank) {
    const smartCrop::CropRect& c = r.answer.crops[k];
    char buf[640];
    std::snprintf(buf, sizeof buf,
                  "{\"rank\": %zu, \"left\": %d, \"top\": %d, \"right\": %d, \"bottom\": "
                  "%d, \"width\": %d, \"height\": %d, \"score\": %s, \"aestheticScore\": %s, "
                  "\"coverageScore\": %s, \"borderScore\": %s, \"peakShare\": %s, "
                  "\"centreShare\": %s, \"roiScore\": %s, \"wellCovered\": %s, \"overlap\": %.4f, "
                  "\"aspect\": %.6g}",
                  rank, c.left, c.top, c.right, c.bottom, c.right - c.left + 1,
                  c.bottom - c.top + 1, json_number(c.score).c_str(),
                  json_number(c.aestheticScore).c_str(), json_number(c.coverageScore).c_str(),
                  json_number(c.borderScore).c_str(), json_number(c.peakShare).c_str(),
                  json_number(c.centreShare).c_str(), json_number(c.roiScore).c_str(),
                  c.wellCovered ? "true" : "false",
                  k < r.answer.overlaps.size() ? r.answer.overlaps[k] : 0.0,
                  k < r.answer.aspects.size() ? r.answer.aspects[k] : 0.0);
    return buf;
}

// One photograph's record; `indent` goes before each suggestion and before
// the list's end ("" keeps the record on one line, as JSON lines want it).
// Asked per ratio, the suggestions come as one list per ratio ("groups", in
// the request's order, ranks counted in each), so that a caller need not
// regroup them.
std::string json_record(const Result& r, bool faces, bool perAspect, const std::string& indent,
                        const std::string& close) {
    std::string out = "{\"file\": " + json_string(r.file);
    char buf[160];
    if (r.analysed) {
        std::snprintf(buf, sizeof buf, ", \"width\": %u, \"height\": %u, ", r.width, r.height);
        out += buf;
        const std::vector<double>& aspects = r.answer.aspects;
        const size_t n = r.answer.crops.size();
        const std::string inner = perAspect && !indent.empty() ? indent + "  " : indent;
        out += perAspect ? "\"groups\": [" : "\"suggestions\": [";
        for (size_t k = 0, rank = 1; k < n; ++k, ++rank) {
            const bool opens = perAspect && (k == 0 || aspects[k] != aspects[k - 1]);
            if (opens) {
                rank = 1;
                std::snprintf(buf, sizeof buf, "{\"aspect\": %.6g, \"suggestions\": [", aspects[k]);
                out += (k ? inner.substr(0, indent.size()) + "]}," : "") + indent + buf;
            }
            out += (k && !opens ? "," : "") + inner + suggestion_json(r, k, rank);
        }
        if (perAspect && n > 0) out += indent + "]}";
        std::snprintf(buf, sizeof buf, "%s], \"focus\": {\"x\": %.4f, \"y\": %.4f}",
                      n == 0 ? "" : close.c_str(), r.answer.focus.x, r.answer.focus.y);
        out += buf;
        if (faces) {
            out += ", \"faces\": [";
            for (size_t k = 0; k < r.answer.faces.size(); ++k) {
                const host::FaceRect& f = r.answer.faces[k];
                std::snprintf(buf, sizeof buf,
                              "%s{\"left\": %d, \"top\": %d, \"right\": %d, \"bottom\": %d}",
                              k ? ", " : "", f.left, f.top, f.right, f.bottom);
                out += buf;
            }
            out += "]";
        }
    }
    if (!r.error.empty()) out += ", \"error\": " + json_string(r.error);
    return out + "}";
}

void print_json(const std::vector<Result>& results, bool faces, bool perAspect) {
    std::printf("[\n");
    for (size_t i = 0; i < results.size(); ++i) {
        std::printf("  %s%s\n", json_record(results[i], faces, perAspect, "\n    ", "\n  ").c_str(),
                    i + 1 < results.size() ? "," : "");
    }
    std::printf("]\n");
}

// The face detector installed with this program (in the build tree, the copy
// laid out the same way), whatever the working folder.
std::string installed_detector() {
    std::error_code ec;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? "" : host::installed_face_detector(exe.string(), SMARTCROP_DETECTOR_FROM_BIN);
}

}  // namespace

int main(int argc, char** argv) {
    cli::Options o;
    try {
        o = cli::parse(argc, argv);
    } catch (const std::runtime_error& e) {
        std::fprintf(stderr, "smartcrop: %s (smartcrop --help lists the options)\n", e.what());
        return 2;
    }
    if (o.action == cli::Options::Action::Help) {
        std::fputs(cli::usage().c_str(), stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    if (o.action == cli::Options::Action::Version) {
        std::printf("smartcrop %s\n", SMARTCROP_VERSION);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    // Parallelism is -j's alone: OpenCV's pool would otherwise put the host
    // layer's resizes on threads nobody asked for.
    cv::setNumThreads(1);
    cli::keep_heap();
    if (!o.formatGiven) o.format = isatty(STDOUT_FILENO) ? cli::Format::Table : cli::Format::Json;
    if (o.request.faces) {
        const std::string config = o.models.empty() ? installed_detector() : o.models;
        if (config.empty()) {
            std::fprintf(stderr,
                         "smartcrop: --faces: no face detector is installed beside the program; "
                         "--models names its configuration\n");
            return 1;
        }
        try {
            host::use_face_detector(config);
        } catch (const host::HostError& e) {
            std::fprintf(stderr, "smartcrop: %s\n", e.what());
            return 1;
        }
    }
    if (!o.cropsDir.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(o.cropsDir, ec);
        if (ec) {
            std::fprintf(stderr, "smartcrop: cannot create %s: %s\n", o.cropsDir.c_str(),
                         ec.message().c_str());
            return 1;
        }
    }

    const std::vector<std::string> stems = host::unique_stems(o.images);
    // No output of the run replaces one of its inputs, --overwrite or not.
    const host::ProtectedFiles inputs(o.images);
    std::vector<Result> results(o.images.size());
    std::atomic<size_t> next{0}, done{0};
    std::mutex progressMutex, printMutex;
    size_t printed = 0;
    const bool progress = o.images.size() > 1 && isatty(STDERR_FILENO);
    stop_on_signals();
    auto worker = [&] {
        for (size_t i; stopSignal == 0 && (i = next++) < o.images.size();) {
            results[i] = process(o, i, stems[i], inputs);
            if (o.format == cli::Format::JsonLines) {
                // Each record as soon as it and all before it are done.
                std::lock_guard<std::mutex> lock(printMutex);
                results[i].finished = true;
                for (; printed < results.size() && results[printed].finished; ++printed)
                    std::printf("%s\n", json_record(results[printed], o.request.faces,
                                                    o.request.perAspect, "", "")
                                            .c_str());
                std::fflush(stdout);
            }
            results[i].finished = true;
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
    const int stopped = stopSignal;
    if (stopped != 0) {
        if (progress) std::fprintf(stderr, "\n");
        results.erase(std::remove_if(results.begin(), results.end(),
                                     [](const Result& r) { return !r.finished; }),
                      results.end());
    }

    int status = 0;
    for (const Result& r : results) {
        if (!r.error.empty()) {
            std::fprintf(stderr, "smartcrop: %s: %s\n", r.file.c_str(), r.error.c_str());
            status = 1;
        }
    }
    if (o.format == cli::Format::Json) {
        print_json(results, o.request.faces, o.request.perAspect);
    } else if (o.format == cli::Format::JsonLines) {
        // Printed as the images finished.
    } else {
        for (const Result& r : results) {
            if (r.analysed) print_table(r, o.request.faces);
        }
    }
    // A full disk or a closed pipe must not pass for success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::fprintf(stderr, "smartcrop: cannot write the output: %s\n", std::strerror(errno));
        return 1;
    }
    if (stopped != 0) {
        std::fprintf(stderr, "smartcrop: stopped by a signal after %zu of %zu images\n",
                     results.size(), o.images.size());
        return 128 + stopped;
    }
    return status;
}
