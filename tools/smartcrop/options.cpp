#include "options.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "host/image_encoding.h"

namespace cli {

const char* const kUsage =
    "usage: smartcrop [options] IMAGE...\n"
    "  --aspect R         aspect ratio, repeatable (16:9, 4:3, 1, 1.5); default 1:1 4:3 3:4 3:2 "
    "2:3 16:9 9:16\n"
    "  --scales LIST      comma-separated scales in (0, 1]; default 1,0.9,0.8,0.7,0.6,0.5\n"
    "  --size WxH         one exact crop size in pixels\n"
    "  --count N          suggestions (per aspect ratio with --per-aspect), 1 or more; default 5\n"
    "  --per-aspect       answer --count suggestions for each aspect ratio\n"
    "  --design-defaults  the library's own ranking as designed, not the host layer's\n"
    "                     (faces whole, the best crop of each ratio first, distinct alternatives)\n"
    "  --mode 0..3        the library's ranking by 0 blend; 1 aesthetic, 2 coverage, 3 border\n"
    "  --weights w0,...,w5  the library's ranking by this blend; default 1,1,1,0,0,1\n"
    "  --roi KIND:L,T,R,B rectangle of interest, repeatable; KIND "
    "wanted|required|unwanted|forbidden\n"
    "  --faces            let detected faces count\n"
    "  --models PATH      face detector configuration file; default the installed one\n"
    "  --format table|json  output format; default table on a terminal, json otherwise\n"
    "  --preview FILE     the image scaled down with the suggestions drawn (.jpg, .png, .webp)\n"
    "  --write-crops DIR  save each suggestion as DIR/NAME-RANK.EXT\n"
    "  --overwrite        replace files that already exist (never done otherwise)\n"
    "  --max-pixels N     refuse images of more pixels; default 100000000\n"
    "  --lenient          accept truncated or damaged image data (partial pictures)\n"
    "  -j N               images in parallel\n";

namespace {

double number(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v))
        throw UsageError("bad " + what + ": " + text);
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
    if (v != std::floor(v) || v < lo || v > hi) throw UsageError("bad " + what + ": " + text);
    return static_cast<uint64_t>(v);
}

smartCrop::RectOfInterest parse_rect(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) throw UsageError("bad --roi: " + text);
    const std::string kind = text.substr(0, colon);
    smartCrop::RectOfInterest r;
    if (kind == "wanted")
        r.kind = smartCrop::eRoiWanted;
    else if (kind == "required")
        r.kind = smartCrop::eRoiRequired;
    else if (kind == "unwanted")
        r.kind = smartCrop::eRoiUnwanted;
    else if (kind == "forbidden")
        r.kind = smartCrop::eRoiForbidden;
    else
        throw UsageError("bad --roi kind: " + kind);
    const std::vector<double> v = numbers(text.substr(colon + 1), "--roi");
    if (v.size() != 4) throw UsageError("--roi takes LEFT,TOP,RIGHT,BOTTOM: " + text);
    for (double x : v) {
        if (x != std::floor(x) || std::fabs(x) > 1e9) throw UsageError("bad --roi: " + text);
    }
    r.left = static_cast<int32_t>(v[0]);
    r.top = static_cast<int32_t>(v[1]);
    r.right = static_cast<int32_t>(v[2]);
    r.bottom = static_cast<int32_t>(v[3]);
    if (r.left > r.right || r.top > r.bottom)
        throw UsageError("--roi is empty or inverted: " + text);
    return r;
}

}  // namespace

double parse_ratio(const std::string& text) {
    const size_t colon = text.find(':');
    const double r = colon == std::string::npos
                         ? number(text, "aspect ratio")
                         : number(text.substr(0, colon), "aspect ratio") /
                               number(text.substr(colon + 1), "aspect ratio");
    if (!(r > 0) || !std::isfinite(r)) throw UsageError("bad aspect ratio: " + text);
    return r;
}

Options parse(int argc, char** argv) {
    Options o;
    smartCrop::host::CropRequest& r = o.request;
    bool aspectGiven = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError(arg + " needs a value");
            return argv[++i];
        };
        if (arg == "--aspect") {
            if (!aspectGiven) r.aspects.clear();
            aspectGiven = true;
            r.aspects.push_back(parse_ratio(value()));
        } else if (arg == "--scales") {
            r.scales = numbers(value(), "--scales");
            if (r.scales.empty()) throw UsageError("--scales needs at least one scale");
            for (double s : r.scales) {
                if (!(s > 0 && s <= 1)) throw UsageError("scales lie in (0, 1]");
            }
        } else if (arg == "--size") {
            const std::string v = value();
            const size_t x = v.find('x');
            if (x == std::string::npos) throw UsageError("--size takes WxH: " + v);
            r.width = static_cast<uint32_t>(whole(v.substr(0, x), "--size", 1, 1 << 30));
            r.height = static_cast<uint32_t>(whole(v.substr(x + 1), "--size", 1, 1 << 30));
        } else if (arg == "--count") {
            r.count = static_cast<uint32_t>(whole(value(), "--count", 1, 100000));
        } else if (arg == "--per-aspect") {
            r.perAspect = true;
        } else if (arg == "--design-defaults") {
            r.plain = true;
        } else if (arg == "--mode") {
            r.mode = static_cast<uint32_t>(whole(value(), "--mode", 0, 3));
        } else if (arg == "--weights") {
            const std::vector<double> w = numbers(value(), "--weights");
            if (w.size() != 6) throw UsageError("--weights takes six numbers");
            std::copy(w.begin(), w.end(), r.weights.begin());
        } else if (arg == "--roi") {
            r.rects.push_back(parse_rect(value()));
        } else if (arg == "--faces") {
            r.faces = true;
        } else if (arg == "--models") {
            o.models = value();
        } else if (arg == "--format") {
            const std::string f = value();
            if (f == "table")
                o.format = Format::Table;
            else if (f == "json")
                o.format = Format::Json;
            else
                throw UsageError("--format is table or json");
            o.formatGiven = true;
        } else if (arg == "--preview") {
            o.preview = value();
            if (smartCrop::host::format_for_name(o.preview) ==
                smartCrop::host::ImageFormat::Unknown)
                throw UsageError("--preview names a .jpg, .png or .webp file: " + o.preview);
        } else if (arg == "--write-crops") {
            o.cropsDir = value();
        } else if (arg == "--overwrite") {
            o.overwrite = true;
        } else if (arg == "--max-pixels") {
            o.decoding.maxPixels = whole(value(), "--max-pixels", 1, 1e15);
        } else if (arg == "--lenient") {
            o.decoding.lenient = true;
        } else if (arg == "-j") {
            o.jobs = static_cast<int>(whole(value(), "-j", 1, 256));
        } else if (arg == "-h" || arg == "--help") {
            throw UsageError("");
        } else if (arg.size() > 1 && arg[0] == '-') {
            throw UsageError("unknown option " + arg);
        } else {
            o.images.push_back(arg);
        }
    }
    if (o.images.empty()) throw UsageError("no image given");
    return o;
}

}  // namespace cli
