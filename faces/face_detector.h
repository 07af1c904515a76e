// The face detector as the rest of the library sees it: an image in, the
// faces' boxes out, from the process-wide cascade built once on first use.
#ifndef SMARTCROP_FACES_FACE_DETECTOR_H
#define SMARTCROP_FACES_FACE_DETECTOR_H

#include <cstdint>
#include <vector>

#include "faces/face_boxes.h"

namespace smartCrop {

// The faces of a width x height image of three interleaved bytes a pixel
// (red, green, blue), rows without gaps. Throws what the cascade throws.
std::vector<FaceBox> find_faces(const uint8_t* pixels, int32_t width, int32_t height);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_FACE_DETECTOR_H
