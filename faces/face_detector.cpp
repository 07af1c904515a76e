#include "face_detector.h"

#include <opencv2/core.hpp>
#include <string>

#include "WeftyException.h"
#include "cascade_model.h"
#include "crop_analyzer.h"
#include "face_config_path.h"

namespace smartCrop {

void find_faces(const uint8_t* pixels, int32_t width, int32_t height,
                std::vector<FaceSides>& faces) {
    const DetectionSettings settings = get_detector_settings("afw");
    const cv::Mat image(height, width, CV_8UC3, const_cast<uint8_t*>(pixels));
    // Built by one caller while the others wait; a constructor that throws
    // leaves it unbuilt, and the next call tries again with the path then set.
    static CasCNNModel detector(face_config_path());
    for (const FaceBox& box : detector.detect(image, settings)) {
        faces.push_back({box.x, box.x + box.width, box.y, box.y + box.height});
    }
}

void CropAnalyzer::detect_faces() {
    if (facesDone) return;
    std::vector<FaceSides> faces;
    try {
        find_faces(highImage.data.data(), highImage.width, highImage.height, faces);
    } catch (const CasCNNModel::ModelNotFoundException& e) {
        // The text must outlive the exception that carries it.
        static thread_local std::string text;
        text = e.what();
        throw Wefty::exception(eModelMissing, text.c_str(), 16, "include/CommonStructures");
    }
    const float s = highScale;
    const float w = static_cast<float>(sourceWidth - 1), h = static_cast<float>(sourceHeight - 1);
    for (const FaceSides& f : faces) {
        const float qx = static_cast<float>(f.left + f.right) * 0.5f * 0.5f;
        const float qy = static_cast<float>(f.top + f.bottom) * 0.5f * 0.5f;
        float left =
            static_cast<float>(static_cast<int>(static_cast<float>(f.left) * 1.5f - qx + 0.5f)) / s;
        float right =
            static_cast<float>(static_cast<int>(static_cast<float>(f.right) * 1.5f - qx + 0.5f)) /
            s;
        float top =
            static_cast<float>(static_cast<int>(static_cast<float>(f.top) * 1.5f - qy + 0.5f)) / s;
        float bottom =
            static_cast<float>(static_cast<int>(static_cast<float>(f.bottom) * 1.5f - qy + 0.5f)) /
            s;
        if (left < 0) left = 0;
        if (top < 0) top = 0;
        if (right > w) right = w;
        if (bottom > h) bottom = h;
        RectOfInterest r;
        r.left = static_cast<int32_t>(left);
        r.right = static_cast<int32_t>(right);
        r.top = static_cast<int32_t>(top);
        r.bottom = static_cast<int32_t>(bottom);
        r.kind = eRoiWanted;
        r.isFace = true;
        r.active = true;
        // A box the one-sided clamps leave inverted would be no rectangle at all.
        if (r.left <= r.right && r.top <= r.bottom) roiList.push_back(r);
    }
    facesDone = true;
}

}  // namespace smartCrop
