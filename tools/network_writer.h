// Writes network files in the format the runtime reads, from layers described
// in code: for tests and offline tools, never part of the library.
#ifndef SMARTCROP_TOOLS_NETWORK_WRITER_H
#define SMARTCROP_TOOLS_NETWORK_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

namespace netwriter {

struct Pads {
    uint32_t low0 = 0, high0 = 0, low1 = 0, high1 = 0;
};

class NetworkWriter {
public:
    NetworkWriter& data(const std::string& name, uint32_t isLabel = 0);
    // Convolution (or, with deconv, deconvolution); weights of
    // k0 * cin * k1 / groups * cout, biases cout (cin for a deconvolution).
    NetworkWriter& conv(const std::string& name, const std::string& input, uint32_t cout,
                        uint32_t cin, uint32_t k0, uint32_t k1, uint32_t s0, uint32_t s1,
                        const std::vector<float>& weights, const std::vector<float>& biases,
                        Pads pads = {}, uint32_t groups = 1, uint32_t padMode = 0,
                        bool deconv = false);
    NetworkWriter& local(const std::string& name, const std::string& input, uint32_t cout,
                         uint32_t cin, uint32_t k0, uint32_t k1, uint32_t out0, uint32_t out1,
                         uint32_t s0, uint32_t s1, const std::vector<float>& weights,
                         const std::vector<float>& biases, Pads pads = {}, uint32_t padMode = 0);
    NetworkWriter& fc(const std::string& name, const std::vector<std::string>& inputs,
                      const std::vector<uint32_t>& inputSizes, uint32_t outputs,
                      const std::vector<float>& weights, const std::vector<float>& biases);
    NetworkWriter& normcross(const std::string& name, const std::string& input, uint32_t localSize,
                             float k, float alpha, float beta);
    // type 5 max, 6 average.
    NetworkWriter& pool(int32_t type, const std::string& name, const std::string& input,
                        uint32_t k0, uint32_t k1, uint32_t s0, uint32_t s1, Pads pads = {});
    NetworkWriter& relu(const std::string& name, const std::string& input, int32_t activation = 0);
    NetworkWriter& concat(const std::string& name, const std::vector<std::string>& inputs,
                          uint32_t dim);
    NetworkWriter& element(const std::string& name, const std::vector<std::string>& inputs,
                           int32_t op, const std::vector<float>& coefficients);
    // Layers without a payload: 16 softmax, 17 logistic cost, 21 softmax map.
    NetworkWriter& plain(int32_t type, const std::string& name,
                         const std::vector<std::string>& inputs);
    NetworkWriter& softmax_map2(const std::string& name, const std::string& input,
                                int32_t groupSize);
    // Any record, payload given as bytes.
    NetworkWriter& raw(int32_t type, const std::string& name,
                       const std::vector<std::string>& inputs, const std::vector<uint8_t>& payload);

    std::vector<uint8_t> bytes() const;
    void save(const std::string& path) const;

private:
    struct Record {
        int32_t type;
        std::string name;
        std::vector<std::string> inputs;
        std::vector<uint8_t> payload;
    };
    std::vector<Record> records;
};

void put_u32(std::vector<uint8_t>& out, uint32_t v);
void put_f32(std::vector<uint8_t>& out, float v);

}  // namespace netwriter

#endif  // SMARTCROP_TOOLS_NETWORK_WRITER_H
