# Finds the OpenCV modules the project uses from their -dev packages alone
# (Debian ships OpenCV's own CMake config only with the full meta package).
# Defines imported targets opencv_core, opencv_imgproc and, when present,
# opencv_imgcodecs and opencv_objdetect.
find_path(OpenCVModules_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
find_path(OpenCVModules_ARCH_INCLUDE_DIR opencv2/opencv_modules.hpp
          PATHS /usr/include/${CMAKE_LIBRARY_ARCHITECTURE} PATH_SUFFIXES opencv4)
foreach(module core imgproc imgcodecs objdetect)
  find_library(OpenCVModules_${module}_LIBRARY NAMES opencv_${module})
  if(OpenCVModules_${module}_LIBRARY AND NOT TARGET opencv_${module})
    add_library(opencv_${module} UNKNOWN IMPORTED)
    set_target_properties(opencv_${module} PROPERTIES
      IMPORTED_LOCATION ${OpenCVModules_${module}_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES "${OpenCVModules_INCLUDE_DIR};${OpenCVModules_ARCH_INCLUDE_DIR}")
  endif()
endforeach()
if(NOT TARGET opencv_core OR NOT TARGET opencv_imgproc)
  message(FATAL_ERROR "OpenCV core and imgproc libraries not found")
endif()
