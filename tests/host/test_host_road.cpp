// The road most photographs take: a JPEG over 2,000 pixels opened through
// the host layer, decoded reduced, analysed, answered in full-resolution
// pixels with faces and a focal point. Pinned, together with the answer of
// the same file decoded at full size, which differs: both roads ship.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "host/face_detector_setup.h"
#include "host/photograph.h"
#include "portable_paths.h"

namespace smartCrop::host {
namespace {

const std::string kPhoto = SMARTCROP_SOURCE_DIR "/tests/data/hopper_large.jpg";  // 2046 x 2400

// The answer as one line: each crop's rectangle and score, the faces, the
// focus; scores to six digits (the ranking, not the last bit, is the host's).
std::string summary(const CropAnswer& a) {
    std::string s;
    char buf[96];
    for (const CropRect& c : a.crops) {
        std::snprintf(buf, sizeof buf, "%d,%d,%d,%d:%.6g ", c.left, c.top, c.right, c.bottom,
                      c.score);
        s += buf;
    }
    for (const FaceRect& f : a.faces) {
        std::snprintf(buf, sizeof buf, "face %d,%d,%d,%d ", f.left, f.top, f.right, f.bottom);
        s += buf;
    }
    std::snprintf(buf, sizeof buf, "focus %.4f,%.4f", a.focus.x, a.focus.y);
    return s + buf;
}

struct Road {
    const char* name;
    bool faces, fullResolution;
    uint32_t decodedWidth;
    const char* answer;
};

TEST(HostRoad, LargeJpegReducedAndFullPinned) {
    use_face_detector(SMARTCROP_SOURCE_DIR "/data/ovex3");
    const Road roads[] = {
        {"reduced, faces", true, false, 1023,
         "224,0,2023,2399:5.94722 0,146,2045,2191:5.87311 334,0,1933,2399:5.43052 "
         "0,252,2045,1786:3.87996 552,238,1767,2399:4.39977 face 398,240,1975,1819 "
         "focus 0.5802,0.4292"},
        {"reduced", false, false, 1023,
         "30,0,1829,2399:6.13672 222,32,1501,1951:5.1785 410,700,2045,2335:4.91877 "
         "690,0,1905,2161:4.85468 110,1160,1541,2233:4.17522 focus 0.4720,0.5005"},
        {"full size, faces", true, true, 2046,
         "215,0,2014,2399:5.9591 0,147,2045,2192:5.87002 334,0,1933,2399:5.42953 "
         "0,252,2045,1786:3.87721 519,240,1733,2399:4.42981 face 398,241,1975,1818 "
         "focus 0.5802,0.4292"},
    };
    std::string answers[3];
    for (size_t k = 0; k < 3; ++k) {
        const Road& r = roads[k];
        CropRequest request;
        request.faces = r.faces;
        OpenOptions options;
        options.fullResolution = r.fullResolution;
        const AnalysedImage image = open_photograph(kPhoto, request, options);
        EXPECT_EQ(image.width(), r.decodedWidth) << r.name;
        EXPECT_EQ(image.full_width(), 2046u);
        EXPECT_EQ(image.full_height(), 2400u);
        const CropAnswer answer = image.suggest();
        ASSERT_EQ(answer.crops.size(), 5u);
        for (const CropRect& c : answer.crops) {
            EXPECT_TRUE(c.left >= 0 && c.top >= 0 && c.right < 2046 && c.bottom < 2400) << r.name;
        }
        answers[k] = summary(answer);
        EXPECT_EQ(answers[k], r.answer) << r.name;
    }
    // The two decodes see different pixels, and answer differently.
    EXPECT_NE(answers[0], answers[2]);
}

// The host keeps its own copy of the shared kernels: its portable run must
// reach it, or the sharpness map's portable path goes untested.
TEST(PortablePaths, HostCopyTakesTheIntendedPath) {
    EXPECT_EQ(kernels::vector_level() == kernels::VectorLevel::Portable,
              smartCrop::testing::portable_run());
}

}  // namespace
}  // namespace smartCrop::host
