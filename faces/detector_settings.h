// Named presets of the detection pyramid.
#ifndef SMARTCROP_FACES_DETECTOR_SETTINGS_H
#define SMARTCROP_FACES_DETECTOR_SETTINGS_H

#include <cstdint>
#include <string>

namespace smartCrop {

struct DetectionSettings {
    int32_t window_size;
    int32_t long_side;
    float min_face_fraction;
    int32_t scale_count;
    float scale_step;
    int32_t spare_size;  // read by nothing
    float pad_fraction;
};

// The defaults overridden by the preset of that exact name; an unknown name
// keeps the defaults.
DetectionSettings get_detector_settings(const std::string& name);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_DETECTOR_SETTINGS_H
