#include "source/RGB8Image.h"

#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace smartCrop {

namespace {

bool MultiplyChecked(uint64_t a, uint64_t b, uint64_t& out) {
    if (a != 0 && b > std::numeric_limits<uint64_t>::max() / a) return false;
    out = a * b;
    return true;
}

}  // namespace

CRGB8Image* CRGB8Image::Create(uint64_t rows, uint64_t cols, uint64_t channels,
                               const uint64_t* channelOffsets, const uint8_t* pixels) {
    // The offsets are copied, so a missing array cannot be honoured.
    if (channelOffsets == nullptr) return nullptr;
    uint64_t rowStride = 0;
    uint64_t byteSize = 0;
    if (!MultiplyChecked(cols, channels, rowStride) ||
        !MultiplyChecked(rowStride, rows, byteSize) ||
        byteSize > static_cast<uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
        return nullptr;
    }

    std::unique_ptr<CRGB8Image, void (*)(CRGB8Image*)> image(new (std::nothrow) CRGB8Image,
                                                             [](CRGB8Image* p) { p->Destroy(); });
    if (!image) return nullptr;
    image->cols = cols;
    image->rows = rows;
    image->channels = channels;
    std::memcpy(image->channelOffsets, channelOffsets, sizeof(image->channelOffsets));
    image->rowStride = rowStride;
    image->pixelStride = channels;
    image->byteSize = byteSize;

    if (byteSize > 0) {
        image->pixels = new (std::nothrow) uint8_t[byteSize];
        if (image->pixels == nullptr) return nullptr;
        if (pixels != nullptr) {
            std::memcpy(image->pixels, pixels, byteSize);
        } else {
            std::memset(image->pixels, 0, byteSize);
        }
    }
    return image.release();
}

void CRGB8Image::Destroy() {
    delete this;
}

uint64_t CRGB8Image::GetChannelOffset(uint32_t index) const {
    // Bounded so that a stray index from a host reads nothing outside the object.
    return index < 4 ? channelOffsets[index] : 0;
}

CRGB8Image::~CRGB8Image() {
    delete[] pixels;
    pixels = nullptr;
}

}  // namespace smartCrop
