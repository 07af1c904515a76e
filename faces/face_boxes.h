// Face boxes of the cascade and the operations that thin them out.
#ifndef SMARTCROP_FACES_FACE_BOXES_H
#define SMARTCROP_FACES_FACE_BOXES_H

#include <cstdint>
#include <vector>

namespace smartCrop {

struct FaceBox {
    int32_t x = 0, y = 0, width = 0, height = 0;
    float score = 0.0f;
};

// Float to int by truncation, with what a box cannot hold saturated (and NaN
// as 0) instead of undefined.
int32_t to_int(float v);

// Highest score first; the order of equal scores is not defined.
void sort_by_score(std::vector<FaceBox>& boxes);
// Keeps the boxes scoring strictly above `threshold`, in order.
void keep_above(std::vector<FaceBox>& boxes, float threshold);
// Suppression within each box width (a pyramid level), by intersection over union.
std::vector<FaceBox> nms_per_size(const std::vector<FaceBox>& boxes, float floor, float overlap);
std::vector<FaceBox> nms_by_iou(const std::vector<FaceBox>& boxes, float floor, float overlap);
// Suppression across sizes, measuring the intersection against the smaller box.
std::vector<FaceBox> nms_by_smaller_area(const std::vector<FaceBox>& boxes, float floor,
                                         float overlap);
// Scales the box about its centre: corner rounded down, size towards zero.
void scale_box(FaceBox& box, float factor);
// Cuts the box to width x height; a box wholly outside becomes all zeros (but its score).
void clip_box(FaceBox& box, int width, int height);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_FACE_BOXES_H
