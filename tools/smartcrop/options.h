// Command line of the smartcrop program.
#ifndef SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H
#define SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "SmartCrop.h"

namespace cli {

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Format { Table, Json };

struct Options {
    std::vector<double> aspects;  // empty: the built-in list
    std::vector<double> scales;
    double sizeWidth = 0, sizeHeight = 0;
    uint32_t count = 5;
    bool perAspect = false;
    uint32_t mode = 0;
    std::array<double, 6> weights = {1, 1, 1, 0, 0, 1};
    std::vector<smartCrop::RectOfInterest> rects;
    bool faces = false;
    std::string models;  // empty: the library's default
    Format format = Format::Table;
    bool formatGiven = false;
    std::string preview;
    std::string cropsDir;
    int jobs = 1;
    std::vector<std::string> images;
};

// Throws UsageError with a short reason.
Options parse(int argc, char** argv);
// "16:9", "4:3", "1", "1.5".
double parse_ratio(const std::string& text);
extern const char* const kUsage;

}  // namespace cli

#endif  // SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H
