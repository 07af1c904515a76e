// The dense row-major float matrix in which network outputs come back.
#ifndef SMARTCROP_DEEPNET_MATRIX_H
#define SMARTCROP_DEEPNET_MATRIX_H

#include <cstdint>
#include <istream>
#include <ostream>

namespace mp {

// Objects that save and load themselves on a stream.
class io_able {
public:
    virtual ~io_able() = default;
    virtual const char* type_name() const = 0;
    virtual bool write(std::ostream& out) const = 0;
    virtual bool read(std::istream& in, uint64_t limit) = 0;
    virtual void print(std::ostream& out) const = 0;
    virtual bool check_a() const = 0;
    virtual bool check_b() const = 0;
    virtual bool check_c() const = 0;
    virtual bool has_data() const = 0;
    virtual void skip(std::istream& in) const = 0;
};

class matrix : public io_able {
public:
    matrix() = default;
    // rows x cols zeros.
    matrix(int32_t rows, int32_t cols);
    matrix(matrix&& other) noexcept;
    matrix& operator=(matrix&& other) noexcept;
    matrix(const matrix&) = delete;
    matrix& operator=(const matrix&) = delete;
    ~matrix() override;

    const char* type_name() const override { return "matrix_mp"; }
    // Stream form: i64 rows, i64 cols, then rows x cols floats, little-endian.
    bool write(std::ostream& out) const override;
    // False, leaving the matrix as it was, when a non-zero limit is below the data.
    bool read(std::istream& in, uint64_t limit) override;
    // The "[rows,cols]" header goes to the standard output, the values to `out`.
    void print(std::ostream& out) const override;
    bool check_a() const override { return true; }
    bool check_b() const override { return true; }
    bool check_c() const override { return true; }
    bool has_data() const override { return data != nullptr; }
    void skip(std::istream& in) const override;

    float& at(int32_t r, int32_t c) { return data[static_cast<int64_t>(r) * cols + c]; }
    float at(int32_t r, int32_t c) const { return data[static_cast<int64_t>(r) * cols + c]; }

    float* data = nullptr;
    int32_t rows = 0;
    int32_t cols = 0;
};

}  // namespace mp

#endif  // SMARTCROP_DEEPNET_MATRIX_H
