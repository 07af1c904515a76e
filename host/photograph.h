// Opening a photograph for a request, the one way every host here does it:
// read within the limits, decoded only as large as the request needs (a
// large JPEG is reduced while it is decoded), then analysed once.
#ifndef SMARTCROP_HOST_PHOTOGRAPH_H
#define SMARTCROP_HOST_PHOTOGRAPH_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/analysed_image.h"
#include "host/crop_request.h"
#include "host/decode_options.h"
#include "host/decoded_image.h"

namespace smartCrop::host {

struct OpenOptions {
    // The limits; the reduced size is chosen here from the request.
    DecodeOptions decoding;
    // Decode at full resolution whatever the request needs, for a caller
    // that cuts crops out of the pixels.
    bool fullResolution = false;
    // Called with the decoded pixels just before the analysis.
    std::function<void(const DecodedImage&)> beforeAnalysis;
};

// Throw HostError for an image that cannot be used, RequestError for a
// request no image could answer (checked before the file is read).
AnalysedImage open_photograph(const std::string& path, const CropRequest& request,
                              const OpenOptions& options = {});
AnalysedImage open_photograph(std::vector<uint8_t> bytes, const CropRequest& request,
                              const OpenOptions& options = {});

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_PHOTOGRAPH_H
