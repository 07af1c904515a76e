// The request options every surface takes: their text forms, the request
// they make, and the exact refusals.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/host_error.h"
#include "host/request_options.h"

namespace smartCrop::host {
namespace {

using Texts = std::vector<std::pair<std::string, std::string>>;

std::string refusal(const Texts& texts) {
    try {
        parse_request(texts);
    } catch (const RequestError& e) {
        return e.what();
    }
    return "";
}

TEST(RequestOptions, TextFormsMakeTheRequest) {
    const RequestSettings s = parse_request({{"aspect", "16:9"},
                                             {"aspect", "1.5"},
                                             {"scales", "1,0.75"},
                                             {"count", "3"},
                                             {"per-aspect", ""},
                                             {"faces", ""},
                                             {"roi", "forbidden:1,2,30,40"},
                                             {"design-defaults", ""},
                                             {"mode", "2"},
                                             {"weights", "1,0,1,0,0,2"},
                                             {"max-pixels", "1000"},
                                             {"lenient", ""}});
    const CropRequest& r = s.request;
    EXPECT_EQ(r.aspects,
              (std::vector<double>{16.0 / 9, 1.5}));  // the defaults replaced, not added to
    EXPECT_EQ(r.scales, (std::vector<double>{1.0, 0.75}));
    EXPECT_EQ(r.count, 3u);
    EXPECT_TRUE(r.perAspect && r.faces && r.designDefaults);
    EXPECT_EQ(r.mode, 2u);
    EXPECT_EQ(r.weights, (std::array<double, 6>{1, 0, 1, 0, 0, 2}));
    ASSERT_EQ(r.rects.size(), 1u);
    EXPECT_EQ(r.rects[0].kind, eRoiForbidden);
    EXPECT_EQ(
        std::vector<int>({r.rects[0].left, r.rects[0].top, r.rects[0].right, r.rects[0].bottom}),
        std::vector<int>({1, 2, 30, 40}));
    EXPECT_EQ(s.decoding.maxPixels, 1000u);
    EXPECT_TRUE(s.decoding.lenient);
    const CropRequest size = parse_request({{"size", "64x48"}}).request;
    EXPECT_EQ(size.width, 64u);
    EXPECT_EQ(size.height, 48u);
    EXPECT_EQ(parse_request({}).request.aspects.size(), 7u);
}

TEST(RequestOptions, RefusalsNameWhatIsWrong) {
    const std::pair<Texts, std::string> cases[] = {
        {{{"aspect", "0:1"}}, "bad aspect ratio: 0:1"},
        {{{"aspect", "16:x"}}, "bad aspect ratio: 16:x"},
        {{{"scales", "1,1.5"}}, "scales lie in (0, 1]"},
        {{{"scales", "0.5,a"}}, "bad scales: a"},
        {{{"size", "64"}}, "a size is WxH, not 64"},
        {{{"size", "0x10"}}, "bad size: 0"},
        {{{"count", "0"}}, "at least one suggestion must be asked for"},
        {{{"count", "2.5"}}, "bad count: 2.5"},
        {{{"mode", "1"}}, "a mode and weights rank the library's own way: ask for design-defaults"},
        {{{"weights", "1,1,1,0,0,2"}},
         "a mode and weights rank the library's own way: ask for design-defaults"},
        {{{"design-defaults", ""}, {"mode", "4"}}, "the mode is 0, 1, 2 or 3"},
        {{{"design-defaults", ""}, {"weights", "1,2"}}, "the weights are six numbers, not 1,2"},
        {{{"roi", "kept:1,2,3,4"}},
         "a rectangle's kind is one of wanted, required, unwanted, forbidden, not kept"},
        {{{"roi", "wanted:1,2,3"}},
         "a rectangle of interest is KIND:LEFT,TOP,RIGHT,BOTTOM, not wanted:1,2,3"},
        {{{"roi", "wanted:5,2,3,4"}},
         "a rectangle of interest is empty, inverted or of an unknown kind"},
        {{{"max-pixels", "0"}}, "bad max-pixels: 0"},
        {{{"colour", "red"}}, "no option is called colour"},
    };
    for (const auto& [texts, message] : cases) EXPECT_EQ(refusal(texts), message) << texts[0].first;
}

// Every option is in the help, with its value's form.
TEST(RequestOptions, HelpListsEveryOption) {
    const std::string help = request_options_help();
    for (const RequestOption& o : request_options()) {
        const std::string line =
            std::string("--") + o.name + (o.value ? std::string(" ") + o.value : "");
        EXPECT_NE(help.find(line), std::string::npos) << o.name;
        EXPECT_EQ(find_request_option(o.name), &o);
    }
    EXPECT_EQ(find_request_option("plain"), nullptr);
}

}  // namespace
}  // namespace smartCrop::host
