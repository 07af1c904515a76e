// The detector's configuration is checked for what it would make the
// detector do before the library sees it: each refusal names the file and
// what is wrong, and no configuration file can make the check itself slow.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "host/face_detector_setup.h"
#include "host/host_error.h"
#include "scratch_folder.h"

namespace smartCrop::host {
namespace {

std::string refusal(const test::ScratchFolder& dir, const std::string& text) {
    const std::string path = (dir / "ovex3").string();
    std::ofstream(path) << text;
    try {
        use_face_detector(path);
    } catch (const HostError& e) {
        const std::string message = e.what();
        const std::string prefix = "the face detector configuration " + path;
        return message.rfind(prefix, 0) == 0 ? message.substr(prefix.size()) : message;
    }
    return "";
}

TEST(FaceDetectorSetup, ConfigurationsThatWouldRunAwayAreRefused) {
    const test::ScratchFolder dir{"detector"};
    const std::string longName(5000, 'n');
    const std::pair<std::string, std::string> cases[] = {
        {"pnet 30000 0.6\n",
         " gives pnet a patch of 30000; a patch is a whole number of pixels from 8 to 256"},
        {"pnet 0 0.6\n",
         " gives pnet a patch of 0; a patch is a whole number of pixels from 8 to 256"},
        {"pnet 12.5 0.6\n",
         " gives pnet a patch of 12.5; a patch is a whole number of pixels from 8 to 256"},
        {"pnet 12 -1e30\n", " gives pnet a threshold of -1e+30; a threshold lies in [0, 1]"},
        {"pnet 12 0.1\n",
         " gives its scanning network pnet a threshold of 0.1; it must be at least 0.3, or every "
         "window reaches the others"},
        {"pnet 12 nan\n", " is damaged after \"pnet\""},
        {"pnet 12\n", " is damaged after \"pnet\""},
        {longName + " 12 0.6\n",
         " names a network of more than 4096 bytes: " + std::string(64, 'n') + "..."},
        {"# " + std::string(70000, 'c') + "\n",
         " is 70003 bytes; a configuration is a few lines, at most 65536 bytes"},
        {"pnet 12 0.6\n",
         " names pnet, but " + (dir / "pnet").string() + " is not a readable file"},
        {"# nothing\n", " lists 0 networks; a detector has 3 to 5"},
    };
    for (const auto& [text, message] : cases)
        EXPECT_EQ(refusal(dir, text), message) << text.substr(0, 40);
}

}  // namespace
}  // namespace smartCrop::host
