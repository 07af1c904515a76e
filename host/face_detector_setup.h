// Choosing and checking the face detector before any image is answered, so
// that a missing, damaged or misdirected detector is an error with a file's
// name instead of a silent "no faces".
#ifndef SMARTCROP_HOST_FACE_DETECTOR_SETUP_H
#define SMARTCROP_HOST_FACE_DETECTOR_SETUP_H

#include <string>

namespace smartCrop::host {

// The configuration installed with the program at `executable`, found at
// `relativeToBinary` beside it; empty when there is none.
std::string installed_face_detector(const std::string& executable,
                                    const std::string& relativeToBinary);

// Checks the configuration at `configPath`: it reads, lists three to five
// stages, and every network it names resolves (by the library's rule: the
// name as it stands if that opens, else the configuration's folder and the
// name's stem) to a regular file inside the configuration's own folder.
// Then hands the path to the library and runs one small detection, which
// loads the networks. Throws HostError naming the file at fault.
void use_face_detector(const std::string& configPath);

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_FACE_DETECTOR_SETUP_H
