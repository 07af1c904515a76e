// Compiled with -std=c++17 -Wall -Wextra -pedantic -Werror and only include/ on
// the include path: the public header must need nothing else.
#include "SmartCrop.h"

#ifdef CV_VERSION
#error "the public header pulls in OpenCV"
#endif
#ifdef CBLAS_H
#error "the public header pulls in a BLAS"
#endif

namespace {
[[maybe_unused]] smartCrop::SmartCropParams defaults;
[[maybe_unused]] auto* create_image = &CreateImageObj;
[[maybe_unused]] auto* create_smart_crop = &CreateSmartCropObj;
[[maybe_unused]] auto* set_config = &SetFaceDetectorConfigDir;
}  // namespace
