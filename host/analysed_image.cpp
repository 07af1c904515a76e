#include "host/analysed_image.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>

#include "kernels/library_contract.h"
#include "kernels/rect_geometry.h"

namespace smartCrop::host {

namespace {

constexpr uint64_t kThinnest = 300;

// An exact size adds its ratio and scale to the object's lists for good, and
// every listed cell is scored by each query after, enabled or not. Past this
// many entries beyond the request's the image is analysed afresh: a long run
// of sizes then costs one analysis per this many sizes, not a query that
// grows without limit.
constexpr uint64_t kListSlack = 16;

// The subject: the smallest box of a 16 x 16 grid over the picture that
// holds this share of its mass (saliency and sharp detail, half each).
constexpr int kSubjectGrid = 16;
constexpr double kSubjectMass = 0.7;

std::string size_text(uint64_t width, uint64_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

// Outward, so that a hard rectangle keeps all it holds on a reduced image.
RectOfInterest to_decoded(RectOfInterest r, double sx, double sy) {
    r.left = static_cast<int32_t>(std::floor(r.left * sx));
    r.top = static_cast<int32_t>(std::floor(r.top * sy));
    r.right = static_cast<int32_t>(std::ceil((r.right + 1) * sx)) - 1;
    r.bottom = static_cast<int32_t>(std::ceil((r.bottom + 1) * sy)) - 1;
    return r;
}

}  // namespace

AnalysedImage::AnalysedImage(DecodedImage decoded, CropRequest req)
    : request(std::move(req)),
      sourceFormat(decoded.format),
      fullWidth(decoded.fullWidth),
      fullHeight(decoded.fullHeight) {
    check_request(request);
    // The analysis scales the image to 300 pixels on its long side for the
    // saliency; beyond 300:1 the short side would round to nothing.
    const uint64_t shortSide = std::min(decoded.width, decoded.height);
    if (std::max(decoded.width, decoded.height) > kThinnest * shortSide) {
        throw HostError("the image is too thin to crop: " + size_text(fullWidth, fullHeight) +
                        " pixels (its sides may differ by 300 times at most)");
    }
    image = decoded.pixels.release();
    if (!image) throw HostError("the image has no pixels");
    if (!request.designDefaults) sharpness();
    analyse();
}

void AnalysedImage::analyse() {
    std::vector<RatioEntry> aspects, scales;
    for (double r : request.aspects) aspects.push_back({r, true});
    for (double s : request.scales) scales.push_back({s, true});
    const double sx = static_cast<double>(width()) / fullWidth;
    const double sy = static_cast<double>(height()) / fullHeight;
    decodedRects.clear();
    for (const RectOfInterest& r : request.rects) decodedRects.push_back(to_decoded(r, sx, sy));
    SmartCropParams params;
    params.aspectRatios = aspects.data();
    params.aspectRatioCount = static_cast<uint32_t>(aspects.size());
    params.scaleRatios = scales.data();
    params.scaleRatioCount = static_cast<uint32_t>(scales.size());
    params.rectsOfInterest = decodedRects.data();
    params.rectsOfInterestCount = static_cast<uint32_t>(decodedRects.size());
    params.detectFaces = request.faces;
    analysedRects = request.rects;
    analysedWithFaces = request.faces;
    focus.reset();
    subject.reset();
    subjectCentre = FocalPoint{};
    crop.reset(CreateSmartCropObj(image.get(), &params));
    if (!crop) throw HostError("out of memory for the analysis");
    // The object comes back also when its analysis failed; its text says why.
    const char* failure = crop->GetLastErrorText();
    if (failure != nullptr && *failure != '\0') throw HostError(failure);
}

namespace {

bool same_rects(const std::vector<RectOfInterest>& a, const std::vector<RectOfInterest>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const RectOfInterest& x, const RectOfInterest& y) {
                          return x.left == y.left && x.top == y.top && x.right == y.right &&
                                 x.bottom == y.bottom && x.kind == y.kind;
                      });
}

}  // namespace

CropAnswer AnalysedImage::suggest(const CropRequest& query) {
    check_request(query);
    uint64_t listedAspects = 0, listedScales = 0;
    crop->GetAspectRatios(&listedAspects);
    crop->GetScaleRatios(&listedScales);
    const bool again = !same_rects(query.rects, analysedRects) ||
                       (query.faces && !analysedWithFaces) ||
                       listedAspects > query.aspects.size() + kListSlack ||
                       listedScales > query.scales.size() + kListSlack;
    request = query;
    if (again) {
        analyse();
    } else {
        // Which ratios and scales take part is a switch on the candidates,
        // not part of the analysis: every listed one off, then the query's on.
        const auto set_only = [&](const std::vector<double>& wanted, auto get, auto set) {
            uint64_t n = 0;
            const RatioEntry* listed = (crop.get()->*get)(&n);
            std::vector<double> existing;
            for (uint64_t i = 0; i < n; ++i) existing.push_back(listed[i].ratio);
            for (double r : existing) (crop.get()->*set)(r, false);
            for (double r : wanted)
                if ((crop.get()->*set)(r, true) != eSuccess)
                    throw HostError(std::string("the library refused a ratio: ") +
                                    crop->GetLastErrorText());
        };
        set_only(request.aspects, &ISmartCrop::GetAspectRatios, &ISmartCrop::SetAspectRatio);
        set_only(request.scales, &ISmartCrop::GetScaleRatios, &ISmartCrop::SetScaleRatio);
        // The entries an exact size of an earlier query added were switched
        // off with the rest; the library refuses a size whose entries are off.
        if (request.width > 0) {
            const auto [w, h] = decoded_size();
            const double W = width(), H = height(), r = w / h;
            crop->SetAspectRatio(r, true);
            crop->SetScaleRatio(r > W / H ? w / W : h / H, true);
        }
    }
    return suggest();
}

std::pair<double, double> AnalysedImage::decoded_size() const {
    const double sx = static_cast<double>(width()) / fullWidth;
    const double sy = static_cast<double>(height()) / fullHeight;
    return {std::max(1.0, std::round(request.width * sx)),
            std::max(1.0, std::round(request.height * sy))};
}

uint32_t AnalysedImage::width() const {
    return static_cast<uint32_t>(image->GetWidth());
}
uint32_t AnalysedImage::height() const {
    return static_cast<uint32_t>(image->GetHeight());
}
const uint8_t* AnalysedImage::pixels() const {
    return image->GetConstPixels();
}
size_t AnalysedImage::stride() const {
    return static_cast<size_t>(image->GetRowStride());
}

CropRect AnalysedImage::to_full(const CropRect& c) const {
    if (width() == fullWidth && height() == fullHeight) return c;
    const int W = static_cast<int>(fullWidth), H = static_cast<int>(fullHeight);
    const double sx = static_cast<double>(W) / width();
    const double sy = static_cast<double>(H) / height();
    int fw, fh;
    if (request.width > 0) {
        fw = static_cast<int>(request.width);
        fh = static_cast<int>(request.height);
    } else {
        // The larger crop of the wanted ratio, one side rounded from the other.
        const double ratio = request.aspects[nearest_ratio(request.aspects, c)];
        fw = std::min(W, static_cast<int>(std::lround((c.right - c.left + 1) * sx)));
        fh = static_cast<int>(std::lround(fw / ratio));
        if (fh > H) {
            fh = H;
            fw = std::min(W, static_cast<int>(std::lround(fh * ratio)));
        }
        fw = std::max(fw, 1);
        fh = std::max(fh, 1);
    }
    CropRect full = c;
    full.left = std::clamp(static_cast<int>(std::lround(c.left * sx)), 0, W - fw);
    full.top = std::clamp(static_cast<int>(std::lround(c.top * sy)), 0, H - fh);
    full.right = full.left + fw - 1;
    full.bottom = full.top + fh - 1;
    return full;
}

CropAnswer AnalysedImage::suggest() const {
    const std::string imageSize = size_text(fullWidth, fullHeight);
    if (request.width > fullWidth || request.height > fullHeight) {
        throw RequestError("the crop size " + size_text(request.width, request.height) +
                           " is larger than the image (" + imageSize + ")");
    }
    bool hard = false;
    for (const RectOfInterest& r : request.rects) {
        if (r.kind != eRoiRequired && r.kind != eRoiForbidden) continue;
        hard = true;
        if (r.kind == eRoiRequired &&
            (r.left < 0 || r.top < 0 || r.right >= static_cast<int64_t>(fullWidth) ||
             r.bottom >= static_cast<int64_t>(fullHeight))) {
            throw RequestError("the required rectangle " + std::to_string(r.left) + "," +
                               std::to_string(r.top) + "," + std::to_string(r.right) + "," +
                               std::to_string(r.bottom) + " does not lie inside the image (" +
                               imageSize + ")");
        }
    }

    SuggestionParams query;
    query.useFaces = request.faces;
    if (request.width > 0) {
        std::tie(query.width, query.height) = decoded_size();
    } else if (request.aspects.size() == 1 && !request.perAspect) {
        query.aspectRatio = request.aspects[0];
    }
    SelectionParams selection;
    selection.count = request.count;
    selection.mode = request.mode;
    std::copy(request.weights.begin(), request.weights.end(), selection.weights);
    selection.perAspectRatio = request.perAspect;

    CropAnswer answer;
    std::vector<CropRect> found;
    // The ratios asked for: an exact size's own, or the request's.
    const std::vector<double> ratios =
        request.width > 0 ? std::vector<double>{static_cast<double>(request.width) / request.height}
                          : request.aspects;
    const bool plain = request.designDefaults;
    if (plain) {
        found = ask(false, query, selection);
    } else if (request.width > 0) {
        // The library lists no candidates of an exact size: its own diverse
        // pick, long enough to choose from.
        selection.count = 200;
        found = ask(false, query, selection);
    } else {
        // Every candidate with its features; the hard rectangles are the
        // host's to apply here, as the library's ranking would.
        for (const CropRect& c : ask(true, query, selection)) {
            bool honours = true;
            for (const RectOfInterest& r : decodedRects) {
                if (r.kind != eRoiRequired && r.kind != eRoiForbidden) continue;
                honours = honours && contract::honours_hard_rect(c, r, r.kind == eRoiRequired);
            }
            if (honours) found.push_back(c);
        }
    }
    if (found.empty()) {
        throw RequestError(std::string("no crop of the requested ") +
                           (request.width > 0 ? "size" : "aspect ratios and scales") +
                           " fits the image (" + imageSize + ")" +
                           (hard ? " together with its required and forbidden rectangles" : ""));
    }
    for (CropRect& c : found) c = to_full(c);
    if (request.faces) answer.faces = library_faces();
    std::vector<FaceRect> tight;
    for (const FaceRect& f : answer.faces) tight.push_back(tight_face(f));
    if (plain) {
        answer.crops = std::move(found);
    } else {
        SelectionOptions options;
        options.count = request.count;
        options.perAspect = request.perAspect;
        const SharpnessMap& detail = sharpness();
        if (const std::optional<FaceRect> held = subject_box()) {
            const FaceRect whole = subject_and_faces(*held, tight);
            options.subjects = {with_room(whole, fullWidth, fullHeight), whole};
        }
        std::vector<double> shares;
        for (const CropRect& c : found)
            shares.push_back(detail.share(c.left, c.top, c.right, c.bottom, fullWidth, fullHeight));
        answer.crops = select_crops(found, shares, ratios, tight, fullWidth, fullHeight, options);
    }
    answer.focus = focal_point();
    for (size_t k = 0; k < answer.crops.size(); ++k) {
        double most = 0;
        for (size_t j = 0; j < k; ++j)
            most = std::max(most, overlap_iou_exact(answer.crops[j], answer.crops[k]));
        answer.overlaps.push_back(most);
        answer.aspects.push_back(ratios[nearest_ratio(ratios, answer.crops[k])]);
    }
    return answer;
}

std::vector<CropRect> AnalysedImage::ask(bool all, const SuggestionParams& query,
                                         const SelectionParams& selection) const {
    ICropRects* out = nullptr;
    const eErrorCode code =
        all ? crop->GetAllCrops(&out, &query) : crop->GetSuggestions(&out, &selection, &query);
    if (code != eSuccess) {
        std::string text = "code " + std::to_string(code);
        const char* reason = crop->GetLastErrorText();
        if (reason != nullptr && *reason != '\0') text += std::string(": ") + reason;
        throw HostError(text);
    }
    Counted<ICropRects> list(out);
    return std::vector<CropRect>(list->GetRects(), list->GetRects() + list->GetCount());
}

const SharpnessMap& AnalysedImage::sharpness() const {
    if (!sharp) sharp.emplace(pixels(), width(), height(), stride());
    return *sharp;
}

std::optional<FaceRect> AnalysedImage::subject_box() const {
    if (subject) return *subject;
    const SharpnessMap& detail = sharpness();
    const int W = static_cast<int>(width()), H = static_cast<int>(height()), G = kSubjectGrid;
    if (W < G || H < G) return subject.emplace();
    const auto edge = [](int k, int n) { return k * n / kSubjectGrid; };
    // Each cell's saliency (its share of the salient mass, as the library
    // scores a crop) and sharp detail, each made to sum to one.
    std::vector<double> salient(G * G), sharp(G * G);
    double salientSum = 0, sharpSum = 0;
    for (int i = 0; i < G; ++i) {
        for (int j = 0; j < G; ++j) {
            CropRect c;
            c.left = edge(j, W), c.right = edge(j + 1, W) - 1;
            c.top = edge(i, H), c.bottom = edge(i + 1, H) - 1;
            const double v = crop->ScoreCrop(&c) == eSuccess && std::isfinite(c.coverageScore)
                                 ? std::max(0.0, c.coverageScore)
                                 : 0.0;
            salientSum += salient[i * G + j] = v;
            sharpSum += sharp[i * G + j] =
                detail.share(c.left, c.top, c.right, c.bottom, width(), height());
        }
    }
    if (!(salientSum > 0) && !(sharpSum > 0)) return subject.emplace();
    // Summed-area table of the blend, (G + 1) x (G + 1).
    std::vector<double> table((G + 1) * (G + 1), 0.0);
    for (int i = 0; i < G; ++i) {
        double run = 0;
        for (int j = 0; j < G; ++j) {
            const double a = salientSum > 0 ? salient[i * G + j] / salientSum : 0.0;
            const double b = sharpSum > 0 ? sharp[i * G + j] / sharpSum : 0.0;
            run += (salientSum > 0 && sharpSum > 0) ? (a + b) / 2 : a + b;
            table[(i + 1) * (G + 1) + j + 1] = table[i * (G + 1) + j + 1] + run;
        }
    }
    int best = G * G + 1, bx0 = 0, by0 = 0, bx1 = G, by1 = G;
    double bestMass = 0;
    for (int y0 = 0; y0 < G; ++y0)
        for (int y1 = y0 + 1; y1 <= G; ++y1)
            for (int x0 = 0; x0 < G; ++x0)
                for (int x1 = x0 + 1; x1 <= G; ++x1) {
                    const int area = (y1 - y0) * (x1 - x0);
                    if (area > best) break;
                    const double mass = table[y1 * (G + 1) + x1] - table[y0 * (G + 1) + x1] -
                                        table[y1 * (G + 1) + x0] + table[y0 * (G + 1) + x0];
                    if (mass < kSubjectMass || (area == best && mass <= bestMass)) continue;
                    best = area, bestMass = mass;
                    bx0 = x0, by0 = y0, bx1 = x1, by1 = y1;
                }
    // Where the mass inside the box centres.
    double cx = 0, cy = 0, inside = 0;
    for (int i = by0; i < by1; ++i)
        for (int j = bx0; j < bx1; ++j) {
            const double m = table[(i + 1) * (G + 1) + j + 1] - table[i * (G + 1) + j + 1] -
                             table[(i + 1) * (G + 1) + j] + table[i * (G + 1) + j];
            cx += m * (edge(j, W) + edge(j + 1, W)) / 2.0;
            cy += m * (edge(i, H) + edge(i + 1, H)) / 2.0;
            inside += m;
        }
    if (inside > 0) subjectCentre = FocalPoint{cx / inside / W, cy / inside / H};
    const double sx = static_cast<double>(fullWidth) / W, sy = static_cast<double>(fullHeight) / H;
    FaceRect box{static_cast<int32_t>(std::floor(edge(bx0, W) * sx)),
                 static_cast<int32_t>(std::floor(edge(by0, H) * sy)),
                 static_cast<int32_t>(std::ceil(edge(bx1, W) * sx)) - 1,
                 static_cast<int32_t>(std::ceil(edge(by1, H) * sy)) - 1};
    return *subject.emplace(box);
}

std::vector<FaceRect> AnalysedImage::faces() const {
    return analysedWithFaces ? library_faces() : std::vector<FaceRect>{};
}

FocalPoint AnalysedImage::focal_point() const {
    if (focus) return *focus;
    const SharpnessMap& detail = sharpness();
    std::vector<FaceRect> tight;
    std::vector<double> strength;
    for (const FaceRect& f : faces()) {
        tight.push_back(tight_face(f));
        // The library does not give the detector's confidence: a face's
        // share of the picture's sharp detail stands for it (a large, sharp
        // face counts most; a small or blurred one little).
        const FaceRect& t = tight.back();
        strength.push_back(detail.share(t.left, t.top, t.right, t.bottom, fullWidth, fullHeight));
    }
    if (!tight.empty()) {
        focus = face_focus(tight, strength, fullWidth, fullHeight);
        return *focus;
    }
    // Where the subject's mass centres: on a compact subject, and in the
    // middle of what there is where it is spread out.
    subject_box();
    focus = subjectCentre;
    return *focus;
}

std::vector<FaceRect> AnalysedImage::library_faces() const {
    std::vector<FaceRect> faces;
    IRectsOfInterest* found = nullptr;
    if (crop->GetRectsOfInterest(&found) != eSuccess || found == nullptr) return faces;
    Counted<IRectsOfInterest> rects(found);
    const double sx = static_cast<double>(width()) / fullWidth;
    const double sy = static_cast<double>(height()) / fullHeight;
    for (uint64_t i = 0; i < rects->GetCount(); ++i) {
        const RectOfInterest& r = rects->GetRects()[i];
        if (!r.isFace) continue;
        faces.push_back({static_cast<int32_t>(std::lround(r.left / sx)),
                         static_cast<int32_t>(std::lround(r.top / sy)),
                         static_cast<int32_t>(std::lround((r.right + 1) / sx)) - 1,
                         static_cast<int32_t>(std::lround((r.bottom + 1) / sy)) - 1});
    }
    return faces;
}

}  // namespace smartCrop::host
