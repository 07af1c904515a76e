// The face detector's stages, read from a configuration file that lists one
// network file, patch size and threshold per stage; and the detection itself.
#ifndef SMARTCROP_FACES_CASCADE_MODEL_H
#define SMARTCROP_FACES_CASCADE_MODEL_H

#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "deepnet/deepnet_model.h"
#include "faces/detector_settings.h"
#include "faces/face_boxes.h"

namespace smartCrop {

struct FaceModelPoint {
    float x, y, z;
};

// A constant head model with its camera; nothing in the detection reads it.
struct FaceGeometryBlock {
    FaceGeometryBlock();
    cv::Mat header;
    float scale = 1.5f;
    int32_t canvasWidth = 500, canvasHeight = 500;
    float focalX = 750, focalY = 750, centreX = 250, centreY = 250;
    std::vector<FaceModelPoint> modelPoints;    // 66
    std::vector<FaceModelPoint> derivedPoints;  // eye centres, nose, mouth corners
};

struct DetectionResult {
    std::vector<FaceBox> boxes;
    std::string text;                           // stays empty
    std::vector<std::vector<float>> landmarks;  // x0, y0, x1, y1, ... per box
};

class CasCNNModel {
public:
    class ModelNotFoundException : public std::exception {
    public:
        explicit ModelNotFoundException(std::string text) : text(std::move(text)) {}
        const char* what() const noexcept override { return text.c_str(); }

    private:
        std::string text;
    };

    // A configuration that cannot be opened, or holds no record, gives no stage.
    explicit CasCNNModel(const std::string& configPath);

    std::vector<FaceBox> detect(const cv::Mat& image, const DetectionSettings& settings);
    void run_cascade(const cv::Mat& image, const DetectionSettings& settings,
                     DetectionResult& result);

    std::vector<int32_t> patch_sizes;
    std::vector<float> stage_thresholds;
    std::vector<std::shared_ptr<deepnet::DeepnetModel>> stage_models;
    FaceGeometryBlock geometry;
    // Survivors per stage over the detector's life; relaxed atomics, so that
    // detections on several threads count without a data race.
    std::array<std::atomic<uint64_t>, 5> stage_counters{};
};

// The folder of a configuration path and the fallback path of a listed name.
std::string config_folder(const std::string& configPath);
std::string resolve_model_path(const std::string& token, const std::string& folder);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_CASCADE_MODEL_H
