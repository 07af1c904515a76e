#include "network_writer.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace netwriter {

void put_u32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void put_f32(std::vector<uint8_t>& out, float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    put_u32(out, bits);
}

namespace {

void put_floats(std::vector<uint8_t>& out, const std::vector<float>& values) {
    for (float v : values) put_f32(out, v);
}

void put_pads(std::vector<uint8_t>& out, const Pads& p) {
    for (uint32_t v : {p.low0, p.high0, p.low1, p.high1}) put_u32(out, v);
}

}  // namespace

NetworkWriter& NetworkWriter::raw(int32_t type, const std::string& name,
                                  const std::vector<std::string>& inputs,
                                  const std::vector<uint8_t>& payload) {
    records.push_back({type, name, inputs, payload});
    return *this;
}

NetworkWriter& NetworkWriter::data(const std::string& name, uint32_t isLabel) {
    std::vector<uint8_t> p;
    put_u32(p, isLabel);
    return raw(0, name, {}, p);
}

NetworkWriter& NetworkWriter::conv(const std::string& name, const std::string& input, uint32_t cout,
                                   uint32_t cin, uint32_t k0, uint32_t k1, uint32_t s0, uint32_t s1,
                                   const std::vector<float>& weights,
                                   const std::vector<float>& biases, Pads pads, uint32_t groups,
                                   uint32_t padMode, bool deconv) {
    std::vector<uint8_t> p;
    for (uint32_t v : {padMode, cout, groups, k0, k1, cin, s0, s1}) put_u32(p, v);
    put_pads(p, pads);
    put_floats(p, weights);
    put_floats(p, biases);
    return raw(deconv ? 20 : 1, name, {input}, p);
}

NetworkWriter& NetworkWriter::local(const std::string& name, const std::string& input,
                                    uint32_t cout, uint32_t cin, uint32_t k0, uint32_t k1,
                                    uint32_t out0, uint32_t out1, uint32_t s0, uint32_t s1,
                                    const std::vector<float>& weights,
                                    const std::vector<float>& biases, Pads pads, uint32_t padMode) {
    std::vector<uint8_t> p;
    for (uint32_t v : {padMode, cout, k0, k1, cin, out0, out1, s0, s1}) put_u32(p, v);
    put_pads(p, pads);
    put_floats(p, weights);
    put_floats(p, biases);
    return raw(2, name, {input}, p);
}

NetworkWriter& NetworkWriter::fc(const std::string& name, const std::vector<std::string>& inputs,
                                 const std::vector<uint32_t>& inputSizes, uint32_t outputs,
                                 const std::vector<float>& weights,
                                 const std::vector<float>& biases) {
    std::vector<uint8_t> p;
    for (uint32_t s : inputSizes) put_u32(p, s);
    put_u32(p, outputs);
    put_floats(p, weights);
    put_floats(p, biases);
    return raw(3, name, inputs, p);
}

NetworkWriter& NetworkWriter::normcross(const std::string& name, const std::string& input,
                                        uint32_t localSize, float k, float alpha, float beta) {
    std::vector<uint8_t> p;
    put_u32(p, localSize);
    put_f32(p, k);
    put_f32(p, alpha);
    put_f32(p, beta);
    return raw(4, name, {input}, p);
}

NetworkWriter& NetworkWriter::pool(int32_t type, const std::string& name, const std::string& input,
                                   uint32_t k0, uint32_t k1, uint32_t s0, uint32_t s1, Pads pads) {
    std::vector<uint8_t> p;
    for (uint32_t v : {k0, k1, s0, s1}) put_u32(p, v);
    put_pads(p, pads);
    return raw(type, name, {input}, p);
}

NetworkWriter& NetworkWriter::relu(const std::string& name, const std::string& input,
                                   int32_t activation) {
    std::vector<uint8_t> p;
    put_u32(p, static_cast<uint32_t>(activation));
    return raw(7, name, {input}, p);
}

NetworkWriter& NetworkWriter::concat(const std::string& name,
                                     const std::vector<std::string>& inputs, uint32_t dim) {
    std::vector<uint8_t> p;
    put_u32(p, dim);
    return raw(10, name, inputs, p);
}

NetworkWriter& NetworkWriter::element(const std::string& name,
                                      const std::vector<std::string>& inputs, int32_t op,
                                      const std::vector<float>& coefficients) {
    if (coefficients.size() != inputs.size())
        throw std::invalid_argument("one coefficient per input");
    std::vector<uint8_t> p;
    put_u32(p, static_cast<uint32_t>(op));
    put_floats(p, coefficients);
    return raw(14, name, inputs, p);
}

NetworkWriter& NetworkWriter::plain(int32_t type, const std::string& name,
                                    const std::vector<std::string>& inputs) {
    return raw(type, name, inputs, {});
}

NetworkWriter& NetworkWriter::softmax_map2(const std::string& name, const std::string& input,
                                           int32_t groupSize) {
    std::vector<uint8_t> p;
    put_u32(p, 0);
    put_u32(p, 0);
    put_u32(p, static_cast<uint32_t>(groupSize));
    return raw(22, name, {input}, p);
}

std::vector<uint8_t> NetworkWriter::bytes() const {
    std::vector<uint8_t> out(12, 0);  // not read by the parser
    put_u32(out, static_cast<uint32_t>(records.size()));
    for (const Record& r : records) {
        out.insert(out.end(), 8, 0);
        put_u32(out, static_cast<uint32_t>(r.type));
        put_u32(out, static_cast<uint32_t>(r.name.size()));
        out.insert(out.end(), r.name.begin(), r.name.end());
        put_u32(out, static_cast<uint32_t>(r.inputs.size()));
        for (const std::string& in : r.inputs) {
            put_u32(out, static_cast<uint32_t>(in.size()));
            out.insert(out.end(), in.begin(), in.end());
        }
        out.insert(out.end(), r.payload.begin(), r.payload.end());
    }
    return out;
}

void NetworkWriter::save(const std::string& path) const {
    const std::vector<uint8_t> b = bytes();
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
    if (!file) throw std::runtime_error("cannot write " + path);
}

}  // namespace netwriter
