// Every test binary that runs the vectorised code twice forces the portable
// paths for its whole run when SMARTCROP_TEST_PORTABLE is set (the build
// registers such runs); the variable is the tests', the library reads none.
#ifndef SMARTCROP_TESTS_PORTABLE_PATHS_H
#define SMARTCROP_TESTS_PORTABLE_PATHS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "kernels/cpu_features.h"

namespace smartCrop::testing {

inline bool portable_run() {
    const char* v = std::getenv("SMARTCROP_TEST_PORTABLE");
    return v != nullptr && std::strcmp(v, "1") == 0;
}

class PortablePaths : public ::testing::Environment {
public:
    void SetUp() override { kernels::force_portable_paths(portable_run()); }
};

// Registered once per binary, however many files include this.
inline const bool kPortablePathsRegistered =
    (::testing::AddGlobalTestEnvironment(new PortablePaths), true);

}  // namespace smartCrop::testing

#endif  // SMARTCROP_TESTS_PORTABLE_PATHS_H
