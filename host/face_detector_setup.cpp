#include "host/face_detector_setup.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "SmartCrop.h"
#include "host/decoded_image.h"
#include "host/host_error.h"

namespace smartCrop::host {

namespace fs = std::filesystem;

namespace {

// The library's resolution of a listed name, repeated here because a host
// sees only the public interface.
fs::path resolve(const std::string& token, const std::string& folder) {
    if (std::ifstream(token, std::ios::binary)) return token;
    const size_t slash = token.find_last_of('/');
    std::string stem = slash == std::string::npos ? token : token.substr(slash + 1);
    const size_t dot = stem.find_last_of('.');
    if (dot != std::string::npos) stem = stem.substr(0, dot);
    return folder + "/" + stem;
}

bool inside(const fs::path& file, const fs::path& folder) {
    const fs::path relative = file.lexically_relative(folder);
    return !relative.empty() && *relative.begin() != ".." && relative.is_relative();
}

void probe_detection() {
    // A strip: the library scales any image to 1024 pixels on its long side
    // to look for faces, so a square would cost a full-size scan; a strip
    // of 16:1 scans a sixteenth of that and still loads every network.
    const uint32_t width = 128, height = 8;
    std::vector<uint8_t> pixels(width * height * 4, 128);
    const uint64_t offsets[4] = {0, 1, 2, 3};
    Counted<IImage> image(CreateImageObj(height, width, 4, offsets, pixels.data()));
    if (!image) throw HostError("out of memory");
    SmartCropParams params;
    params.detectFaces = true;
    Counted<ISmartCrop> crop(CreateSmartCropObj(image.get(), &params));
    if (!crop) throw HostError("out of memory");
    SelectionParams selection;
    SuggestionParams query;
    query.useFaces = true;
    ICropRects* out = nullptr;
    if (crop->GetSuggestions(&out, &selection, &query) != eSuccess)
        throw HostError(std::string("the networks do not load: ") + crop->GetLastErrorText());
    out->Release();
}

std::string number(double v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

}  // namespace

std::string installed_face_detector(const std::string& executable,
                                    const std::string& relativeToBinary) {
    std::error_code ec;
    const fs::path config = fs::path(executable).parent_path() / relativeToBinary;
    return fs::is_regular_file(config, ec) ? config.lexically_normal().string() : "";
}

namespace {

// What a configuration may make the detector do. Every network's patch is
// a few dozen pixels (the shipped ones 12, 24 and 48): a patch of thousands
// makes each candidate box a picture of that size, and an analysis of
// gigabytes. Thresholds are on probabilities; one below 0 keeps every box.
// A configuration is a few lines: anything of more bytes is not one.
constexpr int kSmallestPatch = 8, kLargestPatch = 256;
constexpr uintmax_t kLargestFile = 64 * 1024;
constexpr size_t kLongestName = 4096;
// The detector's budget: the scanning network's threshold decides how many
// windows every later network sees. At 0 a 2-megapixel portrait took 15 s
// and gave 406 "faces"; from 0.3 up it takes under 1.2 s, whatever the
// later thresholds (the shipped one is 0.6).
constexpr double kLowestScanThreshold = 0.3;

std::string shown(const std::string& token) {
    return token.size() <= 64 ? token : token.substr(0, 64) + "...";
}

}  // namespace

void use_face_detector(const std::string& configPath) {
    const std::string where = "the face detector configuration " + configPath;
    std::error_code ec;
    if (!fs::is_regular_file(configPath, ec)) throw HostError(where + " is not a readable file");
    const uintmax_t bytes = fs::file_size(configPath, ec);
    if (!ec && bytes > kLargestFile)
        throw HostError(where + " is " + std::to_string(bytes) + " bytes; a configuration is a " +
                        "few lines, at most " + std::to_string(kLargestFile) + " bytes");
    std::ifstream config(configPath);
    if (!config) throw HostError(where + " is not a readable file");
    const size_t slash = configPath.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : configPath.substr(0, slash);
    const fs::path home = fs::weakly_canonical(folder, ec);
    int stages = 0;
    for (std::string token; config >> token;) {
        if (token[0] == '#') {
            std::getline(config, token);
            continue;
        }
        if (token.size() > kLongestName)
            throw HostError(where + " names a network of more than " +
                            std::to_string(kLongestName) + " bytes: " + shown(token));
        double patch = 0, threshold = 0;
        if (!(config >> patch >> threshold))
            throw HostError(where + " is damaged after \"" + shown(token) + "\"");
        if (!(patch >= kSmallestPatch && patch <= kLargestPatch && patch == std::floor(patch)))
            throw HostError(where + " gives " + shown(token) + " a patch of " + number(patch) +
                            "; a patch is a whole number of pixels from " +
                            std::to_string(kSmallestPatch) + " to " +
                            std::to_string(kLargestPatch));
        if (!(threshold >= 0 && threshold <= 1))
            throw HostError(where + " gives " + shown(token) + " a threshold of " +
                            number(threshold) + "; a threshold lies in [0, 1]");
        if (stages == 0 && threshold < kLowestScanThreshold)
            throw HostError(where + " gives its scanning network " + shown(token) +
                            " a threshold of " + number(threshold) + "; it must be at least " +
                            number(kLowestScanThreshold) + ", or every window reaches the others");
        const fs::path model = resolve(token, folder);
        const fs::path real = fs::weakly_canonical(model, ec);
        if (ec || !inside(real, home))
            throw HostError(where + " names " + shown(token) + ", which is " + real.string() +
                            ", outside the configuration's folder");
        if (!fs::is_regular_file(real, ec) || !std::ifstream(real, std::ios::binary))
            throw HostError(where + " names " + shown(token) + ", but " + model.string() +
                            " is not a readable file");
        ++stages;
    }
    if (stages < 3 || stages > 5)
        throw HostError(where + " lists " + std::to_string(stages) +
                        " networks; a detector has 3 to 5");
    SetFaceDetectorConfigDir(configPath.c_str());
    try {
        probe_detection();
    } catch (const HostError& e) {
        throw HostError(where + ": " + e.what());
    }
}

}  // namespace smartCrop::host
