#include "deepnet/matrix.h"

#include <iostream>
#include <limits>
#include <new>

namespace mp {

namespace {

float* allocate(int64_t count) {
    if (count < 0 ||
        static_cast<uint64_t>(count) > std::numeric_limits<size_t>::max() / sizeof(float)) {
        throw std::bad_alloc();
    }
    return new float[static_cast<size_t>(count)]();
}

void write_i64(std::ostream& out, int64_t v) {
    unsigned char b[8];
    for (int i = 0; i < 8; ++i)
        b[i] = static_cast<unsigned char>(static_cast<uint64_t>(v) >> (8 * i));
    out.write(reinterpret_cast<const char*>(b), 8);
}

int64_t read_i64(std::istream& in) {
    unsigned char b[8] = {};
    in.read(reinterpret_cast<char*>(b), 8);
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v |= static_cast<uint64_t>(b[i]) << (8 * i);
    return static_cast<int64_t>(v);
}

}  // namespace

matrix::matrix(int32_t r, int32_t c) : rows(r), cols(c) {
    data = allocate(static_cast<int64_t>(r) * c);
}

matrix::matrix(matrix&& other) noexcept : data(other.data), rows(other.rows), cols(other.cols) {
    other.data = nullptr;
    other.rows = other.cols = 0;
}

matrix& matrix::operator=(matrix&& other) noexcept {
    if (this == &other) return *this;
    delete[] data;
    data = nullptr;
    rows = cols = 0;
    if (other.has_data()) {
        data = other.data;
        rows = other.rows;
        cols = other.cols;
        other.data = nullptr;  // its dimensions stay as they were
    }
    return *this;
}

matrix::~matrix() {
    delete[] data;
}

bool matrix::write(std::ostream& out) const {
    write_i64(out, rows);
    write_i64(out, cols);
    const int64_t n = static_cast<int64_t>(rows) * cols;
    if (n >= 1)
        out.write(reinterpret_cast<const char*>(data), n * static_cast<int64_t>(sizeof(float)));
    return true;
}

bool matrix::read(std::istream& in, uint64_t limit) {
    const int64_t r = read_i64(in), c = read_i64(in);
    // Dimensions beyond 32 bits cannot be stored: refused like an over-limit read.
    if (r < std::numeric_limits<int32_t>::min() || r > std::numeric_limits<int32_t>::max() ||
        c < std::numeric_limits<int32_t>::min() || c > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    const int64_t p = r * c;
    if (p != 0) {
        if (p < 0) return false;
        if (limit != 0 && limit < 4 * static_cast<uint64_t>(p) + 8) return false;
        float* values = allocate(p);
        in.read(reinterpret_cast<char*>(values), p * static_cast<int64_t>(sizeof(float)));
        delete[] data;  // a read into a used matrix replaces, rather than leaks, its values
        data = values;
        rows = static_cast<int32_t>(r);
        cols = static_cast<int32_t>(c);
        return true;
    }
    rows = static_cast<int32_t>(r);
    cols = static_cast<int32_t>(c);
    delete[] data;
    data = nullptr;
    return true;
}

void matrix::print(std::ostream& out) const {
    std::cout << "[" << rows << "," << cols << "]" << std::endl;
    for (int32_t r = 0; r < rows; ++r) {
        for (int32_t c = 0; c < cols; ++c) out << at(r, c) << " ";
        out << std::endl;
    }
}

void matrix::skip(std::istream& in) const {
    const int64_t r = read_i64(in), c = read_i64(in);
    const int64_t p = r * c;
    if (p >= 1) in.seekg(4 * p, std::ios::cur);
}

}  // namespace mp
