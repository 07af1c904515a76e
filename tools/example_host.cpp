// The smallest useful host: make an image, ask for suggestions, print them.
// It uses only the public header and the shared library, as any host would.
#include <cstdio>
#include <vector>

#include "SmartCrop.h"

int main() {
    // A 960 by 640 image: a warm square off-centre on a cool gradient.
    const int width = 960, height = 640;
    std::vector<uint8_t> pixels(width * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &pixels[(y * width + x) * 4];  // ignored, red, green, blue
            const bool subject = x > 600 && x < 760 && y > 200 && y < 380;
            p[1] = subject ? 230 : static_cast<uint8_t>(40 + y / 8);
            p[2] = subject ? 120 : static_cast<uint8_t>(70 + y / 10);
            p[3] = subject ? 30 : static_cast<uint8_t>(120 + x / 12);
        }
    }
    const uint64_t offsets[4] = {0, 1, 2, 3};
    smartCrop::IImage* image = CreateImageObj(height, width, 4, offsets, pixels.data());
    if (image == nullptr) return 1;

    smartCrop::RatioEntry aspects[] = {{1.0, true}, {16.0 / 9.0, true}, {4.0 / 5.0, true}};
    smartCrop::RatioEntry scales[] = {{1.0, true}, {0.85, true}, {0.7, true}, {0.55, true}};
    smartCrop::SmartCropParams params;
    params.aspectRatios = aspects;
    params.aspectRatioCount = 3;
    params.scaleRatios = scales;
    params.scaleRatioCount = 4;

    smartCrop::ISmartCrop* crop = CreateSmartCropObj(image, &params);  // analyses the image
    if (crop == nullptr) {
        image->Release();
        return 1;
    }
    smartCrop::SelectionParams selection;  // five suggestions, the default blend
    smartCrop::SuggestionParams request;   // every enabled ratio and scale
    smartCrop::ICropRects* suggestions = nullptr;
    const smartCrop::eErrorCode code = crop->GetSuggestions(&suggestions, &selection, &request);
    int status = 0;
    if (code != smartCrop::eSuccess) {
        std::printf("GetSuggestions failed: code %u, \"%s\"\n", code, crop->GetLastErrorText());
        status = 1;
    } else {
        const smartCrop::CropRect* rects = suggestions->GetRects();
        for (uint64_t i = 0; i < suggestions->GetCount(); ++i) {
            const smartCrop::CropRect& r = rects[i];
            std::printf("%llu: left %d top %d right %d bottom %d  score %.3f\n",
                        static_cast<unsigned long long>(i + 1), r.left, r.top, r.right, r.bottom,
                        r.score);
        }
        suggestions->Release();
    }
    crop->Release();
    image->Release();  // last: the smart-crop object reads it without a count
    return status;
}
