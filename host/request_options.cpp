#include "host/request_options.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "host/host_error.h"

namespace smartCrop::host {

namespace {

double number(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v))
        throw RequestError("bad " + what + ": " + text);
    return v;
}

std::vector<double> numbers(const std::string& text, const std::string& what) {
    std::vector<double> out;
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) out.push_back(number(item, what));
    return out;
}

uint64_t whole(const std::string& text, const std::string& what, double lo, double hi) {
    const double v = number(text, what);
    if (v != std::floor(v) || v < lo || v > hi) throw RequestError("bad " + what + ": " + text);
    return static_cast<uint64_t>(v);
}

RectOfInterest parse_rect(const std::string& text) {
    static const char* const kinds[] = {"wanted", "required", "unwanted", "forbidden"};
    const size_t colon = text.find(':');
    if (colon == std::string::npos)
        throw RequestError("a rectangle of interest is KIND:LEFT,TOP,RIGHT,BOTTOM, not " + text);
    RectOfInterest r;
    r.kind = 4;
    for (uint32_t k = 0; k < 4; ++k)
        if (text.compare(0, colon, kinds[k]) == 0) r.kind = k;
    if (r.kind == 4)
        throw RequestError(
            "a rectangle's kind is one of wanted, required, unwanted, forbidden, not " +
            text.substr(0, colon));
    const std::vector<double> v = numbers(text.substr(colon + 1), "rectangle of interest");
    if (v.size() != 4)
        throw RequestError("a rectangle of interest is KIND:LEFT,TOP,RIGHT,BOTTOM, not " + text);
    for (double x : v) {
        if (x != std::floor(x) || std::fabs(x) > 1e9)
            throw RequestError("bad rectangle of interest: " + text);
    }
    r.left = static_cast<int32_t>(v[0]);
    r.top = static_cast<int32_t>(v[1]);
    r.right = static_cast<int32_t>(v[2]);
    r.bottom = static_cast<int32_t>(v[3]);
    return r;
}

using S = RequestSettings;

// The defaults named in the help are CropRequest's and DecodeOptions'.
const std::vector<RequestOption> kOptions = {
    {"aspect", "R", true,
     "aspect ratio, repeatable (16:9, 4:3, 1, 1.5); default 1:1 4:3 3:4 3:2 2:3 16:9 9:16",
     [](S& s, const std::string& t) {
         if (!s.aspectsGiven) s.request.aspects.clear();
         s.aspectsGiven = true;
         s.request.aspects.push_back(parse_ratio(t));
     }},
    {"scales", "LIST", false, "comma-separated scales in (0, 1]; default 1,0.9,0.8,0.7,0.6,0.5",
     [](S& s, const std::string& t) { s.request.scales = numbers(t, "scales"); }},
    {"size", "WxH", false, "one exact crop size in pixels",
     [](S& s, const std::string& t) {
         const size_t x = t.find('x');
         if (x == std::string::npos) throw RequestError("a size is WxH, not " + t);
         s.request.width = static_cast<uint32_t>(whole(t.substr(0, x), "size", 1, 1 << 30));
         s.request.height = static_cast<uint32_t>(whole(t.substr(x + 1), "size", 1, 1 << 30));
     }},
    {"count", "N", false, "suggestions (per aspect ratio with --per-aspect), 1 or more; default 5",
     [](S& s, const std::string& t) {
         s.request.count = static_cast<uint32_t>(whole(t, "count", 0, 100000));
     }},
    {"per-aspect", nullptr, false, "answer --count suggestions for each aspect ratio",
     [](S& s, const std::string&) { s.request.perAspect = true; }},
    {"faces", nullptr, false, "let detected faces count (and report them)",
     [](S& s, const std::string&) { s.request.faces = true; }},
    {"roi", "KIND:L,T,R,B", true,
     "rectangle of interest, repeatable; KIND wanted, required, unwanted or forbidden",
     [](S& s, const std::string& t) { s.request.rects.push_back(parse_rect(t)); }},
    {"design-defaults", nullptr, false,
     "the library's own ranking as designed, not the host layer's (faces whole, the best crop "
     "of each ratio first, distinct alternatives)",
     [](S& s, const std::string&) { s.request.designDefaults = true; }},
    {"mode", "0..3", false,
     "with --design-defaults: rank by 0 the blend; 1 aesthetic, 2 coverage, 3 border only",
     [](S& s, const std::string& t) {
         s.request.mode = static_cast<uint32_t>(whole(t, "mode", 0, 1e9));
     }},
    {"weights", "w0,...,w5", false,
     "with --design-defaults: the blend of aesthetic, coverage, border, peak, centre and "
     "rectangles of interest; default 1,1,1,0,0,1",
     [](S& s, const std::string& t) {
         const std::vector<double> w = numbers(t, "weights");
         if (w.size() != 6) throw RequestError("the weights are six numbers, not " + t);
         std::copy(w.begin(), w.end(), s.request.weights.begin());
     }},
    {"max-pixels", "N", false,
     "refuse images of more pixels, read from the file's header; default 100000000",
     [](S& s, const std::string& t) { s.decoding.maxPixels = whole(t, "max-pixels", 1, 1e15); }},
    {"lenient", nullptr, false, "accept truncated or damaged image data (partial pictures)",
     [](S& s, const std::string&) { s.decoding.lenient = true; }},
};

}  // namespace

double parse_ratio(const std::string& text) {
    const size_t colon = text.find(':');
    double r = 0;
    try {
        r = colon == std::string::npos ? number(text, "aspect ratio")
                                       : number(text.substr(0, colon), "aspect ratio") /
                                             number(text.substr(colon + 1), "aspect ratio");
    } catch (const RequestError&) {
        throw RequestError("bad aspect ratio: " + text);
    }
    if (!(r > 0) || !std::isfinite(r)) throw RequestError("bad aspect ratio: " + text);
    return r;
}

const std::vector<RequestOption>& request_options() {
    return kOptions;
}

const RequestOption* find_request_option(const std::string& name) {
    for (const RequestOption& o : kOptions)
        if (name == o.name) return &o;
    return nullptr;
}

RequestSettings parse_request(const std::vector<std::pair<std::string, std::string>>& options) {
    RequestSettings settings;
    for (const auto& [name, text] : options) {
        const RequestOption* option = find_request_option(name);
        if (option == nullptr) throw RequestError("no option is called " + name);
        option->apply(settings, text);
    }
    check_request(settings.request);
    return settings;
}

std::string request_options_help() {
    std::string out;
    for (const RequestOption& o : kOptions) {
        std::string left = std::string("  --") + o.name;
        if (o.value != nullptr) left += std::string(" ") + o.value;
        left.resize(std::max<size_t>(left.size() + 1, 21), ' ');
        out += left + o.help + "\n";
    }
    return out;
}

}  // namespace smartCrop::host
