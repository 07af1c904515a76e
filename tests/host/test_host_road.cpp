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

const std::string kPhoto =
    SMARTCROP_SOURCE_DIR "/tests/data/hopper_large.jpg";  // 2045 x 2399: odd sides, so the reduced
                                                          // decode does not halve exactly

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
         "60,0,1858,2398:6.12267 296,0,1894,2398:5.89237 0,0,2044,2044:5.63487 "
         "406,0,1754,2397:5.40047 0,0,2044,1533:3.56184 face 484,194,1696,1406 "
         "focus 0.5333,0.3337"},
        {"reduced", false, false, 1023,
         "30,0,1828,2398:6.13796 314,0,1912,2398:5.85759 0,162,2044,2206:5.87116 "
         "232,0,1580,2397:5.7774 0,828,2044,2361:4.96374 focus 0.4800,0.5068"},
        {"full size, faces", true, true, 2045,
         "215,0,2013,2398:5.96108 334,0,1932,2398:5.4307 0,0,2044,2044:5.29382 "
         "0,252,2044,1785:3.88306 377,0,1725,2398:5.01644 face 398,241,1974,1817 "
         "focus 0.5802,0.4291"},
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
        EXPECT_EQ(image.full_width(), 2045u);
        EXPECT_EQ(image.full_height(), 2399u);
        const CropAnswer answer = image.suggest();
        ASSERT_EQ(answer.crops.size(), 5u);
        for (const CropRect& c : answer.crops) {
            EXPECT_TRUE(c.left >= 0 && c.top >= 0 && c.right < 2045 && c.bottom < 2399) << r.name;
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
