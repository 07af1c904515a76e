// Arbitrary bytes as an image file for the host layer's decoders: our own
// header readers (BMP, PNM, TIFF, EXIF) and the codecs behind them. A file
// is decoded or refused with a HostError; the pixel limit is small so that
// each input stays cheap. The options come from the last byte, so that real
// image files serve as seeds as they are.
#include <cstdlib>

#include "host/host_error.h"
#include "host/image_decoding.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    smartCrop::host::DecodeOptions options;
    options.maxPixels = 1 << 18;
    options.lenient = data[size - 1] & 1;
    options.reducedLongSide = data[size - 1] & 2 ? 64 : 0;
    try {
        const smartCrop::host::DecodedImage image =
            smartCrop::host::decode_image(std::vector<uint8_t>(data, data + size), options);
        if (image.pixels.size() != size_t{image.width} * image.height * 4 ||
            uint64_t{image.fullWidth} * image.fullHeight > options.maxPixels)
            std::abort();
    } catch (const smartCrop::host::HostError&) {
    }
    return 0;
}
