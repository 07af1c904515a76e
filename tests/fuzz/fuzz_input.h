// Reads typed values from a fuzzer's bytes; past the end everything is zero.
#ifndef SMARTCROP_TESTS_FUZZ_FUZZ_INPUT_H
#define SMARTCROP_TESTS_FUZZ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data(data), size(size) {}
    template <class T>
    T take() {
        T value{};
        const size_t n = pos + sizeof(T) <= size ? sizeof(T) : size - pos;
        if (n > 0) std::memcpy(&value, data + pos, n);
        pos += n;
        return value;
    }
    uint8_t byte() { return take<uint8_t>(); }
    size_t remaining() const { return size - pos; }
    const uint8_t* rest() const { return data + pos; }

private:
    const uint8_t* data;
    size_t size;
    size_t pos = 0;
};

#endif  // SMARTCROP_TESTS_FUZZ_FUZZ_INPUT_H
