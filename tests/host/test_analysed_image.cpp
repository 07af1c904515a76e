// One analysis asked many queries: each answers as it would on a fresh
// analysis, however many came before, and what no query could answer is
// refused with the reason.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/analysed_image.h"
#include "host/host_error.h"

namespace smartCrop::host {
namespace {

DecodedImage scene() {
    const uint32_t W = 360, H = 240;
    std::vector<uint8_t> rgb(W * H * 3);
    for (uint32_t y = 0; y < H; ++y)
        for (uint32_t x = 0; x < W; ++x) {
            uint8_t* p = &rgb[(y * W + x) * 3];
            const bool disc = (x - 250) * (x - 250) + (y - 110) * (y - 110) < 45 * 45;
            p[0] = disc ? 210 : static_cast<uint8_t>(60 + y / 3);
            p[1] = disc ? 90 : static_cast<uint8_t>(100 + x / 4);
            p[2] = disc ? 40 : 170;
        }
    return pixels_image(rgb.data(), W, H, W * 3, ChannelOrder::Rgb);
}

std::vector<int> boxes(const CropAnswer& a) {
    std::vector<int> out;
    for (const CropRect& c : a.crops) out.insert(out.end(), {c.left, c.top, c.right, c.bottom});
    return out;
}

CropRequest sized(uint32_t w, uint32_t h) {
    CropRequest r;
    r.width = w;
    r.height = h;
    return r;
}

// Exact sizes leave entries in the library's lists (the host analyses again
// when they pile up); a hundred of them must not change the answers after.
TEST(AnalysedImage, AnswersDoNotDependOnTheQueriesBefore) {
    const std::vector<int> fresh = boxes(AnalysedImage(scene(), {}).suggest());
    const std::vector<int> freshSize = boxes(AnalysedImage(scene(), sized(120, 80)).suggest());
    AnalysedImage used(scene(), {});
    EXPECT_EQ(boxes(used.suggest(sized(120, 80))), freshSize);
    EXPECT_EQ(boxes(used.suggest(sized(120, 80))), freshSize);  // the same size twice
    for (uint32_t k = 0; k < 100; ++k) used.suggest(sized(60 + k, 50 + k % 7));
    EXPECT_EQ(boxes(used.suggest({})), fresh);
    EXPECT_EQ(boxes(used.suggest(sized(120, 80))), freshSize);
}

TEST(AnalysedImage, RequestsNoQueryCouldAnswerAreRefused) {
    AnalysedImage image(scene(), {});
    CropRequest many;
    many.aspects.assign(65, 1.0);
    CropRequest big = sized(400, 100);
    CropRequest required;
    required.rects.resize(1);
    required.rects[0].kind = eRoiRequired;
    required.rects[0].left = 300;
    required.rects[0].right = 400;
    const std::pair<CropRequest, std::string> cases[] = {
        {many, "at most 64 aspect ratios and as many scales may be asked for at once"},
        {big, "the crop size 400 x 100 is larger than the image (360 x 240)"},
        {required, "the required rectangle 300,0,400,0 does not lie inside the image (360 x 240)"},
    };
    for (const auto& [request, message] : cases) {
        try {
            image.suggest(request);
            ADD_FAILURE() << message;
        } catch (const RequestError& e) {
            EXPECT_EQ(std::string(e.what()), message);
        }
    }
    EXPECT_EQ(image.suggest({}).crops.size(), 5u);  // and the analysis still answers
}

}  // namespace
}  // namespace smartCrop::host
