// Every public operation of the smart-crop object runs under this funnel, so
// that nothing thrown inside ever crosses the binary interface.
#ifndef SMARTCROP_SOURCE_ERRORFUNNEL_H
#define SMARTCROP_SOURCE_ERRORFUNNEL_H

#include <new>
#include <string>
#include <utility>

#include "CommonStructures.h"
#include "source/WeftyException.h"

namespace smartCrop {

// Stores `text` for the host and throws `code`: the way a failing path reports.
[[noreturn]] void FailWith(std::string& lastError, const char* text, eErrorCode code);

// Empties `lastError`, runs `body` and turns whatever it throws into a code.
// A thrown code keeps the text its thrower stored; a Wefty::exception leaves
// its own text; every other failure leaves the text empty.
template <class Body>
eErrorCode RunFunnelled(std::string& lastError, Body&& body) noexcept {
    try {
        lastError.clear();
        std::forward<Body>(body)();
        return eSuccess;
    } catch (eErrorCode code) {
        return code;
    } catch (const std::bad_alloc&) {
        return eOutOfMemory;
    } catch (const Wefty::exception& e) {
        try {
            lastError = e.what();
        } catch (...) {
            // No room for the text: the code alone still tells the host.
        }
        return e.code;
    } catch (...) {
        return eUnexpected;
    }
}

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_ERRORFUNNEL_H
