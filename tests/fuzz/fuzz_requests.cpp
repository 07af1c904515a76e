// Sequences of requests against images analysed once: ratio and scale
// switches, scored crops, and queries with arbitrary sizes, ratios, counts,
// modes and weights. Every answer must be inside the image and honour the
// hard rectangles, and after any sequence the object, with its first lists
// switched back on, answers its first query as it did when new. Exact sizes
// add entries to an object's lists for good (as designed): an object whose
// lists have grown past a bound is made afresh, so memory stays flat.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "fuzz_checks.h"
#include "fuzz_input.h"
#include "test_images.h"

namespace {

using namespace smartCrop;

// The values switched on and off: a fixed set, so that the objects' lists
// stay bounded, all switched off again before each input.
const double kRatios[] = {1.0, 0.5,  2.0, 1.5, 0.75, 16.0 / 9, 9.0 / 16, 1e-3,
                          1e3, 1e-9, 1e9, 0.3, 3.3,  4.0 / 3,  0.0,      -1.0};
const double kScales[] = {1.0,  0.9,  0.75,  0.5, 0.33, 0.2, 0.1,  0.05,
                          0.01, 1e-6, 0.999, 0.6, 1.5,  0.0, -0.5, 0.8};

struct Subject {
    uint64_t width = 0, height = 0;
    IImage* image = nullptr;
    ISmartCrop* crop = nullptr;
    std::vector<RectOfInterest> hard;
    std::vector<RatioEntry> aspects, scales;
    std::vector<RectOfInterest> rects;
    std::vector<CropRect> first;  // the answer to the first query, when new
    eErrorCode firstCode = eSuccess;
};

constexpr uint64_t kMostListed = 64;

// The object's lists as they were made: every listed entry off, the first
// ones as they were.
void restore_lists(Subject& s) {
    uint64_t n = 0;
    const RatioEntry* listed = s.crop->GetAspectRatios(&n);
    std::vector<double> values;
    for (uint64_t i = 0; i < n; ++i) values.push_back(listed[i].ratio);
    for (double v : values) check_code(s.crop->SetAspectRatio(v, false));
    listed = s.crop->GetScaleRatios(&n);
    values.clear();
    for (uint64_t i = 0; i < n; ++i) values.push_back(listed[i].ratio);
    for (double v : values) check_code(s.crop->SetScaleRatio(v, false));
    for (const RatioEntry& e : s.aspects) check_code(s.crop->SetAspectRatio(e.ratio, e.enabled));
    for (const RatioEntry& e : s.scales) check_code(s.crop->SetScaleRatio(e.ratio, e.enabled));
}

Subject make(int width, int height, std::vector<RatioEntry> aspects, std::vector<RatioEntry> scales,
             std::vector<RectOfInterest> rects);

void renew(Subject& s) {
    s.crop->Release();
    s.image->Release();
    s = make(static_cast<int>(s.width), static_cast<int>(s.height), s.aspects, s.scales, s.rects);
}

std::vector<CropRect> first_query(Subject& s, eErrorCode& code) {
    SelectionParams selection;
    selection.count = 7;
    SuggestionParams request;
    ICropRects* out = nullptr;
    code = s.crop->GetSuggestions(&out, &selection, &request);
    std::vector<CropRect> answer;
    if (out == nullptr) return answer;
    answer.assign(out->GetRects(), out->GetRects() + out->GetCount());
    out->Release();
    return answer;
}

bool same(const std::vector<CropRect>& a, const std::vector<CropRect>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const CropRect& x, const CropRect& y) {
                          return x.left == y.left && x.top == y.top && x.right == y.right &&
                                 x.bottom == y.bottom &&
                                 (x.score == y.score || (x.score != x.score && y.score != y.score));
                      });
}

// Released at exit, so that leak checks see only what inputs leave behind.
struct Subjects : std::vector<Subject> {
    using std::vector<Subject>::vector;
    ~Subjects() {
        for (Subject& s : *this) {
            s.crop->Release();
            s.image->Release();
        }
    }
};

Subject make(int width, int height, std::vector<RatioEntry> aspects, std::vector<RatioEntry> scales,
             std::vector<RectOfInterest> rects) {
    const std::vector<uint8_t> pixels = test::MakePixels(
        width, height, [&](int x, int y) { return test::photo(x, y, width, height); });
    const uint64_t offsets[4] = {0, 1, 2, 3};
    Subject s;
    s.width = static_cast<uint64_t>(width);
    s.height = static_cast<uint64_t>(height);
    s.image = CreateImageObj(height, width, 4, offsets, pixels.data());
    SmartCropParams params = test::ParamsOf(aspects, scales, rects);
    s.crop = CreateSmartCropObj(s.image, &params);
    require(s.crop != nullptr);
    for (const RectOfInterest& r : rects) {
        if (r.kind == eRoiRequired || r.kind == eRoiForbidden) s.hard.push_back(r);
    }
    s.aspects = aspects;
    s.scales = scales;
    s.rects = rects;
    s.first = first_query(s, s.firstCode);
    return s;
}

RectOfInterest rect(int32_t left, int32_t top, int32_t right, int32_t bottom, uint32_t kind) {
    RectOfInterest r;
    r.left = left, r.top = top, r.right = right, r.bottom = bottom, r.kind = kind;
    return r;
}

Subjects& subjects() {
    static Subjects all = {
        make(120, 80, {{1.0, true}, {16.0 / 9, true}, {9.0 / 16, false}},
             {{1.0, true}, {0.7, true}}, {}),
        make(40, 300, {{0.5, true}, {3.0, true}, {1e-3, true}, {1e6, true}},
             {{1.0, true}, {0.5, true}, {0.05, true}}, {}),
        make(200, 120, {{1.0, true}, {4.0 / 3, true}, {3.0, true}},
             {{1.0, true}, {0.8, true}, {0.6, true}},
             {rect(60, 30, 100, 70, eRoiRequired), rect(150, 90, 190, 110, eRoiForbidden),
              rect(0, 0, 30, 30, eRoiUnwanted), rect(100, 40, 140, 60, eRoiWanted)}),
    };
    return all;
}

double value(FuzzInput& in) {
    const uint8_t pick = in.byte();
    if (pick < 160) return in.byte();
    if (pick < 240) return in.byte() / 50.0;
    return in.take<double>();  // NaN, infinities, huge, negative
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    Subject& s = subjects()[in.byte() % subjects().size()];
    uint64_t aspects = 0, scales = 0;
    s.crop->GetAspectRatios(&aspects);
    s.crop->GetScaleRatios(&scales);
    if (aspects > kMostListed || scales > kMostListed) renew(s);
    restore_lists(s);
    // A scale outside (0, 1] breaks every later query that builds its cells,
    // listed on or off (as designed): such an input ends with a new object.
    bool broken = false;
    for (int step = 0; step < 16 && in.remaining() > 0; ++step) {
        switch (in.byte() % 6) {
            case 0:
                check_code(s.crop->SetAspectRatio(kRatios[in.byte() % 16], in.byte() & 1));
                break;
            case 1: {
                const double scale = kScales[in.byte() % 16];
                broken = broken || !(scale > 0 && scale <= 1);
                check_code(s.crop->SetScaleRatio(scale, in.byte() & 1));
                break;
            }
            case 2: {
                CropRect c;
                c.left = static_cast<int32_t>(in.byte()) - 10;
                c.right = c.left + in.byte();
                c.top = static_cast<int32_t>(in.byte()) - 10;
                c.bottom = c.top + in.byte();
                check_code(s.crop->ScoreCrop(&c));
                break;
            }
            case 3: {
                IRectsOfInterest* out = nullptr;
                check_code(s.crop->GetRectsOfInterest(&out));
                if (out != nullptr) out->Release();
                break;
            }
            default: {
                SuggestionParams request;
                request.width = value(in);
                request.height = value(in);
                request.aspectRatio = value(in);
                SelectionParams selection;
                selection.count = in.byte() % 40;
                selection.mode = in.byte() % 6;
                for (double& w : selection.weights)
                    w = in.byte() < 200 ? in.byte() / 64.0 : value(in);
                selection.perAspectRatio = in.byte() & 1;
                ICropRects* out = nullptr;
                const bool all = in.byte() & 1;
                const eErrorCode code = all ? s.crop->GetAllCrops(&out, &request)
                                            : s.crop->GetSuggestions(&out, &selection, &request);
                check_answer(code, out, s.width, s.height, all ? nullptr : &s.hard);
                break;
            }
        }
    }
    if (broken) {
        renew(s);
        return 0;
    }
    restore_lists(s);
    eErrorCode code = eSuccess;
    const std::vector<CropRect> again = first_query(s, code);
    require(same(again, s.first) && code == s.firstCode);
    return 0;
}
