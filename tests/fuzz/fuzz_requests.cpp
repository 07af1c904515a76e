// Sequences of requests against images analysed once: ratio and scale
// switches, scored crops, and queries with arbitrary sizes, ratios, counts,
// modes and weights. Every answer must be inside the image and honour the
// hard rectangles.
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
    uint64_t width, height;
    IImage* image;
    ISmartCrop* crop;
    std::vector<RectOfInterest> hard;
};

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
    Subject s{static_cast<uint64_t>(width),
              static_cast<uint64_t>(height),
              CreateImageObj(height, width, 4, offsets, pixels.data()),
              nullptr,
              {}};
    SmartCropParams params = test::ParamsOf(aspects, scales, rects);
    s.crop = CreateSmartCropObj(s.image, &params);
    require(s.crop != nullptr);
    for (const RectOfInterest& r : rects) {
        if (r.kind == eRoiRequired || r.kind == eRoiForbidden) s.hard.push_back(r);
    }
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
    for (double r : kRatios) check_code(s.crop->SetAspectRatio(r, false));
    for (double x : kScales) check_code(s.crop->SetScaleRatio(x, false));
    for (int step = 0; step < 16 && in.remaining() > 0; ++step) {
        switch (in.byte() % 6) {
            case 0:
                check_code(s.crop->SetAspectRatio(kRatios[in.byte() % 16], in.byte() & 1));
                break;
            case 1:
                check_code(s.crop->SetScaleRatio(kScales[in.byte() % 16], in.byte() & 1));
                break;
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
    return 0;
}
