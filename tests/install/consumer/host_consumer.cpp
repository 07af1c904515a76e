// Uses the installed host layer: decodes a photograph and asks for crops the
// recommended way.
#include <cstdio>

#include "host/photograph.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    namespace host = smartCrop::host;
    try {
        host::CropRequest request;
        request.aspects = {1.0, 16.0 / 9};
        const host::AnalysedImage image = host::open_photograph(argv[1], request);
        const host::CropAnswer answer = image.suggest();
        const bool ok = answer.crops.size() == 5 && answer.focus.x > 0 && answer.focus.x < 1;
        std::printf("host consumer: %zu crops, focus %.2f %.2f%s\n", answer.crops.size(),
                    answer.focus.x, answer.focus.y, ok ? "" : ": unexpected answer");
        return ok ? 0 : 1;
    } catch (const host::HostError& e) {
        std::printf("host consumer: %s\n", e.what());
        return 1;
    }
}
