// The host layer's rules on small hand-made candidate lists: faces whole or
// not there, the best crop of each ratio first, distinct alternatives, a
// subject flush with the edge kept, and the focal point.
#include <gtest/gtest.h>

#include <cmath>

#include <opencv2/imgproc.hpp>

#include "host/analysed_image.h"
#include "host/crop_selection.h"

namespace smartCrop::host {
namespace {

// A candidate with even features unless told otherwise.
CropRect crop(int left, int top, int right, int bottom, double quality = 0.5) {
    CropRect c;
    c.left = left, c.top = top, c.right = right, c.bottom = bottom;
    c.aestheticScore = c.coverageScore = c.borderScore = c.peakShare = quality;
    c.roiScore = 1.0;
    c.analysed = true;
    return c;
}

std::vector<int> corners(const CropRect& c) {
    return {c.left, c.top, c.right, c.bottom};
}

double overlap(const CropRect& a, const CropRect& b) {
    const double iw = std::max(0, std::min(a.right, b.right) - std::max(a.left, b.left) + 1);
    const double ih = std::max(0, std::min(a.bottom, b.bottom) - std::max(a.top, b.top) + 1);
    const double area = [](const CropRect& r) {
        return double(r.right - r.left + 1) * (r.bottom - r.top + 1);
    }(a) + double(b.right - b.left + 1) * (b.bottom - b.top + 1);
    return iw * ih / (area - iw * ih);
}

SelectionOptions first(uint32_t count = 1) {
    SelectionOptions o;
    o.count = count;
    return o;
}

// A face near the top edge of a 400 x 300 image: the best-looking crop runs
// through it, a plainer one holds it, with room above it.
TEST(CropSelection, AFaceIsWholeOrNotThere) {
    const std::vector<FaceRect> face = {{180, 20, 239, 79}};
    const std::vector<CropRect> candidates = {
        crop(100, 40, 299, 239, 0.9),  // through the face
        crop(100, 0, 299, 199, 0.3),   // holds it, the top of the image above it
        crop(100, 10, 299, 209, 0.6),  // holds it with less room above
    };
    const auto picked = select_crops(candidates, {}, {1.0}, face, 400, 300, first());
    ASSERT_EQ(picked.size(), 1u);
    EXPECT_EQ(corners(picked[0]), corners(candidates[1]));
    // Without faces the blend decides.
    EXPECT_EQ(corners(select_crops(candidates, {}, {1.0}, {}, 400, 300, first())[0]),
              corners(candidates[0]));
    // Room above the face up to half its height (hair, a cap), even where a
    // crop with less looks better.
    const std::vector<FaceRect> lower = {{180, 100, 239, 159}};
    const std::vector<CropRect> rooms = {crop(100, 80, 299, 279, 0.9),
                                         crop(100, 70, 299, 269, 0.3)};
    EXPECT_EQ(corners(select_crops(rooms, {}, {1.0}, lower, 400, 300, first())[0]),
              corners(rooms[1]));
}

// Two faces that no 16:9 crop of 200 x 112 holds together: the larger one
// whole, and the smaller one not cut either.
TEST(CropSelection, FacesThatCannotAllFitKeepTheLargestUncut) {
    const std::vector<FaceRect> faces = {{10, 100, 40, 130}, {300, 100, 379, 179}};
    const std::vector<CropRect> candidates = {
        crop(0, 60, 199, 171, 0.9),    // the small face only
        crop(250, 80, 449, 191, 0.2),  // the large face only
        crop(150, 60, 349, 171, 0.8),  // through the large face
    };
    const auto picked = select_crops(candidates, {}, {16.0 / 9}, faces, 450, 250, first());
    EXPECT_EQ(corners(picked.at(0)), corners(candidates[1]));
}

// A close portrait at 16:9: no crop holds the face (200 x 260 in a 400 x
// 300 image). The best partial framing keeps the eyes and the mouth, not
// the best-looking crop beside the face nor a strip of hair.
TEST(CropSelection, AFaceTooLargeForTheRatioIsFramedByItsEyesAndMouth) {
    const std::vector<FaceRect> face = {{100, 20, 299, 279}};
    const std::vector<CropRect> candidates = {
        crop(304, 0, 399, 53, 0.9),   // beside the face
        crop(100, 0, 299, 111, 0.7),  // forehead and hair
        crop(0, 0, 399, 224, 0.5),    // loses the mouth
        crop(0, 75, 399, 299, 0.3),   // eyes to chin
    };
    const auto picked = select_crops(candidates, {}, {16.0 / 9}, face, 400, 300, first(4));
    ASSERT_EQ(picked.size(), 1u);  // the others lose what the first keeps of the face
    EXPECT_EQ(corners(picked[0]), corners(candidates[3]));
    // A face that some crop of the ratio holds is held whole, with its margin.
    const std::vector<FaceRect> small = {{100, 20, 159, 79}};
    EXPECT_EQ(corners(select_crops(candidates, {}, {16.0 / 9}, small, 400, 300, first())[0]),
              corners(candidates[2]));
}

// Alternatives keep what the first keeps of the subject (its sharp detail
// and contrast peaks), or are not offered: fewer than asked, not one that
// leaves the subject out.
TEST(CropSelection, AlternativesKeepTheSubjectOrAreNotOffered) {
    std::vector<CropRect> candidates = {crop(0, 0, 199, 199, 0.9), crop(300, 0, 499, 199, 0.9),
                                        crop(600, 0, 799, 199, 0.9)};
    const std::vector<double> sharpness = {0.9, 0.5, 0.86};  // the middle one: little
    const auto picked = select_crops(candidates, sharpness, {1.0}, {}, 800, 200, first(3));
    ASSERT_EQ(picked.size(), 2u);
    EXPECT_EQ(corners(picked[0]), corners(candidates[0]));
    EXPECT_EQ(corners(picked[1]), corners(candidates[2]));
    // Nor one that holds the sharp detail and loses the peaks (the blend
    // alone would still offer it).
    candidates[2].peakShare = 0.8 * candidates[0].peakShare;
    EXPECT_EQ(select_crops(candidates, sharpness, {1.0}, {}, 800, 200, first(3)).size(), 1u);
}

// A sharp subject flush with the right edge: the crop that holds it touches
// the frame, where the library's border measure counts the worst, and holds
// the picture's sharp detail.
TEST(CropSelection, ASubjectFlushWithTheEdgeIsKept) {
    std::vector<CropRect> candidates = {crop(0, 0, 299, 299), crop(300, 0, 599, 299),
                                        crop(150, 0, 449, 299)};
    candidates[0].borderScore = candidates[2].borderScore = 0.9;
    candidates[1].borderScore = 0.01;
    const std::vector<double> sharpness = {0.05, 0.95, 0.4};
    const auto picked = select_crops(candidates, sharpness, {1.0}, {}, 600, 300, first());
    EXPECT_EQ(corners(picked.at(0)), corners(candidates[1]));
}

// The best of each ratio first, ranked among themselves; then alternatives
// that differ visibly from every crop before them; per ratio on request.
TEST(CropSelection, OneCropPerRatioFirstThenDistinctAlternatives) {
    std::vector<CropRect> candidates = {
        crop(0, 0, 199, 199, 0.9),    crop(10, 0, 209, 199, 0.85),  // squares, near twins
        crop(600, 0, 799, 199, 0.88),                               // a square elsewhere
        crop(0, 0, 299, 199, 0.6),    crop(250, 0, 549, 199, 0.5),  // 3:2
    };
    for (CropRect& c : candidates) c.peakShare = 0.9;  // each keeps the subject
    const auto picked = select_crops(candidates, {}, {1.0, 1.5}, {}, 800, 200, first(3));
    ASSERT_EQ(picked.size(), 3u);
    EXPECT_EQ(corners(picked[0]), corners(candidates[0]));
    EXPECT_NEAR((picked[1].right - picked[1].left + 1.0) / (picked[1].bottom - picked[1].top + 1),
                1.5, 1e-9);
    EXPECT_EQ(corners(picked[2]), corners(candidates[2]));  // not the near twin
    for (size_t i = 0; i < picked.size(); ++i)
        for (size_t j = 0; j < i; ++j) EXPECT_LE(overlap(picked[i], picked[j]), 0.5) << i << j;
    // Asked for five: the distinct ones first as before, then one that
    // overlaps, as the overlap limit is relaxed rather than the count cut
    // (the fifth falls a whole feature's range below its ratio's best: not
    // offered).
    const auto all = select_crops(candidates, {}, {1.0, 1.5}, {}, 800, 200, first(5));
    ASSERT_EQ(all.size(), 4u);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(corners(all[i]), corners(picked[i])) << i;
    EXPECT_GT(std::max({overlap(all[3], all[0]), overlap(all[3], all[1]), overlap(all[3], all[2])}),
              0.5);

    SelectionOptions perRatio = first(2);
    perRatio.perAspect = true;
    const auto grouped = select_crops(candidates, {}, {1.5, 1.0}, {}, 800, 200, perRatio);
    ASSERT_EQ(grouped.size(), 4u);
    EXPECT_EQ(grouped[0].bottom - grouped[0].top + 1, 200);
    EXPECT_EQ(grouped[0].right - grouped[0].left + 1, 300);  // 3:2 first, as asked
    EXPECT_EQ(grouped[2].right - grouped[2].left + 1, 200);
    EXPECT_TRUE(select_crops({}, {}, {1.0}, {}, 800, 200, first()).empty());
}

// A small subject in a large empty frame: a ratio's first crop is one of
// the tightest that hold it with room, and the largest is an alternative.
TEST(CropSelection, ASmallSubjectIsFramedTightly) {
    const std::vector<CropRect> candidates = {
        crop(0, 0, 599, 599, 0.9),      // the largest, best in the blend
        crop(300, 300, 599, 599, 0.5),  // tight, without the subject
        crop(50, 50, 499, 499, 0.4),    // holds it, more than a scale step larger
        crop(100, 100, 399, 399, 0.3),  // the tightest that holds it
    };
    SelectionOptions options = first(2);
    options.subjects = {FaceRect{150, 150, 349, 349}};
    const auto picked = select_crops(candidates, {}, {1.0}, {}, 600, 600, options);
    ASSERT_EQ(picked.size(), 2u);
    EXPECT_EQ(corners(picked[0]), corners(candidates[3]));
    EXPECT_EQ(corners(picked[1]), corners(candidates[0]));
    // A subject only the largest holds, or none: the largest first.
    options.subjects = {FaceRect{0, 10, 599, 589}};
    EXPECT_EQ(corners(select_crops(candidates, {}, {1.0}, {}, 600, 600, options)[0]),
              corners(candidates[0]));
    options.subjects.clear();
    EXPECT_EQ(corners(select_crops(candidates, {}, {1.0}, {}, 600, 600, options)[0]),
              corners(candidates[0]));
}

TEST(CropSelection, FocalPointAndTheDetectorsBox) {
    // Faces by strength; the third, weaker than a quarter of the strongest
    // and far off in a corner, is left out.
    const std::vector<FaceRect> faces = {
        {10, 100, 40, 130}, {300, 100, 319, 119}, {380, 0, 399, 19}};
    const FocalPoint onFaces = face_focus(faces, {0.5, 0.3, 0.1}, 400, 200);
    EXPECT_NEAR(onFaces.x, (0.5 * 25.5 + 0.3 * 310) / 0.8 / 400, 1e-12);
    EXPECT_NEAR(onFaces.y, (0.5 * 115.5 + 0.3 * 110) / 0.8 / 200, 1e-12);
    // Where no face has detail, all count alike.
    EXPECT_NEAR(face_focus(faces, {0, 0, 0}, 400, 200).x, (25.5 + 310 + 390) / 3 / 400, 1e-12);

    // The library widens the detector's box 1.5 times about its centre.
    const FaceRect tight = tight_face({100, 60, 399, 359});  // 300 wide: the box was 200
    EXPECT_EQ(std::vector<int>({tight.left, tight.top, tight.right, tight.bottom}),
              std::vector<int>({150, 110, 349, 309}));
}

// Through the library: a sharp checkered disc flush with the right edge of
// a blurred ground of stripes, where the library's own ranking leaves it out.
DecodedImage disc_scene(int width, int height, cv::Point centre, int radius) {
    cv::Mat bgr(height, width, CV_8UC3);
    for (int y = 0; y < bgr.rows; ++y)
        for (int x = 0; x < bgr.cols; ++x)
            bgr.at<cv::Vec3b>(y, x) =
                (x / 30) % 2 ? cv::Vec3b(200, 180, 120) : cv::Vec3b(60, 90, 40);
    cv::GaussianBlur(bgr, bgr, cv::Size(0, 0), 8);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (cv::norm(cv::Point(x, y) - centre) <= radius)
                bgr.at<cv::Vec3b>(y, x) =
                    (x / 4 + y / 4) % 2 ? cv::Vec3b(40, 30, 220) : cv::Vec3b(250, 240, 40);
    return pixels_image(bgr.data, width, height, bgr.step, ChannelOrder::Bgr);
}

TEST(CropSelection, AGeneratedSubjectFlushWithTheEdgeStaysWhole) {
    DecodedImage decoded = disc_scene(480, 300, {439, 120}, 40);
    CropRequest request;
    request.aspects = {1.0, 9.0 / 16};
    request.count = 2;
    AnalysedImage image(std::move(decoded), request);
    const CropAnswer answer = image.suggest();
    ASSERT_EQ(answer.crops.size(), 2u);
    for (const CropRect& c : answer.crops) {
        EXPECT_EQ(c.right, 479);  // holds the disc out to the image's edge
        EXPECT_LE(c.left, 399);
        EXPECT_TRUE(c.top <= 80 && c.bottom >= 160) << c.top << " " << c.bottom;
    }
    // The focus is on the disc, and the same whatever is asked.
    EXPECT_NEAR(answer.focus.x, 439 / 480.0, 0.08);
    EXPECT_NEAR(answer.focus.y, 120 / 300.0, 0.15);
    CropRequest other;
    other.aspects = {16.0 / 9};
    other.count = 1;
    const CropAnswer again = image.suggest(other);
    EXPECT_EQ(again.focus.x, answer.focus.x);
    EXPECT_EQ(again.focus.y, answer.focus.y);
}

// Through the library: a small sharp disc on a blurred ground gets a crop
// tighter than the largest, the disc well inside it; a picture sharp all
// over keeps the largest crop.
TEST(CropSelection, FramingFollowsTheSubjectsSize) {
    CropRequest request;
    request.aspects = {1.0};
    request.count = 1;
    const CropRect small =
        AnalysedImage(disc_scene(640, 427, {400, 200}, 30), request).suggest().crops.at(0);
    EXPECT_LE(small.right - small.left + 1, 300);  // at most 0.7 of the largest
    EXPECT_TRUE(small.left <= 400 - 40 && small.right >= 400 + 40 && small.top <= 200 - 40 &&
                small.bottom >= 200 + 40)
        << small.left << "," << small.top << " " << small.right << "," << small.bottom;

    cv::Mat busy(427, 640, CV_8UC3);
    cv::randu(busy, cv::Scalar::all(0), cv::Scalar::all(255));
    const CropRect whole =
        AnalysedImage(pixels_image(busy.data, 640, 427, busy.step, ChannelOrder::Bgr), request)
            .suggest()
            .crops.at(0);
    EXPECT_EQ(whole.bottom - whole.top + 1, 427);
}

}  // namespace
}  // namespace smartCrop::host
