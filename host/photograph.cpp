#include "host/photograph.h"

#include <utility>

#include "host/image_decoding.h"

namespace smartCrop::host {

namespace {

DecodeOptions decoding_for(const CropRequest& request, const OpenOptions& options) {
    check_request(request);
    DecodeOptions decoding = options.decoding;
    decoding.reducedLongSide = options.fullResolution ? 0 : reduced_long_side(request);
    return decoding;
}

AnalysedImage analysed(DecodedImage decoded, const CropRequest& request,
                       const OpenOptions& options) {
    if (options.beforeAnalysis) options.beforeAnalysis(decoded);
    return AnalysedImage(std::move(decoded), request);
}

}  // namespace

AnalysedImage open_photograph(const std::string& path, const CropRequest& request,
                              const OpenOptions& options) {
    const DecodeOptions decoding = decoding_for(request, options);
    return analysed(decode_file(path, decoding), request, options);
}

AnalysedImage open_photograph(std::vector<uint8_t> bytes, const CropRequest& request,
                              const OpenOptions& options) {
    const DecodeOptions decoding = decoding_for(request, options);
    return analysed(decode_image(std::move(bytes), decoding), request, options);
}

}  // namespace smartCrop::host
