// What a call throws, as text: the messages are part of the interface.
#ifndef SMARTCROP_TESTS_FAILURE_TEXT_H
#define SMARTCROP_TESTS_FAILURE_TEXT_H

#include <functional>
#include <stdexcept>
#include <string>

namespace test {

// The exception's text, or "" when the call returns.
inline std::string FailureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

}  // namespace test

#endif  // SMARTCROP_TESTS_FAILURE_TEXT_H
