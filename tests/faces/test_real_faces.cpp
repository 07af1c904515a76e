// The shipped detector on real photographs, through the public interface.
// The detector is process-wide and built once, as in a host: each test runs
// in a fresh process of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include "SmartCrop.h"
#include "face_requests.h"
#include "kernels/library_contract.h"
#include "kernels/rect_geometry.h"
#include "test_photographs.h"

namespace smartCrop {
namespace {

struct Photo {
    explicit Photo(const char* name) : image(test::Photograph(name)) {
        RatioEntry scales[] = {{1.0, true}, {0.9, true}, {0.8, true}, {0.7, true}, {0.6, true}};
        RatioEntry aspects[] = {{1.0, true}, {9.0 / 16.0, true}};
        SmartCropParams p;
        p.aspectRatios = aspects;
        p.aspectRatioCount = 2;
        p.scaleRatios = scales;
        p.scaleRatioCount = 5;
        p.detectFaces = true;
        crop = CreateSmartCropObj(image->get(), &p);
    }
    ~Photo() {
        if (crop != nullptr) crop->Release();
    }
    CropRect Best(double aspectRatio) {
        std::vector<CropRect> out;
        EXPECT_EQ(test::Suggest(crop, true, &out, aspectRatio), eSuccess);
        return out.empty() ? CropRect{} : out[0];
    }
    std::vector<RectOfInterest> Faces() {
        std::vector<RectOfInterest> faces;
        for (const RectOfInterest& r : test::RectsOfInterest(crop))
            if (r.isFace) faces.push_back(r);
        return faces;
    }
    std::unique_ptr<test::Image> image;
    ISmartCrop* crop = nullptr;
};

TEST(RealFaces, OnePortraitOneFaceAndTheSuggestionsHoldIt) {
    test::in_fresh_process([&] {
        SetFaceDetectorConfigDir(SMARTCROP_SOURCE_DIR "/data/ovex3");
        Photo hopper("grace_hopper.jpg");  // 341 x 400
        ASSERT_NE(hopper.crop, nullptr);
        const CropRect square = hopper.Best(1.0);
        const CropRect tall = hopper.Best(9.0 / 16.0);
        const std::vector<RectOfInterest> faces = hopper.Faces();
        ASSERT_EQ(faces.size(), 1u);
        // Eyes, nose and mouth lie in this rectangle (measured on the photograph).
        const RectOfInterest features{140, 215, 115, 195};
        EXPECT_EQ(covered_fraction(faces[0], features), 1.0f);
        EXPECT_LT(faces[0].right - faces[0].left, 300);  // a face, widened; not the photograph
        EXPECT_EQ(faces[0].kind, eRoiWanted);
        // The face as the detector boxed it, before the widening: the crops hold it.
        const RectOfInterest face = contract::tight_face(faces[0]);
        EXPECT_EQ(covered_fraction(face, features), 1.0f);
        for (const CropRect& c : {square, tall}) {
            EXPECT_EQ(covered_fraction(c, face), 1.0f)
                << c.left << "," << c.top << " " << c.right << "," << c.bottom;
        }
        EXPECT_NEAR(static_cast<double>(tall.right - tall.left + 1) / (tall.bottom - tall.top + 1),
                    9.0 / 16.0, 0.02);
    });
}

TEST(RealFaces, NoFaceWithoutPeopleFromTheDefaultPathInTheRepository) {
    test::in_fresh_process([&] {
        char* previous = getcwd(nullptr, 0);
        ASSERT_EQ(chdir(SMARTCROP_SOURCE_DIR), 0);  // where "data/ovex3" is found
        {
            Photo rocket("rocket.jpg");
            Photo hopper("grace_hopper.jpg");
            ASSERT_NE(rocket.crop, nullptr);
            rocket.Best(1.0);
            hopper.Best(1.0);
            EXPECT_TRUE(rocket.Faces().empty());
            EXPECT_EQ(hopper.Faces().size(), 1u);  // the default path did load the detector
        }
        EXPECT_EQ(chdir(previous), 0);
        free(previous);
    });
}

}  // namespace
}  // namespace smartCrop
