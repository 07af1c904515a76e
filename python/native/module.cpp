// smartcrop._native: the host layer for Python. The Python package wraps it
// in its own types; this file only moves values across and lets go of the
// interpreter lock while an image is decoded, analysed or asked.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "host/analysed_image.h"
#include "host/crop_request.h"
#include "host/decoded_image.h"
#include "host/face_detector_setup.h"
#include "host/host_error.h"
#include "host/photograph.h"
#include "host/request_options.h"

namespace py = pybind11;
namespace host = smartCrop::host;

namespace {

// left, top, right, bottom, score, aesthetic, coverage, border, peak share,
// centre share, roi score, well covered, overlap with the crops before it,
// the aspect ratio asked for.
using CropTuple = std::tuple<int32_t, int32_t, int32_t, int32_t, double, double, double, double,
                             double, double, double, bool, double, double>;
using BoxTuple = std::tuple<int32_t, int32_t, int32_t, int32_t>;
using Answer = std::tuple<std::vector<CropTuple>, std::vector<BoxTuple>, std::pair<double, double>>;
// (name, text) in the host layer's request options; the package turns its
// keyword arguments into these.
using OptionTexts = std::vector<std::pair<std::string, std::string>>;

// One analysed image. The library allows one thread at a time per object;
// with the interpreter lock released two Python threads could both be inside,
// so each call holds the object's own lock.
class Analysis {
public:
    static std::unique_ptr<Analysis> from_path(const std::string& path,
                                               const OptionTexts& options) {
        const host::RequestSettings settings = host::parse_request(options);
        host::OpenOptions open;
        open.decoding = settings.decoding;
        py::gil_scoped_release unlocked;
        return std::make_unique<Analysis>(host::open_photograph(path, settings.request, open));
    }

    static std::unique_ptr<Analysis> from_array(const py::array& pixels, const OptionTexts& options,
                                                bool bgr) {
        const py::buffer_info info = pixels.request();
        if (info.format != py::format_descriptor<uint8_t>::format())
            throw host::RequestError("the array's type must be uint8");
        const bool grey = info.ndim == 2;
        if (!(grey || (info.ndim == 3 && (info.shape[2] == 3 || info.shape[2] == 4))))
            throw host::RequestError(
                "the array must be height x width, or height x width x 3 or 4");
        if (info.shape[0] <= 0 || info.shape[1] <= 0 || info.shape[0] > UINT32_MAX ||
            info.shape[1] > UINT32_MAX)
            throw host::RequestError("the array has no pixels");
        // Rows may be apart; the pixels of a row must lie together.
        const py::ssize_t channels = grey ? 1 : info.shape[2];
        if (info.strides[1] != channels || (!grey && info.strides[2] != 1) ||
            info.strides[0] < info.shape[1] * channels)
            throw host::RequestError(
                "the array's rows must be contiguous (numpy.ascontiguousarray)");
        const host::CropRequest request = host::parse_request(options).request;
        const host::ChannelOrder order =
            grey            ? host::ChannelOrder::Grey
            : channels == 4 ? (bgr ? host::ChannelOrder::Bgra : host::ChannelOrder::Rgba)
                            : (bgr ? host::ChannelOrder::Bgr : host::ChannelOrder::Rgb);
        // The array stays referenced by the caller's frame while unlocked.
        py::gil_scoped_release unlocked;
        return std::make_unique<Analysis>(
            host::pixels_image(
                static_cast<const uint8_t*>(info.ptr), static_cast<uint32_t>(info.shape[1]),
                static_cast<uint32_t>(info.shape[0]), static_cast<size_t>(info.strides[0]), order),
            request);
    }

    Analysis(host::DecodedImage image, const host::CropRequest& request)
        : Analysis(host::AnalysedImage(std::move(image), request)) {}
    explicit Analysis(host::AnalysedImage image)
        : format(image.format()),
          analysed(std::make_unique<host::AnalysedImage>(std::move(image))) {}

    Answer suggest(const OptionTexts& options) {
        const host::CropRequest query = host::parse_request(options).request;
        host::CropAnswer answer;
        {
            py::gil_scoped_release unlocked;
            std::lock_guard<std::mutex> lock(busy);
            answer = open().suggest(query);
        }
        std::vector<CropTuple> crops;
        for (size_t k = 0; k < answer.crops.size(); ++k) {
            const smartCrop::CropRect& c = answer.crops[k];
            crops.emplace_back(c.left, c.top, c.right, c.bottom, c.score, c.aestheticScore,
                               c.coverageScore, c.borderScore, c.peakShare, c.centreShare,
                               c.roiScore, c.wellCovered, answer.overlaps[k], answer.aspects[k]);
        }
        return {crops, boxes_of(answer.faces), {answer.focus.x, answer.focus.y}};
    }

    // Of the analysis as it stands, without a query.
    std::vector<BoxTuple> faces() {
        py::gil_scoped_release unlocked;
        std::lock_guard<std::mutex> lock(busy);
        return boxes_of(open().faces());
    }
    bool looked_for_faces() {
        std::lock_guard<std::mutex> lock(busy);
        return open().looked_for_faces();
    }
    std::pair<double, double> focal_point() {
        py::gil_scoped_release unlocked;
        std::lock_guard<std::mutex> lock(busy);
        const host::FocalPoint p = open().focal_point();
        return {p.x, p.y};
    }

    void close() {
        py::gil_scoped_release unlocked;
        std::lock_guard<std::mutex> lock(busy);
        analysed.reset();
    }

    bool closed() const { return analysed == nullptr; }
    uint32_t width() { return open().full_width(); }
    uint32_t height() { return open().full_height(); }
    std::string format_name() const { return host::format_name(format); }

private:
    static std::vector<BoxTuple> boxes_of(const std::vector<host::FaceRect>& faces) {
        std::vector<BoxTuple> boxes;
        for (const host::FaceRect& f : faces) boxes.emplace_back(f.left, f.top, f.right, f.bottom);
        return boxes;
    }

    host::AnalysedImage& open() {
        if (!analysed) throw host::RequestError("the analysis is closed");
        return *analysed;
    }

    std::mutex busy;
    host::ImageFormat format;
    std::unique_ptr<host::AnalysedImage> analysed;
};

}  // namespace

PYBIND11_MODULE(_native, m) {
    m.doc() = "The smartcrop host layer; use the smartcrop package instead.";
    static py::exception<host::HostError> error(m, "Error", PyExc_RuntimeError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const host::RequestError& e) {
            PyErr_SetString(PyExc_ValueError, e.what());
        } catch (const host::HostError& e) {
            error(e.what());
        }
    });

    m.def("use_face_detector", &host::use_face_detector, py::arg("config_path"),
          py::call_guard<py::gil_scoped_release>());
    m.def(
        "request_options",
        [] {
            std::vector<std::tuple<std::string, bool, bool, std::string>> out;
            for (const host::RequestOption& o : host::request_options())
                out.emplace_back(o.name, o.value == nullptr, o.repeatable, o.help);
            return out;
        },
        "(name, is a switch, repeatable, help) of every request option");
    m.def("parse_ratio", &host::parse_ratio, py::arg("text"));
    m.def(
        "check_options", [](const OptionTexts& options) { host::parse_request(options); },
        py::arg("options"));

    py::class_<Analysis>(m, "Analysis")
        .def_static("from_path", &Analysis::from_path, py::arg("path"), py::arg("options"))
        .def_static("from_array", &Analysis::from_array, py::arg("pixels"), py::arg("options"),
                    py::arg("bgr") = false)
        .def("suggest", &Analysis::suggest, py::arg("options"))
        .def("faces", &Analysis::faces)
        .def("focal_point", &Analysis::focal_point)
        .def_property_readonly("looked_for_faces", &Analysis::looked_for_faces)
        .def("close", &Analysis::close)
        .def_property_readonly("closed", &Analysis::closed)
        .def_property_readonly("width", &Analysis::width)
        .def_property_readonly("height", &Analysis::height)
        .def_property_readonly("format", &Analysis::format_name);
}
