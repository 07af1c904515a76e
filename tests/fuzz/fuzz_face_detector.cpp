// Arbitrary bytes as a detector: the first byte says how many of the next
// bytes are the configuration text, the rest is the network file it may
// name ("m"). The detector is built from them and run on a small image
// through a small pyramid (faces of a quarter of the image and up), so that
// each input costs little and the target explores.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "deepnet/runtime_layers.h"
#include "faces/cascade_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    deepnet::set_network_buffer_limit(uint64_t{16} << 20);
    static const std::filesystem::path dir =
        std::filesystem::temp_directory_path() /
        ("smartcrop-fuzz-detector-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const size_t configLength = std::min<size_t>(data[0], size - 1);
    std::ofstream((dir / "config").string(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(configLength));
    std::ofstream((dir / "m").string(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data + 1 + configLength),
               static_cast<std::streamsize>(size - 1 - configLength));
    try {
        smartCrop::CasCNNModel model((dir / "config").string());
        cv::Mat image(30, 40, CV_8UC3, cv::Scalar(20, 200, 90));
        image(cv::Rect(10, 5, 15, 15)).setTo(cv::Scalar::all(255));
        smartCrop::DetectionSettings settings = smartCrop::get_detector_settings("afw");
        settings.long_side = 80;
        settings.min_face_fraction = 0.25f;
        settings.scale_count = 3;
        model.detect(image, settings);
    } catch (const std::runtime_error&) {
    } catch (const std::length_error&) {
    } catch (const std::bad_alloc&) {
    } catch (const cv::Exception&) {
    }
    return 0;
}
