// Where a picture is sharp: the host's own measure, from its pixels, of the
// fine detail a defocused background lacks, so that a sharp subject is kept
// even where the library's saliency does not see it (a subject touching the
// image's edge looks like part of the frame to a saliency measured against
// the frame).
#ifndef SMARTCROP_HOST_SHARPNESS_MAP_H
#define SMARTCROP_HOST_SHARPNESS_MAP_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace smartCrop::host {

class SharpnessMap {
public:
    // `pixels`: four bytes a pixel (ignored, red, green, blue), rows `stride`
    // bytes apart. The map is made at most 512 pixels on its long side (fine texture
    // averages away below that).
    SharpnessMap(const uint8_t* pixels, uint32_t width, uint32_t height, size_t stride);
    // The share of the picture's sharp detail inside the rectangle, given in
    // inclusive pixels of a picture `fullWidth` by `fullHeight`; 0 when the
    // picture has none.
    double share(int left, int top, int right, int bottom, uint32_t fullWidth,
                 uint32_t fullHeight) const;

private:
    int cols = 0, rows = 0;
    std::vector<double> table;  // summed-area table, (rows + 1) x (cols + 1)
};

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_SHARPNESS_MAP_H
