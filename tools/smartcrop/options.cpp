#include "options.h"

#include <cmath>
#include <cstdlib>
#include <utility>

#include "host/host_error.h"
#include "host/image_encoding.h"
#include "host/request_options.h"

namespace cli {

std::string usage() {
    return "usage: smartcrop [options] IMAGE...\n" + smartCrop::host::request_options_help() +
           "  --models PATH      face detector configuration file; default the installed one\n"
           "  --format table|json|jsonl  output format; default table on a terminal, json "
           "otherwise;\n"
           "                     jsonl: one line per image, written as it is done, in order\n"
           "  --preview FILE     the image scaled down with the suggestions drawn (.jpg, .png, "
           ".webp)\n"
           "  --write-crops DIR  save each suggestion as DIR/NAME-RANK.EXT\n"
           "  --overwrite        replace files that already exist (never done otherwise)\n"
           "  -j N               images in parallel\n"
           "  --                 what follows are images, whatever their names\n"
           "  -h, --help         this text; --version the program's version\n";
}

namespace {

int whole_jobs(const std::string& text) {
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v < 1 || v > 256) throw UsageError("bad -j: " + text);
    return static_cast<int>(v);
}

}  // namespace

Options parse(int argc, char** argv) {
    Options o;
    std::vector<std::pair<std::string, std::string>> requested;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnded) {
            o.images.push_back(arg);
            continue;
        }
        if (arg == "--") {  // what follows are images, whatever their names
            optionsEnded = true;
            continue;
        }
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw UsageError(arg + " needs a value");
            return argv[++i];
        };
        const smartCrop::host::RequestOption* option =
            arg.rfind("--", 0) == 0 ? smartCrop::host::find_request_option(arg.substr(2)) : nullptr;
        if (option != nullptr) {
            requested.emplace_back(option->name, option->value != nullptr ? value() : "");
        } else if (arg == "--models") {
            o.models = value();
        } else if (arg == "--format") {
            const std::string f = value();
            if (f == "table")
                o.format = Format::Table;
            else if (f == "json")
                o.format = Format::Json;
            else if (f == "jsonl")
                o.format = Format::JsonLines;
            else
                throw UsageError("--format is table, json or jsonl");
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
        } else if (arg == "-j") {
            o.jobs = whole_jobs(value());
        } else if (arg == "-h" || arg == "--help") {
            o.action = Options::Action::Help;
            return o;
        } else if (arg == "--version") {
            o.action = Options::Action::Version;
            return o;
        } else if (arg.size() > 1 && arg[0] == '-') {
            throw UsageError("unknown option " + arg);
        } else {
            o.images.push_back(arg);
        }
    }
    try {
        smartCrop::host::RequestSettings settings = smartCrop::host::parse_request(requested);
        o.request = std::move(settings.request);
        o.decoding = settings.decoding;
    } catch (const smartCrop::host::RequestError& e) {
        throw UsageError(e.what());
    }
    if (o.images.empty()) throw UsageError("no image given");
    return o;
}

}  // namespace cli
