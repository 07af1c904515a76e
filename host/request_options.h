// The options of a crop request, declared once: each one's name, the form
// of its value and its help, and how its text sets the request. The
// program's command line, the Python package and the Dask command all take
// their request options from this table, so an option added here appears on
// every surface (a test holds them to it).
#ifndef SMARTCROP_HOST_REQUEST_OPTIONS_H
#define SMARTCROP_HOST_REQUEST_OPTIONS_H

#include <string>
#include <utility>
#include <vector>

#include "host/crop_request.h"
#include "host/decode_options.h"

namespace smartCrop::host {

// What a set of options asks for: the request, and the decoder's limits.
struct RequestSettings {
    CropRequest request;
    DecodeOptions decoding;
    bool aspectsGiven = false;  // the first aspect given replaces the default list
};

struct RequestOption {
    const char* name;   // "per-aspect": the program's --per-aspect, Python's per_aspect
    const char* value;  // the value's form for the help ("R", "WxH"), null for a switch
    bool repeatable;    // each use adds one (aspect ratios, rectangles)
    const char* help;
    // Sets `settings` from the value's text ("" for a switch); throws
    // RequestError naming what is wrong.
    void (*apply)(RequestSettings& settings, const std::string& text);
};

const std::vector<RequestOption>& request_options();
// Null for a name no option has.
const RequestOption* find_request_option(const std::string& name);

// Settings from (name, text) pairs in order, checked as a whole (see
// check_request); throws RequestError for an unknown name or a bad value.
RequestSettings parse_request(const std::vector<std::pair<std::string, std::string>>& options);

// The help of every option, one aligned line each, names as "--name".
std::string request_options_help();

// The text forms, for callers that read one alone: "16:9", "4:3", "1", "1.5".
double parse_ratio(const std::string& text);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_REQUEST_OPTIONS_H
