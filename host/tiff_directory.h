// Reading one numeric tag from the first directory of a TIFF structure, as
// found in TIFF files and in EXIF blocks.
#ifndef SMARTCROP_HOST_TIFF_DIRECTORY_H
#define SMARTCROP_HOST_TIFF_DIRECTORY_H

#include <cstddef>
#include <cstdint>

namespace smartCrop::host {

// The value of a SHORT or LONG tag of count 1 in the first directory; false
// when the structure is damaged or the tag is absent. Every read is bounded.
bool first_directory_value(const uint8_t* data, size_t size, uint16_t tag, uint32_t& value);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_TIFF_DIRECTORY_H
