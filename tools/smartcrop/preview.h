// The preview: the image scaled down, the suggestions drawn and numbered
// (rank 1 in yellow on top, the others in blue) and the faces in red.
#ifndef SMARTCROP_TOOLS_SMARTCROP_PREVIEW_H
#define SMARTCROP_TOOLS_SMARTCROP_PREVIEW_H

#include <cstdint>
#include <vector>

#include "host/analysed_image.h"
#include "host/image_decoding.h"

namespace cli {

// Encoded in `format`; at most 1024 pixels on the long side.
std::vector<uint8_t> draw_preview(const smartCrop::host::AnalysedImage& image,
                                  const smartCrop::host::CropAnswer& answer,
                                  smartCrop::host::ImageFormat format);

}  // namespace cli

#endif  // SMARTCROP_TOOLS_SMARTCROP_PREVIEW_H
