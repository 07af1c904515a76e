// Every public operation turns what is thrown inside into a code and a text.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "source/ErrorFunnel.h"

namespace {

using namespace smartCrop;

// (what the body does, the code, the text left behind) from a stale text.
TEST(ErrorFunnel, EachThrownKindGivesItsCodeAndText) {
    std::string lastError;
    const struct {
        std::function<void()> body;
        eErrorCode code;
        const char* text;
    } cases[] = {
        {[] {}, eSuccess, ""},
        {[&] { FailWith(lastError, "why", eInvalidRequest); }, eInvalidRequest, "why"},
        {[] { throw eNotInitialised; }, eNotInitialised, ""},  // emptied at the start
        {[] { throw std::bad_alloc(); }, eOutOfMemory, ""},
        {[&] {
             lastError = "half done";  // out of memory leaves what was written
             throw std::bad_alloc();
         },
         eOutOfMemory, "half done"},
        {[] {
             throw Wefty::exception(eInvalidRequest, "invalid Croprects start or end index", 141,
                                    "source/RandomCropGenerator");
         },
         eInvalidRequest, "invalid Croprects start or end index"},
        {[] { throw "RandomCropGenerator: error\n"; }, eUnexpected, ""},
        {[] { throw std::runtime_error("x"); }, eUnexpected, ""},
        {[] { throw 42; }, eUnexpected, ""},
    };
    for (const auto& c : cases) {
        lastError = "stale";
        EXPECT_EQ(RunFunnelled(lastError, c.body), c.code) << c.text;
        EXPECT_EQ(lastError, c.text);
    }
}

}  // namespace
