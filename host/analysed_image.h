// One decoded image handed to the library and analysed once; its answers in
// the image's full-resolution pixels. Refusals are HostErrors carrying the
// library's own reason, and an answer is never silently empty.
#ifndef SMARTCROP_HOST_ANALYSED_IMAGE_H
#define SMARTCROP_HOST_ANALYSED_IMAGE_H

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "SmartCrop.h"
#include "host/crop_request.h"
#include "host/crop_selection.h"
#include "host/decoded_image.h"
#include "host/host_error.h"
#include "host/sharpness_map.h"

namespace smartCrop::host {

struct CropAnswer {
    std::vector<CropRect> crops;  // ranked; coordinates in full-resolution pixels
    // Filled when faces were asked for: as the library counts them (widened
    // around the detector's box), inclusive full-resolution pixels.
    std::vector<FaceRect> faces;
    FocalPoint focus;
    // Per crop, its largest overlap (intersection over union) with a crop
    // ranked before it: how distinct it is. 0 for the first.
    std::vector<double> overlaps;
    // Per crop, the requested aspect ratio (width over height) it was made
    // for; an exact size's own ratio.
    std::vector<double> aspects;
};

class AnalysedImage {
public:
    // Checks the request and lets the library analyse the decoded pixels,
    // which it holds from then on.
    AnalysedImage(DecodedImage image, CropRequest request);

    // The host layer's answer (see crop_selection.h), or with `plain` in the
    // request the library's own ranking as designed. RequestError when the
    // request cannot be answered on this image.
    CropAnswer suggest() const;
    // Another request on the same analysis. Ratios, scales, sizes, counts and
    // rankings are cheap; rectangles of interest shape the analysis, and so
    // does face detection, so a query that changes its rectangles or first
    // asks for faces analyses the image again.
    CropAnswer suggest(const CropRequest& query);

    // One point per photograph for the analysis as it stands (see
    // crop_selection.h): on the faces when the analysis looked for them and
    // found some, else where the subject's mass (saliency and sharp detail)
    // centres. Every answer carries it.
    FocalPoint focal_point() const;
    // The faces the analysis found (empty when it did not look), as in
    // CropAnswer.
    std::vector<FaceRect> faces() const;
    bool looked_for_faces() const { return analysedWithFaces; }

    ImageFormat format() const { return sourceFormat; }
    uint32_t full_width() const { return fullWidth; }
    uint32_t full_height() const { return fullHeight; }
    // The pixels as the library holds them (decoded size, maybe reduced).
    uint32_t width() const;
    uint32_t height() const;
    const uint8_t* pixels() const;
    size_t stride() const;

private:
    void analyse();
    CropRect to_full(const CropRect& crop) const;
    // The request's exact size in the decoded pixels the library holds.
    std::pair<double, double> decoded_size() const;
    // The library's list for the query, or a HostError with its reason.
    std::vector<CropRect> ask(bool all, const SuggestionParams& query,
                              const SelectionParams& selection) const;
    std::vector<FaceRect> library_faces() const;
    const SharpnessMap& sharpness() const;
    std::optional<FaceRect> subject_box() const;

    CropRequest request;
    std::vector<RectOfInterest> decodedRects;   // the request's, in the decoded pixels
    std::vector<RectOfInterest> analysedRects;  // full-resolution, as the analysis has them
    bool analysedWithFaces = false;
    ImageFormat sourceFormat;
    uint32_t fullWidth, fullHeight;
    Counted<IImage> image;
    Counted<ISmartCrop> crop;
    // Made once from the pixels, which do not change; made before the
    // analysis when the first request ranks with it, so that its scratch
    // is freed before the analysis's tables take their memory.
    mutable std::optional<SharpnessMap> sharp;
    mutable std::optional<FocalPoint> focus;  // of the current analysis
    // Where the subject lies, full-resolution pixels (none when the picture
    // is flat); of the current analysis.
    mutable std::optional<std::optional<FaceRect>> subject;
    mutable FocalPoint subjectCentre;  // of its mass, as fractions
};

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_ANALYSED_IMAGE_H
