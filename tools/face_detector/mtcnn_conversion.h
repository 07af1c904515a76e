// Turns one network of the MTCNN face cascade, as a TFLite graph, into a
// network file of this library's runtime that gives the face probability at
// "Y". Only the layers that lead to the probability are kept.
#ifndef SMARTCROP_TOOLS_MTCNN_CONVERSION_H
#define SMARTCROP_TOOLS_MTCNN_CONVERSION_H

#include <cstdint>
#include <vector>

#include "tflite_graph.h"

namespace face_detector {

enum class StageOutput {
    // "Y": the face probability, a map for a scanning network.
    kProbability,
    // "Y": five landmarks as x0, y0, ... x4, y4 in units of the patch; "Y2":
    // the box correction of a refining stage, left neutral (no shift, scale
    // 1): nothing measured that the network's box regression would improve
    // the boxes, which are widened around the face afterwards anyway.
    kLandmarks,
};

// The graph's input is the image transposed (axis 1 runs along image x),
// red-green-blue, scaled as (byte - 127.5) / 128; its probability output has
// the face at channel 1, its landmark output all x then all y. Throws
// std::runtime_error on a graph of another shape.
std::vector<uint8_t> convert_stage(const tflite_graph::Graph& graph,
                                   StageOutput output = StageOutput::kProbability);

}  // namespace face_detector

#endif  // SMARTCROP_TOOLS_MTCNN_CONVERSION_H
