// Faces through the public interface. The detector is process-wide and built
// once, as in a host: each test runs in a fresh process of its own.
#include <gtest/gtest.h>

#include <filesystem>

#include "SmartCrop.h"
#include "face_requests.h"
#include "kernels/rect_geometry.h"
#include "scratch_folder.h"
#include "synthetic_detector.h"
#include "test_images.h"

namespace smartCrop {
namespace {

namespace fs = std::filesystem;

const cv::Rect kFace(60, 150, 90, 90);

struct FaceEngine {
    FaceEngine()
        : image(600, 400, [](int x, int y) {
              const bool face = kFace.contains(cv::Point(x, y));
              return face ? test::Rgb{255, 255, 255} : test::Rgb{10, 10, 10};
          }) {
        RectOfInterest far;  // a hard rectangle, so that the face is the only soft one
        far.left = 560;
        far.right = 590;
        far.top = 10;
        far.bottom = 30;
        far.kind = eRoiForbidden;
        RatioEntry aspects[] = {{1.0, true}, {1.5, true}};
        RatioEntry scales[] = {{0.4, true}, {0.6, true}, {0.8, true}};
        SmartCropParams p;
        p.aspectRatios = aspects;
        p.aspectRatioCount = 2;
        p.scaleRatios = scales;
        p.scaleRatioCount = 3;
        p.rectsOfInterest = &far;
        p.rectsOfInterestCount = 1;
        p.detectFaces = true;
        crop = CreateSmartCropObj(image.get(), &p);
    }
    ~FaceEngine() { crop->Release(); }
    eErrorCode Query(bool useFaces, std::vector<CropRect>* out = nullptr) {
        return test::Suggest(crop, useFaces, out);
    }
    std::vector<RectOfInterest> Rects() { return test::RectsOfInterest(crop); }
    test::Image image;
    ISmartCrop* crop;
};

TEST(FaceQueries, FacesCountOnceAndSteerTheSuggestions) {
    test::in_fresh_process([&] {
        const test::ScratchFolder dir("faceq");
        SetFaceDetectorConfigDir(test::write_detector(dir, 4).c_str());
        FaceEngine e;
        std::vector<CropRect> withFaces;
        ASSERT_EQ(e.Query(true, &withFaces), eSuccess);
        const std::vector<RectOfInterest> rects = e.Rects();
        ASSERT_EQ(rects.size(), 2u);
        EXPECT_EQ(rects[0].kind, eRoiForbidden);  // the host's rectangle first
        const RectOfInterest& face = rects[1];
        EXPECT_TRUE(face.isFace);
        EXPECT_EQ(face.kind, eRoiWanted);
        RectOfInterest square{kFace.x, kFace.x + kFace.width - 1, kFace.y,
                              kFace.y + kFace.height - 1};
        EXPECT_EQ(covered_fraction(face, square), 1.0f);  // enlarged around the face
        // The detector frames the square at about 1.5 times, the facade enlarges 1.5 times more.
        EXPECT_LT((face.right - face.left) * (face.bottom - face.top), 9 * kFace.area());
        // The suggestions now hold the face.
        ASSERT_FALSE(withFaces.empty());
        EXPECT_EQ(covered_fraction(withFaces[0], square), 1.0f);

        // A second query adds nothing; a query without faces ignores the face.
        ASSERT_EQ(e.Query(true), eSuccess);
        EXPECT_EQ(e.Rects().size(), 2u);
        for (const CropRect& r : test::AllCrops(e.crop)) ASSERT_EQ(r.roiScore, 1.0);

        // The path is read once: a later one changes nothing.
        SetFaceDetectorConfigDir((dir / "no-such-config").c_str());
        FaceEngine later;
        ASSERT_EQ(later.Query(true), eSuccess);
        EXPECT_EQ(later.Rects().size(), 2u);
    });
}

TEST(FaceQueries, AFailedDetectorAnswersOneAndIsTriedAgain) {
    test::in_fresh_process([&] {
        const test::ScratchFolder dir("facef");
        const std::string good = test::write_detector(dir, 4);
        std::ofstream(dir / "broken")
            << "missing.net 12 0.5\nrescore.net 24 0.5\nrescore.net 24 0.6\n";
        SetFaceDetectorConfigDir((dir / "broken").c_str());
        FaceEngine e;
        EXPECT_EQ(e.Query(true), eUnexpected);
        EXPECT_STREQ(e.crop->GetLastErrorText(), "SmartCrop: Error detecting faces");
        EXPECT_EQ(e.Rects().size(), 1u);
        EXPECT_EQ(e.Query(false), eSuccess);  // the object stays usable
        // The guard stays open: with a working configuration the next query finds the face.
        SetFaceDetectorConfigDir(good.c_str());
        EXPECT_EQ(e.Query(true), eSuccess);
        EXPECT_EQ(e.Rects().size(), 2u);
    });
}

}  // namespace
}  // namespace smartCrop
