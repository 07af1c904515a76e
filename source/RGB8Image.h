// The library's private, counted copy of a host's pixels.
#ifndef SMARTCROP_SOURCE_RGB8IMAGE_H
#define SMARTCROP_SOURCE_RGB8IMAGE_H

#include <cstdint>

#include "SmartCrop.h"
#include "source/RefCount.h"

namespace smartCrop {

class CRGB8Image final : public IImage, private CRefCount {
public:
    // Null when the size overflows or the block cannot be allocated.
    static CRGB8Image* Create(uint64_t rows, uint64_t cols, uint64_t channels,
                              const uint64_t* channelOffsets, const uint8_t* pixels);

    SMARTCROP_IMPLEMENT_REFCOUNT

    void Destroy() override;
    uint8_t* GetPixels() override { return pixels; }
    const uint8_t* GetConstPixels() const override { return pixels; }
    uint64_t GetWidth() const override { return cols; }
    uint64_t GetHeight() const override { return rows; }
    uint64_t GetChannelCount() const override { return channels; }
    uint64_t GetRowStride() const override { return rowStride; }
    uint64_t GetPixelStride() const override { return pixelStride; }
    uint64_t GetChannelOffset(uint32_t index) const override;

private:
    CRGB8Image() = default;
    ~CRGB8Image() override;

    uint8_t* pixels = nullptr;
    uint64_t cols = 0;
    uint64_t rows = 0;
    uint64_t channels = 0;
    uint64_t rowStride = 0;
    uint64_t pixelStride = 0;
    uint64_t byteSize = 0;
    uint64_t channelOffsets[4] = {0, 0, 0, 0};
};

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_RGB8IMAGE_H
