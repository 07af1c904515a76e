// The image object: copying, strides, zero sizes and the factory's refusals.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "SmartCrop.h"

namespace {

const uint64_t kOffsets[4] = {0, 1, 2, 3};

TEST(ImageObject, CopiesTheCallersPixels) {
    std::vector<uint8_t> pixels(3 * 2 * 4);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 7);
    smartCrop::IImage* image = CreateImageObj(2, 3, 4, kOffsets, pixels.data());
    ASSERT_NE(image, nullptr);
    const std::vector<uint8_t> expected = pixels;
    std::fill(pixels.begin(), pixels.end(), 0xAB);  // the image must not alias this
    EXPECT_EQ(std::vector<uint8_t>(image->GetConstPixels(), image->GetConstPixels() + 24),
              expected);
    EXPECT_EQ(image->GetPixels(), image->GetConstPixels());
    EXPECT_EQ(image->GetWidth(), 3u);
    EXPECT_EQ(image->GetHeight(), 2u);
    EXPECT_EQ(image->GetRowStride(), 12u);
    EXPECT_EQ(image->GetPixelStride(), 4u);
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(image->GetChannelOffset(i), kOffsets[i]);
    EXPECT_EQ(image->GetChannelOffset(4), 0u);  // out of range reads nothing
    EXPECT_EQ(image->Release(), 1u);
}

TEST(ImageObject, NullPixelsAndZeroSizes) {
    smartCrop::IImage* image = CreateImageObj(5, 7, 3, kOffsets, nullptr);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->GetRowStride(), 21u);
    for (int i = 0; i < 5 * 7 * 3; ++i) ASSERT_EQ(image->GetConstPixels()[i], 0) << i;
    EXPECT_EQ(image->AddRef(), 1u);
    image->Destroy();  // whatever its count: the sanitizer build sees nothing left behind

    const uint64_t sizes[][3] = {{0, 4, 4}, {4, 0, 4}, {4, 4, 0}, {0, 0, 0}};
    for (const auto& s : sizes) {
        smartCrop::IImage* empty = CreateImageObj(s[0], s[1], s[2], kOffsets, nullptr);
        ASSERT_NE(empty, nullptr);
        EXPECT_EQ(empty->GetHeight(), s[0]);
        EXPECT_EQ(empty->GetRowStride(), s[1] * s[2]);
        empty->Destroy();
    }
}

TEST(ImageObject, FactoryRefusalsGiveNull) {
    EXPECT_EQ(CreateImageObj(2, 2, 4, nullptr, nullptr), nullptr);
    const uint64_t huge = std::numeric_limits<uint64_t>::max() / 2;
    EXPECT_EQ(CreateImageObj(huge, huge, 4, kOffsets, nullptr), nullptr);  // size overflows
    EXPECT_EQ(CreateImageObj(1, huge, 4, kOffsets, nullptr), nullptr);
    // Representable but not allocatable.
    EXPECT_EQ(CreateImageObj(1ull << 20, 1ull << 20, 16, kOffsets, nullptr), nullptr);
}

}  // namespace
