#include "faces/detector_settings.h"

#include <cstring>

namespace smartCrop {

namespace {

float bits(uint32_t b) {
    float f;
    std::memcpy(&f, &b, sizeof f);
    return f;
}

struct Preset {
    const char* name;
    int32_t window, longSide;
    uint32_t minFace;  // 0 keeps the default
    int32_t scaleCount;
    uint32_t scaleStep, pad;
};

// The float columns as their exact bit patterns.
const Preset kPresets[] = {
    {"vga", 0, 640, 0x3E000000, 12, 0, 0},
    {"vga-pad", 0, 768, 0x3DCCCCCD, 12, 0, 0x3DCCCCCD},
    {"afw", 0, 1280, 0x3D2AAAAB, 12, 0x3F44EC4F, 0},
    {"afw-pad", 0, 1560, 0x3D088889, 14, 0x3F44EC4F, 0x3E4CCCCD},
    {"afw-pad2", 0, 1800, 0x3CE38E39, 12, 0, 0x3E4CCCCD},
    {"dense", 0, 1280, 0x3D2AAAAB, 20, 0x3F574E96, 0},
    {"dense-pad", 0, 1530, 0x3D088889, 20, 0x3F574E96, 0x3DCCCCCD},
    {"fddb", 0, 1280, 0, 40, 0x3F5E9BD4, 0x3DCCCCCD},
    {"large", 0, 640, 0x3E000000, 6, 0, 0},
    {"small", 0, 1280, 0x3C000000, 14, 0, 0},
    {"hard", 0, 1280, 0, 14, 0, 0},
    {"x48", 48, 640, 0x3E000000, 12, 0x3F58F2FC, 0},
    {"test", 0, 1280, 0x3D2AAAAB, 1, 0, 0},
};

}  // namespace

DetectionSettings get_detector_settings(const std::string& name) {
    DetectionSettings s{12, 1480, bits(0x3D000000), 16, bits(0x3F350BF3), 12, 0.0f};
    for (const Preset& p : kPresets) {
        if (name != p.name) continue;
        if (p.window) s.window_size = p.window;
        s.long_side = p.longSide;
        if (p.minFace) s.min_face_fraction = bits(p.minFace);
        s.scale_count = p.scaleCount;
        if (p.scaleStep) s.scale_step = bits(p.scaleStep);
        if (p.pad) s.pad_fraction = bits(p.pad);
    }
    return s;
}

}  // namespace smartCrop
