// Every public operation turns what is thrown inside into a code and a text.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "source/ErrorFunnel.h"

namespace {

using smartCrop::eErrorCode;
using smartCrop::RunFunnelled;

TEST(ErrorFunnel, SuccessEmptiesTheText) {
    std::string lastError = "stale";
    EXPECT_EQ(RunFunnelled(lastError, [] {}), smartCrop::eSuccess);
    EXPECT_EQ(lastError, "");
}

TEST(ErrorFunnel, ThrownCodeKeepsTheTextItsThrowerStored) {
    std::string lastError = "stale";
    EXPECT_EQ(
        RunFunnelled(lastError,
                     [&] { smartCrop::FailWith(lastError, "why", smartCrop::eInvalidRequest); }),
        smartCrop::eInvalidRequest);
    EXPECT_EQ(lastError, "why");
    EXPECT_EQ(RunFunnelled(lastError, [] { throw smartCrop::eNotInitialised; }),
              smartCrop::eNotInitialised);
    EXPECT_EQ(lastError, "");  // emptied at the start, nothing set since
}

TEST(ErrorFunnel, BadAllocGivesSixAndLeavesTheText) {
    std::string lastError = "stale";
    EXPECT_EQ(RunFunnelled(lastError, [] { throw std::bad_alloc(); }), smartCrop::eOutOfMemory);
    EXPECT_EQ(lastError, "");
    EXPECT_EQ(RunFunnelled(lastError,
                           [&] {
                               lastError = "half done";
                               throw std::bad_alloc();
                           }),
              smartCrop::eOutOfMemory);
    EXPECT_EQ(lastError, "half done");
}

TEST(ErrorFunnel, WeftyExceptionGivesItsCodeAndText) {
    std::string lastError;
    EXPECT_EQ(RunFunnelled(lastError,
                           [] {
                               throw Wefty::exception(smartCrop::eInvalidRequest,
                                                      "invalid Croprects start or end index", 141,
                                                      "source/RandomCropGenerator");
                           }),
              smartCrop::eInvalidRequest);
    EXPECT_EQ(lastError, "invalid Croprects start or end index");
}

TEST(ErrorFunnel, AnythingElseGivesOneWithNoText) {
    std::string lastError = "stale";
    EXPECT_EQ(RunFunnelled(lastError, [] { throw "RandomCropGenerator: error\n"; }),
              smartCrop::eUnexpected);
    EXPECT_EQ(lastError, "");
    EXPECT_EQ(RunFunnelled(lastError, [] { throw std::runtime_error("x"); }),
              smartCrop::eUnexpected);
    EXPECT_EQ(RunFunnelled(lastError, [] { throw 42; }), smartCrop::eUnexpected);
    EXPECT_EQ(lastError, "");
}

}  // namespace
