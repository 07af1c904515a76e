// Images made by tests, held by a counted pointer that releases itself.
#ifndef SMARTCROP_TESTS_TEST_IMAGES_H
#define SMARTCROP_TESTS_TEST_IMAGES_H

#include <cstdint>
#include <functional>
#include <vector>

#include "SmartCrop.h"

namespace test {

// Four bytes a pixel: ignored, red, green, blue.
struct Rgb {
    uint8_t r, g, b;
};

inline std::vector<uint8_t> MakePixels(int width, int height,
                                       const std::function<Rgb(int x, int y)>& colour) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Rgb c = colour(x, y);
            uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
            p[0] = 0;
            p[1] = c.r;
            p[2] = c.g;
            p[3] = c.b;
        }
    }
    return pixels;
}

// A textured warm object right of centre on a smooth cool background.
inline Rgb photo(int x, int y, int W, int H) {
    const bool object = x > W * 0.55 && x < W * 0.85 && y > H * 0.3 && y < H * 0.7;
    if (object) {
        const int stripe = ((x / 5 + y / 7) % 2) * 70;
        return {static_cast<uint8_t>(210 - stripe), static_cast<uint8_t>(100 + stripe / 2), 40};
    }
    return {static_cast<uint8_t>(60 + 40 * y / H), static_cast<uint8_t>(100 + 30 * x / W), 170};
}

// A crop rectangle, inclusive ends, its scores zero.
inline smartCrop::CropRect Rect(int left, int top, int right, int bottom) {
    smartCrop::CropRect r;
    r.left = left;
    r.top = top;
    r.right = right;
    r.bottom = bottom;
    return r;
}

// A parameter record over the given lists, which must outlive it.
inline smartCrop::SmartCropParams ParamsOf(std::vector<smartCrop::RatioEntry>& aspects,
                                           std::vector<smartCrop::RatioEntry>& scales,
                                           std::vector<smartCrop::RectOfInterest>& rects) {
    smartCrop::SmartCropParams p;
    p.aspectRatios = aspects.data();
    p.aspectRatioCount = static_cast<uint32_t>(aspects.size());
    p.scaleRatios = scales.data();
    p.scaleRatioCount = static_cast<uint32_t>(scales.size());
    p.rectsOfInterest = rects.data();
    p.rectsOfInterestCount = static_cast<uint32_t>(rects.size());
    return p;
}

// A list the library answered, copied out and released; empty when there is none.
template <class Record, class List>
std::vector<Record> Records(List* list) {
    std::vector<Record> out;
    if (list == nullptr) return out;
    if (list->GetCount() > 0) out.assign(list->GetRects(), list->GetRects() + list->GetCount());
    list->Release();
    return out;
}

inline std::vector<smartCrop::CropRect> Suggestions(
    smartCrop::ISmartCrop* crop, const smartCrop::SuggestionParams& request,
    const smartCrop::SelectionParams& selection = {}, smartCrop::eErrorCode* code = nullptr) {
    smartCrop::ICropRects* out = nullptr;
    const smartCrop::eErrorCode c = crop->GetSuggestions(&out, &selection, &request);
    if (code != nullptr) *code = c;
    return Records<smartCrop::CropRect>(out);
}

inline std::vector<smartCrop::CropRect> AllCrops(smartCrop::ISmartCrop* crop,
                                                 const smartCrop::SuggestionParams& request = {},
                                                 smartCrop::eErrorCode* code = nullptr) {
    smartCrop::ICropRects* out = nullptr;
    const smartCrop::eErrorCode c = crop->GetAllCrops(&out, &request);
    if (code != nullptr) *code = c;
    return Records<smartCrop::CropRect>(out);
}

// The object's rectangles of interest, the host's first, then the faces.
inline std::vector<smartCrop::RectOfInterest> RectsOfInterest(smartCrop::ISmartCrop* crop) {
    smartCrop::IRectsOfInterest* list = nullptr;
    crop->GetRectsOfInterest(&list);
    return Records<smartCrop::RectOfInterest>(list);
}

class Image {
public:
    Image(int width, int height, const std::function<Rgb(int, int)>& colour = nullptr) {
        const uint64_t offsets[4] = {0, 1, 2, 3};
        if (colour) {
            const std::vector<uint8_t> pixels = MakePixels(width, height, colour);
            image = CreateImageObj(height, width, 4, offsets, pixels.data());
        } else {
            image = CreateImageObj(height, width, 4, offsets, nullptr);
        }
    }
    ~Image() {
        if (image != nullptr) image->Release();
    }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    smartCrop::IImage* get() const { return image; }
    // A photo-like image of that size.
    static std::function<Rgb(int, int)> Photo(int width, int height) {
        return [=](int x, int y) { return photo(x, y, width, height); };
    }

private:
    smartCrop::IImage* image = nullptr;
};

}  // namespace test

#endif  // SMARTCROP_TESTS_TEST_IMAGES_H
