// Command line of the smartcrop program.
#ifndef SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H
#define SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H

#include <stdexcept>
#include <string>
#include <vector>

#include "host/crop_request.h"
#include "host/image_decoding.h"

namespace cli {

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Format { Table, Json };

struct Options {
    smartCrop::host::CropRequest request;
    smartCrop::host::DecodeOptions decoding;
    std::string models;  // empty: the installed detector
    Format format = Format::Table;
    bool formatGiven = false;
    std::string preview;
    std::string cropsDir;
    bool overwrite = false;
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
