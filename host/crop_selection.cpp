#include "host/crop_selection.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "kernels/library_contract.h"
#include "kernels/rect_geometry.h"

namespace smartCrop::host {

namespace {

// The host's blend of the library's features, each as its rank among the
// candidates (0 worst, 1 best), so that features of different spreads mix
// by weight, and of the share of sharp detail as it stands: a crop holding
// all of a concentrated sharp subject should win by the whole weight.
// The share of sharp detail counts most: it follows the sharp, textured part
// of a picture, which a defocused background lacks, also where it touches
// the image's edge. Fitted on the generated scenes and the photographs of
// scripts/evaluate_crops.sh.
constexpr double kAesthetic = 1.0, kCoverage = 1.0, kBorder = 0.75, kPeaks = 1.0, kSharp = 1.5,
                 kRoi = 1.0;

// The answer's crops differ, and each is good: a ratio's pick may fall
// below that ratio's best by at most kGoodEnough in the blend (a whole
// feature's range of ranks), and pays kLikenessCost per unit of overlap
// (intersection over union) with the crops picked before it. Fitted on the
// photographs of scripts/evaluate_crops.sh and the training photographs:
// the median overlap of five suggestions falls from 0.76 to about 0.45
// without an alternative cutting the subject.
constexpr double kGoodEnough = 1.0, kLikenessCost = 8.0;

// Nor may a pick lose what its ratio's best keeps of the subject: at least
// this share of the best's sharp detail and of its contrast peaks. On the
// generated scenes of scripts/evaluate_crops.sh the alternatives keep the
// subject in 0.98 of cases (0.69 without the rule, 0.91 at 0.9), and on the
// photographs without faces asked for they cut a face in 0.10 (0.33).
constexpr double kSubjectKept = 0.95;

// A ratio's framing crop is at most this much larger in area than the
// tightest of the ratio that holds the subject.
constexpr double kFramingSlack = 1.5;

// Each value's rank among all, 0 for the lowest and 1 for the highest; equal
// values share their mean rank, and values that are not numbers count lowest.
std::vector<double> ranks(const std::vector<double>& values) {
    const size_t n = values.size();
    std::vector<size_t> order(n);
    std::iota(order.begin(), order.end(), 0);
    auto key = [&](size_t i) { return std::isfinite(values[i]) ? values[i] : -HUGE_VAL; };
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return key(a) < key(b); });
    std::vector<double> out(n, 0.5);
    for (size_t i = 0; i < n;) {
        size_t j = i;
        while (j + 1 < n && key(order[j + 1]) == key(order[i])) ++j;
        const double r = n > 1 ? 0.5 * static_cast<double>(i + j) / (n - 1) : 0.5;
        for (size_t k = i; k <= j; ++k) out[order[k]] = r;
        i = j + 1;
    }
    return out;
}

// How a candidate treats the faces, best first when compared.
struct FaceVerdict {
    bool cuts = false;  // an edge passes through a face a crop of its ratio could hold
    // Of the faces no crop of its ratio holds whole, how much of their cores
    // (eyes to mouth) it holds: the best partial framing, not a crop beside
    // the face.
    int64_t coreHeld = 0;
    // Then how far the crop lies from framing such a face as a portrait
    // does: the eyes a third down from its top, the face centred across.
    int64_t framingOffset = 0;
    int64_t heldArea = 0;     // of the faces wholly inside
    bool cutsMargin = false;  // an edge passes through the margin around a face
    // Room above the highest face held, up to half its height (all of it
    // when the crop starts at the image's top): the hair, or a cap, rises
    // that far above a detector's box (at a quarter the labelled heads of
    // scripts/evaluate_crops.sh lost their tops). Where the frame is short,
    // what room there is goes above the face, not below.
    int32_t headroom = 0;
    bool operator<(const FaceVerdict& o) const {  // worse than
        if (cuts != o.cuts) return cuts;
        if (coreHeld != o.coreHeld) return coreHeld < o.coreHeld;
        if (framingOffset != o.framingOffset) return framingOffset > o.framingOffset;
        if (heldArea != o.heldArea) return heldArea < o.heldArea;
        if (cutsMargin != o.cutsMargin) return cutsMargin;
        return headroom < o.headroom;
    }
    // What an alternative must keep of its ratio's best: the framing of a
    // face too large for the ratio may differ.
    FaceVerdict kept() const {
        FaceVerdict v = *this;
        v.framingOffset = 0;
        return v;
    }
};

// The part of a detector's face box that holds the eyes and the mouth: the
// middle seven tenths across, from a quarter down to nine tenths.
FaceRect face_core(const FaceRect& f) {
    const int32_t w = f.right - f.left + 1, h = f.bottom - f.top + 1;
    return {f.left + w * 3 / 20, f.top + h / 4, f.right - w * 3 / 20, f.top + h * 9 / 10 - 1};
}

// `holdable`: per face, whether some candidate of the crop's ratio holds it.
FaceVerdict judge(const CropRect& c, const std::vector<FaceRect>& faces,
                  const std::vector<bool>& holdable, uint32_t width, uint32_t height) {
    FaceVerdict v;
    const FaceRect* highest = nullptr;
    for (size_t k = 0; k < faces.size(); ++k) {
        const FaceRect& f = faces[k];
        const int64_t inside = intersection_area(c, f), whole = pixel_area(f);
        if (!holdable[k]) {
            v.coreHeld += intersection_area(c, face_core(f));
            // A detector's box has the eyes a little above its middle.
            const double eyes = f.top + 0.45 * (f.bottom - f.top + 1);
            const double cw = c.right - c.left + 1, ch = c.bottom - c.top + 1;
            const double wantedTop = std::clamp(eyes - ch / 3.0, 0.0, height - ch);
            const double wantedLeft =
                std::clamp((f.left + f.right + 1 - cw) / 2.0, 0.0, width - cw);
            v.framingOffset +=
                std::llround(std::fabs(c.top - wantedTop) + std::fabs(c.left - wantedLeft));
            continue;
        }
        if (inside == whole) {
            v.heldArea += whole;
            if (highest == nullptr || f.top < highest->top) highest = &f;
        } else if (inside > 0) {
            v.cuts = true;
        }
        // Detectors disagree on where a face ends (forehead, chin): a fifth
        // of its size around it, inside the image, is spared too where a
        // crop can.
        const int32_t mx = (f.right - f.left + 1) / 5, my = (f.bottom - f.top + 1) / 5;
        const FaceRect grown{std::max(0, f.left - mx), std::max(0, f.top - my),
                             std::min(static_cast<int32_t>(width) - 1, f.right + mx),
                             std::min(static_cast<int32_t>(height) - 1, f.bottom + my)};
        const int64_t near = intersection_area(c, grown);
        if (near > 0 && near < pixel_area(grown)) v.cutsMargin = true;
    }
    if (highest != nullptr) {
        const int32_t wanted = (highest->bottom - highest->top + 1) / 2;
        v.headroom = c.top == 0 ? wanted : std::min(wanted, highest->top - c.top);
    }
    return v;
}

}  // namespace

size_t nearest_ratio(const std::vector<double>& ratios, const CropRect& c) {
    const double r = (c.right - c.left + 1.0) / (c.bottom - c.top + 1.0);
    size_t best = 0;
    for (size_t k = 1; k < ratios.size(); ++k) {
        if (std::fabs(std::log(ratios[k] / r)) < std::fabs(std::log(ratios[best] / r))) best = k;
    }
    return best;
}

std::vector<CropRect> select_crops(const std::vector<CropRect>& candidates,
                                   const std::vector<double>& sharpness,
                                   const std::vector<double>& ratios,
                                   const std::vector<FaceRect>& faces, uint32_t width,
                                   uint32_t height, const SelectionOptions& options) {
    const size_t n = candidates.size();
    if (n == 0 || ratios.empty()) return {};
    std::vector<double> aesthetic(n), coverage(n), border(n), peaks(n);
    for (size_t i = 0; i < n; ++i) {
        aesthetic[i] = candidates[i].aestheticScore;
        coverage[i] = candidates[i].coverageScore;
        border[i] = candidates[i].borderScore;
        peaks[i] = candidates[i].peakShare;
    }
    const std::vector<double> rA = ranks(aesthetic), rC = ranks(coverage), rB = ranks(border),
                              rP = ranks(peaks);

    struct Scored {
        CropRect crop;
        size_t ratio;
        FaceVerdict faces;
        double sharp, peaks;  // of the subject, as held
        bool framed = false;  // among the tightest of its ratio that hold the subject
    };
    std::vector<size_t> ratioOf(n);
    std::vector<std::vector<bool>> holdable(ratios.size(), std::vector<bool>(faces.size()));
    for (size_t i = 0; i < n; ++i) {
        ratioOf[i] = nearest_ratio(ratios, candidates[i]);
        for (size_t k = 0; k < faces.size(); ++k)
            if (intersection_area(candidates[i], faces[k]) == pixel_area(faces[k]))
                holdable[ratioOf[i]][k] = true;
    }
    std::vector<Scored> scored(n);
    for (size_t i = 0; i < n; ++i) {
        const CropRect& c = candidates[i];
        // A side on the image's frame cuts nothing, yet the library's border
        // measure counts it as the worst of edges: such a crop is judged as
        // no worse than the middle on its border.
        const bool onFrame = c.left == 0 || c.top == 0 || c.right + 1 >= static_cast<int>(width) ||
                             c.bottom + 1 >= static_cast<int>(height);
        const double b = onFrame ? std::max(rB[i], 0.5) : rB[i];
        const double roi = std::isfinite(c.roiScore) ? c.roiScore : 1.0;
        const double sharp = sharpness.size() == n ? sharpness[i] : 0.0;
        scored[i] = {c, ratioOf[i], judge(c, faces, holdable[ratioOf[i]], width, height), sharp,
                     std::isfinite(c.peakShare) ? c.peakShare : 0.0};
        scored[i].crop.score = kAesthetic * rA[i] + kCoverage * rC[i] + kBorder * b +
                               kPeaks * rP[i] + kSharp * sharp + kRoi * roi;
    }
    // Per ratio, the first of the subject's boxes some crop of it holds,
    // and the tightest such crop's area.
    std::vector<const FaceRect*> framedBox(ratios.size(), nullptr);
    std::vector<int64_t> tightest(ratios.size(), INT64_MAX);
    const auto holds = [](const CropRect& c, const FaceRect& box) {
        return intersection_area(c, box) == pixel_area(box);
    };
    for (const FaceRect& box : options.subjects) {
        for (const Scored& s : scored)
            if (framedBox[s.ratio] == nullptr || framedBox[s.ratio] == &box)
                if (holds(s.crop, box)) {
                    framedBox[s.ratio] = &box;
                    tightest[s.ratio] = std::min(tightest[s.ratio], pixel_area(s.crop));
                }
    }
    // One scale step up (0.5 to 0.6) is 1.44 times the area.
    for (Scored& s : scored)
        s.framed = framedBox[s.ratio] != nullptr && holds(s.crop, *framedBox[s.ratio]) &&
                   pixel_area(s.crop) <= kFramingSlack * tightest[s.ratio];
    // Faces first, then the blend.
    std::stable_sort(scored.begin(), scored.end(), [](const Scored& a, const Scored& b) {
        if (b.faces < a.faces) return true;
        if (a.faces < b.faces) return false;
        return a.crop.score > b.crop.score;
    });

    // A ratio's candidates may not treat faces worse than its best does, nor
    // fall far below it in the blend.
    std::vector<const Scored*> ratioBest(ratios.size(), nullptr);
    for (const Scored& s : scored)
        if (ratioBest[s.ratio] == nullptr) ratioBest[s.ratio] = &s;
    std::vector<CropRect> picked;
    std::vector<bool> taken(n, false);
    // The next pick among the eligible: the blend less what its likeness to
    // the crops before it (from `from` on) costs; with `limited`, none
    // overlapping one of them by more than `limit`. A `framing` pick holds
    // the subject's box by construction and is smaller than the ratio's
    // best, so it is held to the faces only, not to the best's blend.
    auto pick = [&](size_t from, const auto& eligible, bool limited, double limit,
                    bool framing = false) {
        size_t best = n;
        double bestValue = -HUGE_VAL;
        for (size_t i = 0; i < n; ++i) {
            const Scored& top = *ratioBest[scored[i].ratio];
            if (taken[i] || scored[i].faces.kept() < top.faces.kept() || !eligible(scored[i]) ||
                (!framing && (scored[i].crop.score < top.crop.score - kGoodEnough ||
                              scored[i].sharp < kSubjectKept * top.sharp ||
                              scored[i].peaks < kSubjectKept * top.peaks)))
                continue;
            double likeness = 0;
            for (size_t k = from; k < picked.size(); ++k)
                likeness = std::max(likeness, overlap_iou_exact(picked[k], scored[i].crop));
            if (limited && likeness > limit) continue;
            const double value = scored[i].crop.score - kLikenessCost * likeness;
            if (value > bestValue) {
                bestValue = value;
                best = i;
            }
        }
        if (best == n) return false;
        taken[best] = true;
        picked.push_back(scored[best].crop);
        return true;
    };
    auto any = [](const Scored&) { return true; };
    // A ratio's first crop frames the subject where one of the ratio can
    // (keeping the faces as the ratio's best does), else is the best as it
    // stands.
    auto first_of = [&](size_t r, size_t from) {
        return pick(
                   from, [r](const Scored& s) { return s.ratio == r && s.framed; }, false, 1.0,
                   true) ||
               pick(
                   from, [r](const Scored& s) { return s.ratio == r; }, false, 1.0);
    };
    // The count asked for is answered whenever there are that many crops
    // that keep the faces: when the distinct ones run out, the overlap limit
    // is relaxed a step at a time, so the later alternatives are the most
    // distinct left (the answer says how much each overlaps).
    const double limits[] = {options.overlapLimit, 0.6, 0.7, 0.8, 0.9, 1.0};
    if (options.perAspect) {
        for (size_t r = 0; r < ratios.size(); ++r) {
            const size_t group = picked.size();
            auto ofRatio = [r](const Scored& s) { return s.ratio == r; };
            if (options.count > 0) first_of(r, group);
            for (double limit : limits) {
                if (limit < options.overlapLimit) continue;
                while (picked.size() - group < options.count &&
                       pick(group, ofRatio, picked.size() > group, limit)) {
                }
            }
        }
        return picked;
    }
    // One of each ratio first, the ratios in the order of their best crops;
    // then alternatives.
    std::vector<bool> ratioDone(ratios.size(), false);
    for (size_t i = 0; i < n && picked.size() < options.count; ++i) {
        const size_t r = scored[i].ratio;
        if (ratioDone[r]) continue;
        ratioDone[r] = true;
        first_of(r, 0);
    }
    for (double limit : limits) {
        if (limit < options.overlapLimit) continue;
        while (picked.size() < options.count && pick(0, any, true, limit)) {
        }
    }
    return picked;
}

FocalPoint face_focus(const std::vector<FaceRect>& faces, const std::vector<double>& strength,
                      uint32_t width, uint32_t height) {
    if (faces.empty() || strength.size() != faces.size()) return {};
    const double strongest = *std::max_element(strength.begin(), strength.end());
    const bool alike = !(strongest > 0);
    double x = 0, y = 0, weight = 0;
    for (size_t k = 0; k < faces.size(); ++k) {
        const double w = alike ? 1.0 : strength[k];
        if (!alike && w < 0.25 * strongest) continue;
        x += w * (faces[k].left + faces[k].right + 1) / 2.0;
        y += w * (faces[k].top + faces[k].bottom + 1) / 2.0;
        weight += w;
    }
    FocalPoint p;
    if (width > 0 && height > 0) {
        p.x = std::clamp(x / weight / width, 0.0, 1.0);
        p.y = std::clamp(y / weight / height, 0.0, 1.0);
    }
    return p;
}

FaceRect tight_face(const FaceRect& widened) {
    return contract::tight_face(widened);
}

FaceRect subject_and_faces(const FaceRect& subject, const std::vector<FaceRect>& faces) {
    FaceRect box = subject;
    for (const FaceRect& f : faces) {
        box.left = std::min(box.left, f.left);
        box.top = std::min(box.top, f.top);
        box.right = std::max(box.right, f.right);
        box.bottom = std::max(box.bottom, f.bottom);
    }
    return box;
}

FaceRect with_room(const FaceRect& box, uint32_t width, uint32_t height) {
    const int32_t mx = (box.right - box.left + 1) / 5, my = (box.bottom - box.top + 1) / 5;
    return {std::max(0, box.left - mx), std::max(0, box.top - my),
            std::min(static_cast<int32_t>(width) - 1, box.right + mx),
            std::min(static_cast<int32_t>(height) - 1, box.bottom + my)};
}

}  // namespace smartCrop::host
