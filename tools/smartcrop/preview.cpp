#include "preview.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <string>

#include "host/image_encoding.h"

namespace cli {

namespace {

// Colours in the library's layout: ignored, red, green, blue.
const cv::Scalar kBlack(0, 0, 0, 0), kFace(0, 255, 60, 60), kFirst(0, 255, 230, 0),
    kOther(0, 80, 200, 255), kWhite(0, 255, 255, 255);

}  // namespace

std::vector<uint8_t> draw_preview(const smartCrop::host::AnalysedImage& image,
                                  const smartCrop::host::CropAnswer& answer,
                                  smartCrop::host::ImageFormat format) {
    const cv::Mat pixels(static_cast<int>(image.height()), static_cast<int>(image.width()), CV_8UC4,
                         const_cast<uint8_t*>(image.pixels()), image.stride());
    const double shrink = std::min(1.0, 1024.0 / std::max(pixels.cols, pixels.rows));
    cv::Mat preview;
    cv::resize(pixels, preview, cv::Size(), shrink, shrink, cv::INTER_AREA);
    // From full-resolution pixels to the preview's.
    const double s = shrink * image.width() / image.full_width();
    auto box = [&](int left, int top, int right, int bottom) {
        return cv::Rect(cv::Point(static_cast<int>(left * s), static_cast<int>(top * s)),
                        cv::Point(static_cast<int>((right + 1) * s) - 1,
                                  static_cast<int>((bottom + 1) * s) - 1));
    };
    for (const smartCrop::host::FaceRect& f : answer.faces)
        cv::rectangle(preview, box(f.left, f.top, f.right, f.bottom), kFace, 2);
    for (size_t k = answer.crops.size(); k-- > 0;) {  // rank 1 drawn last, on top
        const smartCrop::CropRect& c = answer.crops[k];
        const cv::Rect r = box(c.left, c.top, c.right, c.bottom);
        const bool first = k == 0;
        const cv::Scalar colour = first ? kFirst : kOther;
        cv::rectangle(preview, r, kBlack, first ? 7 : 4);
        cv::rectangle(preview, r, colour, first ? 4 : 2);
        const std::string label = std::to_string(k + 1);
        const cv::Point at(r.x + 8, r.y + (first ? 34 : 26));
        const double fontScale = first ? 1.1 : 0.8;
        cv::putText(preview, label, at, cv::FONT_HERSHEY_SIMPLEX, fontScale, kBlack, 5,
                    cv::LINE_AA);
        cv::putText(preview, label, at, cv::FONT_HERSHEY_SIMPLEX, fontScale, colour, 2,
                    cv::LINE_AA);
    }
    // The focal point: a white cross on black.
    const cv::Point focus(static_cast<int>(answer.focus.x * preview.cols),
                          static_cast<int>(answer.focus.y * preview.rows));
    for (const auto& [colour, thickness] : {std::pair{kBlack, 6}, std::pair{kWhite, 2}}) {
        cv::drawMarker(preview, focus, colour, cv::MARKER_CROSS, 28, thickness, cv::LINE_AA);
    }
    return smartCrop::host::encode_image(format, preview.data, static_cast<uint32_t>(preview.cols),
                                         static_cast<uint32_t>(preview.rows), preview.step);
}

}  // namespace cli
