// Box merging, scaling and clipping.
#include <gtest/gtest.h>

#include "faces/face_boxes.h"

namespace smartCrop {
namespace {

FaceBox box(int x, int y, int w, int h, float s) {
    return {x, y, w, h, s};
}

TEST(FaceBoxes, EmptyAndFloors) {
    std::vector<FaceBox> none;
    EXPECT_TRUE(nms_by_iou(none, 0, 0.5f).empty());
    EXPECT_TRUE(nms_per_size(none, 0, 0.5f).empty());
    EXPECT_TRUE(nms_by_smaller_area(none, 0, 0.5f).empty());
    EXPECT_TRUE(nms_by_iou({box(0, 0, 5, 5, 0.1f), box(20, 0, 5, 5, 0.2f)}, 0.5f, 0.5f).empty());
    // The floor keeps a score equal to it; keep_above does not.
    const auto kept =
        nms_by_smaller_area({box(0, 0, 5, 5, -0.1f), box(20, 0, 5, 5, 0.0f)}, 0.0f, 0.25f);
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].x, 20);
    std::vector<FaceBox> list = {box(0, 0, 5, 5, 0.5f), box(9, 0, 5, 5, 0.7f)};
    keep_above(list, 0.5f);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].score, 0.7f);
}

TEST(FaceBoxes, TwoSuppressions) {
    // Identical boxes: the lower score goes below a limit of 1, both stay at 1.
    const std::vector<FaceBox> twins = {box(0, 0, 10, 10, 0.4f), box(0, 0, 10, 10, 0.9f)};
    const auto one = nms_by_iou(twins, 0, 0.99f);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].score, 0.9f);
    EXPECT_EQ(nms_by_iou(twins, 0, 1.0f).size(), 2u);
    // A small box inside a large one: union ratio 0.16 keeps both by IoU, the
    // smaller-area ratio of 1 drops the second.
    const std::vector<FaceBox> nested = {box(0, 0, 50, 50, 0.9f), box(10, 10, 20, 20, 0.8f)};
    EXPECT_EQ(nms_by_iou(nested, 0, 0.25f).size(), 2u);
    const auto late = nms_by_smaller_area(nested, 0, 0.25f);
    ASSERT_EQ(late.size(), 1u);
    EXPECT_EQ(late[0].width, 50);
    // Touching edges are no overlap; empty boxes compare as 0 / 0 and stay.
    EXPECT_EQ(nms_by_iou({box(0, 0, 10, 10, 1), box(10, 0, 10, 10, 0.5f)}, 0, 0.0f).size(), 2u);
    EXPECT_EQ(nms_by_iou({box(3, 3, 0, 0, 1), box(3, 3, 0, 0, 0.5f)}, 0, 0.5f).size(), 2u);
}

TEST(FaceBoxes, PerSizeGroupsInOrderOfFirstWidth) {
    const std::vector<FaceBox> boxes = {box(0, 0, 20, 20, 0.5f), box(0, 0, 10, 10, 0.9f),
                                        box(1, 1, 20, 20, 0.8f), box(40, 0, 10, 10, 0.3f)};
    const auto out = nms_per_size(boxes, 0, 0.5f);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0].width, 20);  // the group of width 20 first: its width came first
    EXPECT_EQ(out[0].score, 0.8f);
    EXPECT_EQ(out[1].score, 0.9f);
    EXPECT_EQ(out[2].score, 0.3f);
}

TEST(FaceBoxes, ScaleAndClip) {
    FaceBox b = box(7, 9, 31, 17, 0.3f);
    scale_box(b, 1.0f);
    EXPECT_EQ(b.x, 7);
    EXPECT_EQ(b.width, 31);
    EXPECT_EQ(b.height, 17);
    FaceBox g = box(10, 10, 10, 10, 0);
    scale_box(g, 1.5f);  // about the centre, corner rounded down
    EXPECT_EQ(g.x, 7);
    EXPECT_EQ(g.width, 15);
    FaceBox c = box(-5, 95, 20, 20, 0.25f);
    clip_box(c, 100, 100);
    EXPECT_EQ(c.x, 0);
    EXPECT_EQ(c.y, 95);
    EXPECT_EQ(c.width, 15);
    EXPECT_EQ(c.height, 5);
    FaceBox out = box(200, 200, 5, 5, 0.25f);
    clip_box(out, 100, 100);
    EXPECT_EQ(out.x + out.y + out.width + out.height, 0);
    EXPECT_EQ(out.score, 0.25f);
}

}  // namespace
}  // namespace smartCrop
