// Queries that face tests make through the public interface.
#ifndef SMARTCROP_TESTS_FACES_FACE_REQUESTS_H
#define SMARTCROP_TESTS_FACES_FACE_REQUESTS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <vector>

#include "SmartCrop.h"
#include "test_images.h"

namespace test {

// Runs `body` in a process of its own, the test binary started again for this
// test alone: the detector is built once per process, and a test that wants
// its own must not depend on what ran before it. Once per test.
inline void in_fresh_process(const std::function<void()>& body) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            body();
            std::exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

// One GetSuggestions asking for three suggestions; `out`, when given, gets them.
inline smartCrop::eErrorCode Suggest(smartCrop::ISmartCrop* crop, bool useFaces,
                                     std::vector<smartCrop::CropRect>* out = nullptr,
                                     double aspectRatio = 0.0) {
    smartCrop::SuggestionParams request;
    request.useFaces = useFaces;
    request.aspectRatio = aspectRatio;
    smartCrop::SelectionParams selection;
    selection.count = 3;
    smartCrop::eErrorCode code;
    std::vector<smartCrop::CropRect> answer = Suggestions(crop, request, selection, &code);
    if (out != nullptr) *out = std::move(answer);
    return code;
}

}  // namespace test

#endif  // SMARTCROP_TESTS_FACES_FACE_REQUESTS_H
