// Replays inputs through a fuzz target in builds without libFuzzer: each
// file named on the command line, or, with none, a fixed set of generated
// inputs, so that the target is exercised (and kept compiling) everywhere.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    if (argc > 1) {
        for (int i = 1; i < argc; ++i) {
            std::ifstream file(argv[i], std::ios::binary);
            const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                             std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        }
        std::printf("replayed %d inputs\n", argc - 1);
        return 0;
    }
    std::mt19937 rng(1234);
    const int kInputs = 40;
    for (int i = 0; i < kInputs; ++i) {
        std::vector<uint8_t> bytes(rng() % 2048);
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("replayed %d generated inputs\n", kInputs);
    return 0;
}
