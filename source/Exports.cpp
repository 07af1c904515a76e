// The library's only exported symbols.
#include "SmartCrop.h"

#include "faces/face_config_path.h"
#include "source/RGB8Image.h"
#include "source/SmartCropObject.h"

extern "C" {

SMARTCROP_API smartCrop::IImage* CreateImageObj(uint64_t rows, uint64_t cols, uint64_t channels,
                                                const uint64_t* channelOffsets,
                                                const uint8_t* pixels) {
    try {
        return smartCrop::CRGB8Image::Create(rows, cols, channels, channelOffsets, pixels);
    } catch (...) {
        return nullptr;
    }
}

SMARTCROP_API smartCrop::ISmartCrop* CreateSmartCropObj(smartCrop::IImage* image,
                                                        const smartCrop::SmartCropParams* params) {
    try {
        smartCrop::SmartCrop* object = smartCrop::SmartCrop::Create();
        // Init's code is not looked at: a host learns of a failure through
        // GetLastErrorText or the calls that follow.
        object->Init(image, params);
        return object;
    } catch (...) {
        return nullptr;
    }
}

SMARTCROP_API void SetFaceDetectorConfigDir(const char* path) {
    try {
        smartCrop::set_face_config_path(path);
    } catch (...) {
        // Out of memory for a path: the previous one stays in force.
    }
}

}  // extern "C"
