#include "source/SequentialOpenCv.h"

#include <mutex>
#include <opencv2/core.hpp>

namespace smartCrop {

namespace {

std::mutex guardMutex;
int activeGuards = 0;
int savedThreads = 0;

}  // namespace

SequentialOpenCv::SequentialOpenCv() {
    std::lock_guard<std::mutex> lock(guardMutex);
    if (activeGuards++ == 0) {
        savedThreads = cv::getNumThreads();
        cv::setNumThreads(1);
    }
}

SequentialOpenCv::~SequentialOpenCv() {
    std::lock_guard<std::mutex> lock(guardMutex);
    if (--activeGuards == 0) cv::setNumThreads(savedThreads);
}

}  // namespace smartCrop
