// smartcrop-convert-detector: one network of the MTCNN face cascade, from
// TFLite to this library's network file.
//   smartcrop-convert-detector [--landmarks] INPUT.tflite OUTPUT
// --landmarks makes the refining stage: landmarks at "Y", a correction at "Y2".
#include <cstdio>
#include <exception>
#include <string>

#include "mtcnn_conversion.h"
#include "network_writer.h"
#include "tflite_graph.h"

int main(int argc, char** argv) {
    const bool landmarks = argc == 4 && std::string(argv[1]) == "--landmarks";
    if (argc != 3 && !landmarks) {
        std::fprintf(stderr, "usage: %s [--landmarks] INPUT.tflite OUTPUT\n", argv[0]);
        return 2;
    }
    const char* input = argv[argc - 2];
    const char* output = argv[argc - 1];
    try {
        const std::vector<uint8_t> bytes =
            face_detector::convert_stage(tflite_graph::read_graph_file(input),
                                         landmarks ? face_detector::StageOutput::kLandmarks
                                                   : face_detector::StageOutput::kProbability);
        std::FILE* out = std::fopen(output, "wb");
        if (out == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), out) != bytes.size() ||
            std::fclose(out) != 0) {
            std::fprintf(stderr, "%s: cannot write %s\n", argv[0], output);
            return 1;
        }
        std::printf("%s: %zu bytes\n", output, bytes.size());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 1;
    }
    return 0;
}
