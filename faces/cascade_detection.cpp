#include "faces/cascade_detection.h"

// The cascade: a scanning network over an image pyramid proposes boxes, later
// networks rescore each box alone, the last ones refine boxes and landmarks.
#include <cfloat>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "deepnet/forward_pass.h"
#include "faces/antialias_resize.h"
#include "faces/cascade_model.h"

namespace smartCrop {

namespace {

// The box's region, resized to patch x patch; empty when nothing of it is inside.
cv::Mat patch_of(const cv::Mat& image, FaceBox box, int patch) {
    // Clipped before the region is taken rather than trusting earlier stages.
    clip_box(box, image.cols, image.rows);
    if (box.width < 1 || box.height < 1 || patch < 1) return cv::Mat();
    return resize_image(image(cv::Rect(box.x, box.y, box.width, box.height)),
                        cv::Size(patch, patch), 0);
}

void add(std::atomic<uint64_t>& counter, size_t n) {
    counter.fetch_add(n, std::memory_order_relaxed);
}

}  // namespace

void build_pyramid(const cv::Mat& image, const DetectionSettings& s, std::vector<cv::Mat>& levels,
                   std::vector<float>& scales) {
    levels.clear();
    scales.clear();
    const int L = std::max(image.rows, image.cols);
    if (L < 1) return;
    const float ratio = static_cast<float>(s.long_side) / static_cast<float>(L);
    const int minFace = static_cast<int>(static_cast<float>(s.long_side) * s.min_face_fraction);
    if (minFace < 1) return;
    const float baseScale = static_cast<float>(s.window_size) / static_cast<float>(minFace) * ratio;
    const int baseCols = static_cast<int>(static_cast<float>(image.cols) * baseScale);
    const int baseRows = static_cast<int>(static_cast<float>(image.rows) * baseScale);
    if (baseCols < 1 || baseRows < 1) return;
    const cv::Mat base = resize_image(image, cv::Size(baseCols, baseRows), 0);
    for (int i = 0; i < s.scale_count; ++i) {
        const float f = static_cast<float>(std::pow(static_cast<double>(s.scale_step), i));
        cv::Mat level = base;
        if (i > 0) {
            const int w = static_cast<int>(static_cast<float>(baseCols) * f);
            const int h = static_cast<int>(static_cast<float>(baseRows) * f);
            if (w <= s.window_size || h <= s.window_size) break;
            level = resize_image(base, cv::Size(w, h), 0);
        }
        if (level.rows < s.window_size || level.cols < s.window_size) continue;
        levels.push_back(level);
        scales.push_back(f * baseScale);
    }
}

std::vector<FaceBox> scan_pyramid(const cv::Mat& image, const deepnet::DeepnetModel& model,
                                  const DetectionSettings& s) {
    std::vector<cv::Mat> levels;
    std::vector<float> scales;
    build_pyramid(image, s, levels, scales);
    std::vector<FaceBox> boxes;
    boxes.reserve(100000);
    deepnet::NetworkRun network(model);
    for (size_t l = 0; l < levels.size(); ++l) {
        mp::matrix map;
        network.compute(map, levels[l], "Y");
        const int win = to_int(static_cast<float>(s.window_size) / scales[l]);
        const float xStep =
            map.cols > 1 ? static_cast<float>(image.cols - win) / static_cast<float>(map.cols - 1)
                         : 0;
        const float yStep =
            map.rows > 1 ? static_cast<float>(image.rows - win) / static_cast<float>(map.rows - 1)
                         : 0;
        for (int c = 0; c < map.cols; ++c) {
            for (int r = 0; r < map.rows; ++r) {
                boxes.push_back({to_int(c * xStep), to_int(r * yStep), win, win, map.at(r, c)});
            }
        }
    }
    return boxes;
}

std::vector<FaceBox> rescore_boxes(const cv::Mat& image, const deepnet::DeepnetModel& model,
                                   int patch, const std::vector<FaceBox>& boxes) {
    std::vector<FaceBox> out = boxes;
    deepnet::NetworkRun network(model);
    for (FaceBox& box : out) {
        const cv::Mat region = patch_of(image, box, patch);
        if (region.empty()) {
            box.score = -FLT_MAX;  // nothing of it to see: below every threshold
            continue;
        }
        mp::matrix y;
        network.compute(y, region, "Y");
        box.score = y.rows * y.cols > 0 ? y.data[0] : -FLT_MAX;
    }
    return out;
}

namespace {

// Landmark values in units of the patch, mapped into the frame of `box`.
std::vector<float> map_landmarks(const mp::matrix& values, const FaceBox& box) {
    std::vector<float> points;
    const int n = values.rows * values.cols;
    for (int i = 0; i + 1 < n; i += 2) {
        points.push_back(static_cast<float>(box.width) * values.data[i] +
                         static_cast<float>(box.x));
        points.push_back(static_cast<float>(box.height) * values.data[i + 1] +
                         static_cast<float>(box.y));
    }
    return points;
}

}  // namespace

void refine_boxes(const cv::Mat& image, const deepnet::DeepnetModel& model, int patch,
                  const std::vector<FaceBox>& boxes, DetectionResult& result) {
    result.boxes.resize(boxes.size());
    result.landmarks.resize(boxes.size());
    deepnet::NetworkRun network(model);
    for (size_t i = 0; i < boxes.size(); ++i) {
        FaceBox working = boxes[i];
        clip_box(working, image.cols, image.rows);
        FaceBox box = boxes[i];
        const cv::Mat region = patch_of(image, boxes[i], patch);
        if (!region.empty()) {
            std::vector<mp::matrix> out;
            network.compute(out, region, {"Y", "Y2"});
            if (out.size() != 2 || out[1].rows * out[1].cols < 3) {
                throw std::runtime_error(
                    "refine_boxes(): the refining network gives no correction at \"Y2\"");
            }
            const float a = out[1].data[0], b = out[1].data[1], c = out[1].data[2];
            // A scale of 0, negative or not a number leaves the size alone.
            if (c > 0 && std::isfinite(1.0f / c)) scale_box(box, 1.0f / c);
            box.x = to_int(static_cast<float>(box.x) - static_cast<float>(box.width) * a);
            box.y = to_int(static_cast<float>(box.y) - static_cast<float>(box.height) * b);
            result.landmarks[i] = map_landmarks(out[0], working);
        }
        box.score = boxes[i].score;
        clip_box(box, image.cols, image.rows);
        result.boxes[i] = box;
    }
}

void refine_landmarks(const cv::Mat& image, const deepnet::DeepnetModel& model, int patch,
                      DetectionResult& result) {
    deepnet::NetworkRun network(model);
    for (size_t i = 0; i < result.boxes.size(); ++i) {
        FaceBox enlarged = result.boxes[i];
        scale_box(enlarged, 1.5f);
        clip_box(enlarged, image.cols, image.rows);
        const cv::Mat region = patch_of(image, enlarged, patch);
        if (!region.empty()) {
            mp::matrix y;
            network.compute(y, region, "Y");
            result.landmarks[i] = map_landmarks(y, enlarged);
        }
        clip_box(result.boxes[i], image.cols, image.rows);
    }
}

void CasCNNModel::run_cascade(const cv::Mat& input, const DetectionSettings& s,
                              DetectionResult& result) {
    cv::Mat image = input;
    int padX = 0, padY = 0;
    if (static_cast<double>(s.pad_fraction) > 0.00001) {
        padY = static_cast<int>(static_cast<float>(image.rows) * s.pad_fraction * 0.5f);
        padX = static_cast<int>(static_cast<float>(image.cols) * s.pad_fraction * 0.5f);
        cv::copyMakeBorder(input, image, padY, padY, padX, padX, cv::BORDER_CONSTANT,
                           cv::Scalar(255, 224, 189, 0));
    }
    const size_t stages = stage_models.size();
    result = DetectionResult();
    if (stages < 3 || stages > 5) return;
    const auto& M = stage_models;
    const auto& T = stage_thresholds;
    const auto& P = patch_sizes;

    std::vector<FaceBox> boxes = scan_pyramid(image, *M[0], s);
    sort_by_score(boxes);
    add(stage_counters[0], boxes.size());
    boxes = nms_per_size(boxes, T[0], 0.5f);
    add(stage_counters[1], boxes.size());
    boxes = rescore_boxes(image, *M[1], P[1], boxes);
    boxes = nms_per_size(boxes, T[1], 0.5f);
    add(stage_counters[2], boxes.size());
    boxes = rescore_boxes(image, *M[2], P[2], boxes);
    sort_by_score(boxes);
    keep_above(boxes, T[2]);
    if (stages == 3) {
        result.boxes = boxes;
        result.landmarks.assign(boxes.size(), {});
        add(stage_counters[3], result.boxes.size());
    } else {
        boxes = nms_by_smaller_area(boxes, 0.0f, 0.25f);
        refine_boxes(image, *M[3], P[3], boxes, result);
        add(stage_counters[3], result.boxes.size());
        if (stages == 5) refine_landmarks(image, *M[4], P[4], result);
    }
    for (size_t i = 0; i < result.boxes.size(); ++i) {
        FaceBox& b = result.boxes[i];
        b.x -= padX;
        b.y -= padY;
        clip_box(b, input.cols, input.rows);
        for (size_t k = 0; k + 1 < result.landmarks[i].size(); k += 2) {
            result.landmarks[i][k] -= static_cast<float>(padX);
            result.landmarks[i][k + 1] -= static_cast<float>(padY);
        }
    }
}

std::vector<FaceBox> CasCNNModel::detect(const cv::Mat& image, const DetectionSettings& settings) {
    DetectionResult result;
    run_cascade(image, settings, result);
    return result.boxes;
}

}  // namespace smartCrop
