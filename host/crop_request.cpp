#include "host/crop_request.h"

#include <cmath>
#include <string>

namespace smartCrop::host {

void check_request(const CropRequest& r) {
    if (r.width == 0 && r.aspects.empty()) throw RequestError("no aspect ratio was asked for");
    if (r.scales.empty()) throw RequestError("no scale was asked for");
    // The library's work grows faster than the lists: a thousand ratios took
    // seconds and most of a gigabyte. No page or editor asks for more.
    if (r.aspects.size() > kMaxRatios || r.scales.size() > kMaxRatios)
        throw RequestError("at most " + std::to_string(kMaxRatios) +
                           " aspect ratios and as many scales may be asked for at once");
    for (double a : r.aspects) {
        if (!(a > 0) || !std::isfinite(a))
            throw RequestError("an aspect ratio must be a positive number");
    }
    // The library accepts a scale above 1 and then fails every query without a word.
    for (double s : r.scales) {
        if (!(s > 0 && s <= 1)) throw RequestError("scales lie in (0, 1]");
    }
    if ((r.width == 0) != (r.height == 0))
        throw RequestError("an exact size needs a width and a height");
    if (r.count == 0) throw RequestError("at least one suggestion must be asked for");
    if (r.mode > 3) throw RequestError("the mode is 0, 1, 2 or 3");
    for (double w : r.weights) {
        if (!std::isfinite(w)) throw RequestError("the weights must be finite numbers");
    }
    if (!r.designDefaults && (r.mode != 0 || r.weights != CropRequest().weights))
        throw RequestError(
            "a mode and weights rank the library's own way: ask for design-defaults");
    for (const RectOfInterest& rect : r.rects) {
        if (rect.left > rect.right || rect.top > rect.bottom || rect.kind > eRoiForbidden)
            throw RequestError("a rectangle of interest is empty, inverted or of an unknown kind");
    }
}

uint32_t reduced_long_side(const CropRequest& request) {
    if (!request.rects.empty()) return 0;
    return request.faces ? 1024 : 640;
}

}  // namespace smartCrop::host
