// Drives the public interface with arbitrary input: image sizes and pixels,
// ratio lists (0, negative, huge, NaN), rectangles of every kind in and out
// of the image, and arbitrary requests. Every call must return a defined code.
#include <cstdlib>
#include <vector>

#include "SmartCrop.h"
#include "fuzz_input.h"

namespace {

bool defined(smartCrop::eErrorCode code) {
    switch (code) {
        case smartCrop::eSuccess:
        case smartCrop::eUnexpected:
        case smartCrop::eInvalidRequest:
        case smartCrop::eOutOfMemory:
        case smartCrop::eModelMissing:
        case smartCrop::eNotInitialised:
            return true;
    }
    return false;
}

void check(smartCrop::eErrorCode code) {
    if (!defined(code)) std::abort();
}

smartCrop::RectOfInterest rect(FuzzInput& in) {
    smartCrop::RectOfInterest r;
    // Mostly near the image, sometimes anywhere.
    const bool wild = in.byte() < 16;
    auto coord = [&] { return wild ? in.take<int32_t>() : static_cast<int32_t>(in.byte()) - 20; };
    r.left = coord();
    r.right = coord();
    r.top = coord();
    r.bottom = coord();
    r.kind = in.byte() % 5;
    r.isFace = in.byte() & 1;
    r.active = in.byte() & 1;
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    const uint64_t width = 1 + in.byte() % 96, height = 1 + in.byte() % 96;
    std::vector<uint8_t> pixels(width * height * 4);
    for (uint8_t& p : pixels) p = in.remaining() > 0 ? in.byte() : static_cast<uint8_t>(p * 7 + 1);
    const uint64_t offsets[4] = {0, 1, 2, 3};
    smartCrop::IImage* image = CreateImageObj(height, width, 4, offsets, pixels.data());
    if (image == nullptr) std::abort();

    std::vector<smartCrop::RatioEntry> aspects(in.byte() % 4), scales(in.byte() % 4);
    for (auto& a : aspects) a = {in.take<double>(), (in.byte() & 1) != 0};
    for (auto& s : scales) s = {in.byte() / 255.0, (in.byte() & 1) != 0};
    std::vector<smartCrop::RectOfInterest> rects(in.byte() % 3);
    for (auto& r : rects) r = rect(in);
    smartCrop::SmartCropParams params;
    params.aspectRatios = aspects.data();
    params.aspectRatioCount = static_cast<uint32_t>(aspects.size());
    params.scaleRatios = scales.data();
    params.scaleRatioCount = static_cast<uint32_t>(scales.size());
    params.rectsOfInterest = rects.data();
    params.rectsOfInterestCount = static_cast<uint32_t>(rects.size());
    params.gridBudget = in.byte() % 24;
    params.saliencyFill = static_cast<float>(in.byte()) / 64.0f - 1.0f;
    params.edgeFill = static_cast<float>(in.byte()) / 64.0f - 1.0f;
    params.borderFill = static_cast<float>(in.byte()) / 64.0f - 1.0f;
    params.detectFaces = in.byte() & 1;

    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image, &params);
    if (crop == nullptr) std::abort();
    for (int step = 0; step < 8 && in.remaining() > 0; ++step) {
        switch (in.byte() % 7) {
            case 0:
                check(crop->SetAspectRatio(in.take<double>(), in.byte() & 1));
                break;
            case 1:
                check(crop->SetScaleRatio(in.byte() / 200.0, in.byte() & 1));
                break;
            case 2: {
                const smartCrop::RectOfInterest r = rect(in);
                check(crop->AddRectOfInterest(&r));
                break;
            }
            case 3: {
                smartCrop::CropRect c;
                c.left = static_cast<int32_t>(in.byte()) - 10;
                c.right = c.left + in.byte();
                c.top = static_cast<int32_t>(in.byte()) - 10;
                c.bottom = c.top + in.byte();
                check(crop->ScoreCrop(&c));
                break;
            }
            case 4: {
                smartCrop::IRectsOfInterest* out = nullptr;
                check(crop->GetRectsOfInterest(&out));
                if (out != nullptr) out->Release();
                break;
            }
            default: {
                smartCrop::SuggestionParams request;
                request.width = in.byte() < 128 ? in.byte() : in.take<double>();
                request.height = in.byte() < 128 ? in.byte() : in.take<double>();
                request.aspectRatio = in.byte() < 128 ? in.byte() / 50.0 : in.take<double>();
                request.useFaces = in.byte() & 1;
                smartCrop::SelectionParams selection;
                selection.count = in.byte();
                selection.mode = in.byte() % 6;
                for (double& w : selection.weights)
                    w = in.byte() < 200 ? in.byte() / 64.0 : in.take<double>();
                selection.perAspectRatio = in.byte() & 1;
                smartCrop::ICropRects* out = nullptr;
                const smartCrop::eErrorCode code =
                    (step & 1) ? crop->GetAllCrops(&out, &request)
                               : crop->GetSuggestions(&out, &selection, &request);
                check(code);
                if ((code == smartCrop::eSuccess) != (out != nullptr)) std::abort();
                if (out != nullptr) {
                    for (uint64_t i = 0; i < out->GetCount(); ++i) {
                        const smartCrop::CropRect& r = out->GetRects()[i];
                        if (r.left < 0 || r.top < 0 || static_cast<uint64_t>(r.right) >= width ||
                            static_cast<uint64_t>(r.bottom) >= height) {
                            std::abort();  // a candidate outside the image
                        }
                    }
                    out->Release();
                }
                break;
            }
        }
    }
    crop->Release();
    image->Release();
    return 0;
}
