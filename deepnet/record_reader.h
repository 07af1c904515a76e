// Bounded reading of a network file's bytes, shared by the record kinds.
#ifndef SMARTCROP_DEEPNET_RECORD_READER_H
#define SMARTCROP_DEEPNET_RECORD_READER_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace deepnet {

[[noreturn]] inline void truncated() {
    throw std::runtime_error("deenpet_deserialize_layer_model(): the data ends inside a record");
}

// A moving position that never reads outside [begin, end).
class record_reader {
public:
    record_reader(const uint8_t* begin, const uint8_t* end) : pos(begin), end(end) {}

    const uint8_t* take(uint64_t n) {
        if (n > static_cast<uint64_t>(end - pos)) truncated();
        const uint8_t* at = pos;
        pos += n;
        return at;
    }
    uint32_t u32() {
        const uint8_t* b = take(4);
        return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
               static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
    }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    float f32() {
        const uint32_t bits = u32();
        float v;
        std::memcpy(&v, &bits, 4);
        return v;
    }
    // `count` floats, copied by block; the count is checked against the bytes first.
    std::vector<float> floats(uint64_t count) {
        if (count > static_cast<uint64_t>(end - pos) / 4) truncated();
        std::vector<float> v(static_cast<size_t>(count));
        if (count > 0) std::memcpy(v.data(), take(count * 4), count * 4);
        return v;
    }
    const uint8_t* position() const { return pos; }

private:
    const uint8_t* pos;
    const uint8_t* end;
};

// a * b, or a value no buffer can hold when the product overflows.
inline uint64_t times(uint64_t a, uint64_t b) {
    if (a != 0 && b > std::numeric_limits<uint64_t>::max() / a)
        return std::numeric_limits<uint64_t>::max();
    return a * b;
}

}  // namespace deepnet

#endif  // SMARTCROP_DEEPNET_RECORD_READER_H
