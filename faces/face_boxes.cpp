#include "faces/face_boxes.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

namespace smartCrop {

namespace {

int64_t intersection(const FaceBox& a, const FaceBox& b) {
    int64_t iw =
        std::min<int64_t>(int64_t{a.x} + a.width, int64_t{b.x} + b.width) - std::max(a.x, b.x);
    int64_t ih =
        std::min<int64_t>(int64_t{a.y} + a.height, int64_t{b.y} + b.height) - std::max(a.y, b.y);
    if (iw < 1 || ih < 1) iw = ih = 0;
    return iw * ih;
}

int64_t area(const FaceBox& b) {
    return int64_t{b.width} * b.height;
}

// The boxes at or above the floor, highest score first.
std::vector<FaceBox> working_list(const std::vector<FaceBox>& boxes, float floor) {
    std::vector<std::pair<size_t, float>> order(boxes.size());
    for (size_t i = 0; i < boxes.size(); ++i) order[i] = {i, -boxes[i].score};
    std::sort(order.begin(), order.end(),
              [](const auto& a, const auto& b) { return a.second < b.second; });
    std::vector<FaceBox> out;
    for (const auto& [index, negated] : order) {
        if (boxes[index].score < floor) break;
        out.push_back(boxes[index]);
    }
    return out;
}

}  // namespace

int32_t to_int(float v) {
    if (!(v > -2147483520.0f)) return std::isnan(v) ? 0 : std::numeric_limits<int32_t>::min();
    if (v > 2147483520.0f) return std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(v);
}

void sort_by_score(std::vector<FaceBox>& boxes) {
    std::sort(boxes.begin(), boxes.end(),
              [](const FaceBox& a, const FaceBox& b) { return a.score > b.score; });
}

void keep_above(std::vector<FaceBox>& boxes, float threshold) {
    boxes.erase(std::remove_if(boxes.begin(), boxes.end(),
                               [&](const FaceBox& b) { return !(b.score > threshold); }),
                boxes.end());
}

std::vector<FaceBox> nms_by_iou(const std::vector<FaceBox>& boxes, float floor, float overlap) {
    std::vector<FaceBox> kept;
    for (const FaceBox& box : working_list(boxes, floor)) {
        bool drop = false;
        for (const FaceBox& k : kept) {
            const float inter = static_cast<float>(intersection(box, k));
            if (inter / (static_cast<float>(area(box) + area(k)) - inter) > overlap) {
                drop = true;
                break;
            }
        }
        if (!drop) kept.push_back(box);
    }
    return kept;
}

std::vector<FaceBox> nms_per_size(const std::vector<FaceBox>& boxes, float floor, float overlap) {
    std::unordered_map<int32_t, size_t> groupOf;
    std::vector<std::vector<FaceBox>> groups;
    for (const FaceBox& b : boxes) {
        auto it = groupOf.find(b.width);
        if (it == groupOf.end()) {
            it = groupOf.emplace(b.width, groups.size()).first;
            groups.emplace_back();
        }
        groups[it->second].push_back(b);
    }
    std::vector<FaceBox> out;
    for (const auto& group : groups) {
        const std::vector<FaceBox> kept = nms_by_iou(group, floor, overlap);
        out.insert(out.end(), kept.begin(), kept.end());
    }
    return out;
}

std::vector<FaceBox> nms_by_smaller_area(const std::vector<FaceBox>& boxes, float floor,
                                         float overlap) {
    std::vector<FaceBox> kept;
    for (const FaceBox& box : working_list(boxes, floor)) {
        bool drop = false;
        for (const FaceBox& k : kept) {
            const int64_t inter = intersection(box, k);
            if (inter <= 0) continue;
            const float ratio = std::max(static_cast<float>(inter) / static_cast<float>(area(box)),
                                         static_cast<float>(inter) / static_cast<float>(area(k)));
            if (ratio > overlap) drop = true;
        }
        if (!drop) kept.push_back(box);
    }
    return kept;
}

void scale_box(FaceBox& box, float factor) {
    const float nw = static_cast<float>(box.width) * factor;
    const float nh = static_cast<float>(box.height) * factor;
    const float cx = static_cast<float>(int64_t{box.width} + 2 * int64_t{box.x}) * 0.5f;
    const float cy = static_cast<float>(int64_t{box.height} + 2 * int64_t{box.y}) * 0.5f;
    box.x = to_int(std::floor(cx - nw * 0.5f));
    box.y = to_int(std::floor(cy - nh * 0.5f));
    box.width = to_int(nw);
    box.height = to_int(nh);
}

void clip_box(FaceBox& box, int width, int height) {
    const int64_t x1 = std::max(box.x, 0), y1 = std::max(box.y, 0);
    const int64_t w = std::min<int64_t>(int64_t{box.x} + box.width, width) - x1;
    const int64_t h = std::min<int64_t>(int64_t{box.y} + box.height, height) - y1;
    if (w >= 1 && h >= 1) {
        box.x = static_cast<int32_t>(x1);
        box.y = static_cast<int32_t>(y1);
        box.width = static_cast<int32_t>(w);
        box.height = static_cast<int32_t>(h);
    } else {
        box.x = box.y = box.width = box.height = 0;
    }
}

}  // namespace smartCrop
