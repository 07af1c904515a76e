// The host layer's failures, in the user's terms: an image or a file that
// cannot be used, and a request that no query could answer.
#ifndef SMARTCROP_HOST_HOST_ERROR_H
#define SMARTCROP_HOST_HOST_ERROR_H

#include <stdexcept>

namespace smartCrop::host {

struct HostError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A request no query could answer, as against an image that cannot be used.
struct RequestError : HostError {
    using HostError::HostError;
};

}  // namespace smartCrop::host

#endif  // SMARTCROP_HOST_HOST_ERROR_H
