// Command line of the smartcrop program: the host layer's request options
// and the program's own (output, files, threads).
#ifndef SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H
#define SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H

#include <stdexcept>
#include <string>
#include <vector>

#include "host/crop_request.h"
#include "host/decode_options.h"

namespace cli {

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Format { Table, Json, JsonLines };

struct Options {
    enum class Action { Run, Help, Version } action = Action::Run;
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

// Throws UsageError with a short reason; the request is checked whole.
Options parse(int argc, char** argv);
// The usage text, the request options' lines from the host layer's table.
std::string usage();

}  // namespace cli

#endif  // SMARTCROP_TOOLS_SMARTCROP_OPTIONS_H
