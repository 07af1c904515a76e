// What a decoder may do with a file: the pixel limit, leniency towards
// damaged data, and how far a JPEG may be reduced while it is decoded.
#ifndef SMARTCROP_HOST_DECODE_OPTIONS_H
#define SMARTCROP_HOST_DECODE_OPTIONS_H

#include <cstdint>

namespace smartCrop::host {

// A photo service's bound: 100 million pixels covers the largest camera
// sensors, and keeps one image's decode under 1 GiB whatever the format.
constexpr uint64_t kDefaultMaxPixels = 100'000'000;

struct DecodeOptions {
    uint64_t maxPixels = kDefaultMaxPixels;  // of the image as its file describes it
    bool lenient = false;                    // keep what damaged data still gives
    // A JPEG is decoded at 1/2, 1/4 or 1/8 while its long side stays at
    // least this; 0 decodes every format at full size.
    uint32_t reducedLongSide = 0;
};

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_DECODE_OPTIONS_H
