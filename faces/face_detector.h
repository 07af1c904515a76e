// Between the crop analysis and the cascade: the process-wide detector, built
// once on first use, and faces turned into rectangles of interest.
#ifndef SMARTCROP_FACES_FACE_DETECTOR_H
#define SMARTCROP_FACES_FACE_DETECTOR_H

#include <cstdint>
#include <vector>

namespace smartCrop {

// Right and bottom are exclusive here.
struct FaceSides {
    int32_t left, right, top, bottom;
};

// Appends the faces of a width x height image of three interleaved bytes a
// pixel, rows without gaps.
void find_faces(const uint8_t* pixels, int32_t width, int32_t height,
                std::vector<FaceSides>& faces);

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_FACE_DETECTOR_H
