#include <gtest/gtest.h>

#include "portable_paths.h"

namespace smartCrop {
namespace {

// The portable run must really be portable, and the other run must reach the
// processor's widest paths, or "both ways" tests one way twice.
TEST(PortablePaths, RunTakesTheIntendedPath) {
    if (testing::portable_run()) {
        EXPECT_EQ(kernels::vector_level(), kernels::VectorLevel::Portable);
    } else {
#if defined(__x86_64__)
        EXPECT_GE(kernels::vector_level(), kernels::VectorLevel::Sse2);
#endif
    }
    kernels::force_portable_paths(true);
    EXPECT_EQ(kernels::vector_level(), kernels::VectorLevel::Portable);
    kernels::force_portable_paths(testing::portable_run());
}

}  // namespace
}  // namespace smartCrop
