// Thin images of every shape (1 x 3000, 7 x 2400, 2000 x 5, 48 x 1),
// with arbitrary ratio, scale and rectangle lists, analysed and asked once.
// Thin images are cheap to analyse, so the target stays fast.
#include <algorithm>
#include <vector>

#include "fuzz_checks.h"
#include "fuzz_input.h"
#include "test_images.h"

namespace {

using namespace smartCrop;

RectOfInterest rect(FuzzInput& in, uint64_t width, uint64_t height) {
    RectOfInterest r;
    const bool wild = in.byte() < 16;
    auto coord = [&](uint64_t side) {
        return wild ? in.take<int32_t>()
                    : static_cast<int32_t>(in.take<uint16_t>() % (side + 20)) - 10;
    };
    r.left = coord(width);
    r.right = r.left + in.byte();
    r.top = coord(height);
    r.bottom = r.top + in.byte();
    r.kind = in.byte() % 5;
    r.isFace = in.byte() & 1;
    r.active = in.byte() & 1;
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    // Shapes matter here, not sizes: at most 32k pixels. The analysis works
    // at a fixed long side (a 3 x 2 image is scaled up to it), so its cost
    // follows the ratio of the sides: from 48:1 on an image costs a few
    // milliseconds under the sanitizers, a square one 40 times that. Square
    // and ordinary shapes are the request target's.
    uint64_t longSide, shortSide;
    if (in.byte() < 32) {  // beyond what the analysis can take
        longSide = 300 + in.take<uint16_t>() % 8000;
        shortSide = 1 + in.byte() % 3;
    } else {  // thin: from 48:1 to about 4000:1
        longSide = 48 + in.take<uint16_t>() % 4000;
        shortSide =
            1 + in.take<uint16_t>() % std::min<uint64_t>(longSide / 48, 32768 / longSide + 1);
    }
    const bool tall = in.byte() & 1;
    const uint64_t width = tall ? shortSide : longSide, height = tall ? longSide : shortSide;
    // Colour planes with a block and stripes, from a few bytes.
    const uint8_t base = in.byte(), block = in.byte(), stripe = 1 + in.byte() % 16;
    std::vector<uint8_t> pixels(width * height * 4);
    for (uint64_t y = 0; y < height; ++y)
        for (uint64_t x = 0; x < width; ++x) {
            uint8_t* p = &pixels[(y * width + x) * 4];
            const bool inBlock = x * 3 > width && x * 3 < 2 * width && y * 3 > height;
            p[1] = static_cast<uint8_t>(base + x * 255 / width);
            p[2] = inBlock ? block : static_cast<uint8_t>(((x + y) / stripe % 2) * 200);
            p[3] = static_cast<uint8_t>(y * 255 / height);
        }
    const uint64_t offsets[4] = {0, 1, 2, 3};
    IImage* image = CreateImageObj(height, width, 4, offsets, pixels.data());
    require(image != nullptr);

    std::vector<RatioEntry> aspects(in.byte() % 4), scales(in.byte() % 4);
    for (auto& a : aspects)
        a = {in.byte() < 200 ? in.byte() / 32.0 : in.take<double>(), (in.byte() & 1) != 0};
    for (auto& s : scales) s = {in.byte() / 255.0, (in.byte() & 1) != 0};
    std::vector<RectOfInterest> rects(in.byte() % 4);
    for (auto& r : rects) r = rect(in, width, height);
    SmartCropParams params = test::ParamsOf(aspects, scales, rects);
    params.gridBudget = in.byte() % 24;
    params.saliencyFill = static_cast<float>(in.byte()) / 64.0f - 1.0f;
    params.edgeFill = static_cast<float>(in.byte()) / 64.0f - 1.0f;
    params.borderFill = static_cast<float>(in.byte()) / 64.0f - 1.0f;

    ISmartCrop* crop = CreateSmartCropObj(image, &params);
    require(crop != nullptr);
    // Hard rectangles that count in queries, cut to the image: a crop holds
    // what of a required one lies inside, and overlaps a forbidden one only there.
    std::vector<RectOfInterest> hard;
    for (RectOfInterest r : rects) {
        if (!r.active || r.isFace || (r.kind != eRoiRequired && r.kind != eRoiForbidden)) continue;
        r.left = std::max<int32_t>(r.left, 0);
        r.top = std::max<int32_t>(r.top, 0);
        r.right = static_cast<int32_t>(std::min<int64_t>(r.right, static_cast<int64_t>(width) - 1));
        r.bottom =
            static_cast<int32_t>(std::min<int64_t>(r.bottom, static_cast<int64_t>(height) - 1));
        if (r.left <= r.right && r.top <= r.bottom) hard.push_back(r);
    }
    SelectionParams selection;
    selection.count = 1 + in.byte() % 8;
    selection.perAspectRatio = in.byte() & 1;
    SuggestionParams request;
    ICropRects* out = nullptr;
    const eErrorCode code = crop->GetSuggestions(&out, &selection, &request);
    // A refused list of rectangles leaves the object unbuilt: no answer to check.
    check_answer(code, out, width, height, &hard);
    crop->Release();
    image->Release();
    return 0;
}
