#include "faces/face_detector.h"

#include <opencv2/core.hpp>

#include "faces/cascade_model.h"
#include "faces/face_config_path.h"

namespace smartCrop {

std::vector<FaceBox> find_faces(const uint8_t* pixels, int32_t width, int32_t height) {
    const DetectionSettings settings = get_detector_settings("afw");
    const cv::Mat image(height, width, CV_8UC3, const_cast<uint8_t*>(pixels));
    // Built by one caller while the others wait; a constructor that throws
    // leaves it unbuilt, and the next call tries again with the path then set.
    static CasCNNModel detector(face_config_path());
    return detector.detect(image, settings);
}

}  // namespace smartCrop
