// The shared library's own translation unit. Everything it exports lives in
// the internal archive, linked whole; this file only anchors the target and
// records the interface it was built against.
#include "SmartCrop.h"

static_assert(sizeof(smartCrop::CropRect) == 80, "built against a different public header");
