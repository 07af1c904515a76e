// Keeps OpenCV from running our calls on its worker threads: the library
// promises to do all its work on the caller's thread.
#ifndef SMARTCROP_SOURCE_SEQUENTIALOPENCV_H
#define SMARTCROP_SOURCE_SEQUENTIALOPENCV_H

namespace smartCrop {

// While any instance lives, OpenCV runs single-threaded; the host's own
// setting is restored when the last one ends. OpenCV's thread count is
// process-wide, so a host using OpenCV concurrently runs sequentially
// meanwhile: the price of starting no thread in someone else's process.
class SequentialOpenCv {
public:
    SequentialOpenCv();
    ~SequentialOpenCv();
    SequentialOpenCv(const SequentialOpenCv&) = delete;
    SequentialOpenCv& operator=(const SequentialOpenCv&) = delete;
};

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_SEQUENTIALOPENCV_H
