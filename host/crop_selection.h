// What a good host makes of the library's scored candidates: faces whole or
// not there, the best crop of each ratio first, alternatives that differ
// visibly, subjects at the image's edge kept; and the focal point.
#ifndef SMARTCROP_HOST_CROP_SELECTION_H
#define SMARTCROP_HOST_CROP_SELECTION_H

#include <cstdint>
#include <vector>

#include "SmartCrop.h"

namespace smartCrop::host {

// A rectangle in inclusive full-resolution pixels.
struct FaceRect {
    int32_t left = 0, top = 0, right = 0, bottom = 0;
};

struct SelectionOptions {
    uint32_t count = 5;      // per ratio with perAspect
    bool perAspect = false;  // grouped by ratio, in the request's order
    // Alternatives overlap every crop before them by at most this (area of
    // the intersection over the union): at 0.5 two crops of one ratio are
    // shifted by at least a third of their width, which a viewer sees.
    // Relaxed step by step to 1 when fewer than `count` crops keep to it.
    double overlapLimit = 0.5;
    // The subject's boxes, the first with room around it (see with_room),
    // then the subject alone: for each ratio, the first
    // that some crop of it holds is what its first crop holds, and that crop
    // is one of the tightest that do (up to about one scale step larger), so
    // that a small subject in a large empty frame is not left small.
    // Alternatives may be larger.
    std::vector<FaceRect> subjects;
};

// The subject's box (see AnalysedImage) together with the faces.
FaceRect subject_and_faces(const FaceRect& subject, const std::vector<FaceRect>& faces);
// Grown by a fifth of its size on each side within the image, so that the
// subject does not touch the crop's edge.
FaceRect with_room(const FaceRect& box, uint32_t width, uint32_t height);

// The index of the ratio of `ratios` (not empty) nearest to the crop's, by
// the logarithm of their quotient: the ratio the crop was made for.
size_t nearest_ratio(const std::vector<double>& ratios, const CropRect& crop);

// `candidates`: every crop the library scored (full-resolution pixels, with
// its features), `sharpness`: the share of the picture's sharp detail in
// each (see SharpnessMap; empty to leave it out), `ratios`: the requested
// ones, `faces`: the detector's own boxes. Ranked, best first.
std::vector<CropRect> select_crops(const std::vector<CropRect>& candidates,
                                   const std::vector<double>& sharpness,
                                   const std::vector<double>& ratios,
                                   const std::vector<FaceRect>& faces, uint32_t width,
                                   uint32_t height, const SelectionOptions& options);

// Where a web page should keep its focus when it crops on its own (CSS
// object-position), as fractions of the width and the height: one point per
// photograph, whatever is asked of it.
struct FocalPoint {
    double x = 0.5, y = 0.5;
};
// The middle of the faces (the detector's boxes), each weighed by its
// `strength` (same length; every face alike when all are 0): faces weaker
// than a quarter of the strongest are doubtful or minor and left out, so a
// lone blurred face far from the rest cannot pull the point off the subject.
FocalPoint face_focus(const std::vector<FaceRect>& faces, const std::vector<double>& strength,
                      uint32_t width, uint32_t height);

// The detector's box a face rectangle of the library stands for: the library
// widens the box 1.5 times about its centre.
FaceRect tight_face(const FaceRect& widened);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_CROP_SELECTION_H
