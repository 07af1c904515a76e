// Uses the installed library: analyses an image and asks for one crop.
#include <SmartCrop.h>

#include <cstdio>
#include <vector>

int main() {
    const int W = 320, H = 200;
    std::vector<uint8_t> pixels(W * H * 4);
    for (int i = 0; i < W * H; ++i) pixels[i * 4 + 1] = static_cast<uint8_t>(i % W);
    const uint64_t offsets[4] = {0, 1, 2, 3};
    smartCrop::IImage* image = CreateImageObj(H, W, 4, offsets, pixels.data());
    smartCrop::RatioEntry aspect{1.0, true}, scale{0.8, true};
    smartCrop::SmartCropParams params;
    params.aspectRatios = &aspect;
    params.aspectRatioCount = 1;
    params.scaleRatios = &scale;
    params.scaleRatioCount = 1;
    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image, &params);
    smartCrop::SelectionParams selection;
    selection.count = 1;
    smartCrop::SuggestionParams request;
    smartCrop::ICropRects* out = nullptr;
    const int code = crop != nullptr ? crop->GetSuggestions(&out, &selection, &request) : -1;
    const bool ok = code == 0 && out->GetCount() == 1 &&
                    out->GetRects()[0].right - out->GetRects()[0].left == 159;
    std::printf("consumer: code %d, %s\n", code, ok ? "one 160 by 160 crop" : "unexpected answer");
    if (out != nullptr) out->Release();
    if (crop != nullptr) crop->Release();
    image->Release();
    return ok ? 0 : 1;
}
