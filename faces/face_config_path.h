// The process-wide path of the face detector's configuration file.
#ifndef SMARTCROP_FACES_FACE_CONFIG_PATH_H
#define SMARTCROP_FACES_FACE_CONFIG_PATH_H

#include <string>

namespace smartCrop {

void set_face_config_path(const char* path);
// A copy of the current path ("data/ovex3" until a host sets another).
std::string face_config_path();

}  // namespace smartCrop

#endif  // SMARTCROP_FACES_FACE_CONFIG_PATH_H
