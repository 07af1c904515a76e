#include "source/ErrorFunnel.h"

namespace smartCrop {

void FailWith(std::string& lastError, const char* text, eErrorCode code) {
    lastError = text;
    throw code;
}

}  // namespace smartCrop
