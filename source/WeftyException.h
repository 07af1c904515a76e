// The library's one exception type that carries a code and a text.
#ifndef SMARTCROP_SOURCE_WEFTYEXCEPTION_H
#define SMARTCROP_SOURCE_WEFTYEXCEPTION_H

#include <cstdint>
#include <exception>

#include "CommonStructures.h"

namespace Wefty {

// `message` and `file` are not owned: they must outlive the exception, so
// they are literals or otherwise static.
class exception : public std::exception {
public:
    exception(smartCrop::eErrorCode code, const char* message, uint32_t line, const char* file)
        : code(code), message(message), line(line), file(file) {}
    exception(const exception&) = default;

    const char* what() const noexcept override { return message; }

    smartCrop::eErrorCode code;
    const char* message;
    uint32_t line;
    const char* file;
};

}  // namespace Wefty

#endif  // SMARTCROP_SOURCE_WEFTYEXCEPTION_H
