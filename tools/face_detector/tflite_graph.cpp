#include "tflite_graph.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tflite_graph {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("tflite: " + what);
}

// Every read is checked against the buffer: the file comes from outside.
class Reader {
public:
    explicit Reader(const std::vector<uint8_t>& bytes) : b(bytes) {}

    template <typename T>
    T scalar(size_t pos) const {
        if (pos > b.size() || b.size() - pos < sizeof(T)) fail("read past the end of the file");
        T v;
        std::memcpy(&v, b.data() + pos, sizeof(T));
        return v;
    }
    size_t size() const { return b.size(); }
    const uint8_t* at(size_t pos) const { return b.data() + pos; }

private:
    const std::vector<uint8_t>& b;
};

class Table {
public:
    Table(const Reader& r, size_t pos) : r(r), pos(pos) {
        const int64_t vtable = static_cast<int64_t>(pos) - r.scalar<int32_t>(pos);
        if (vtable < 0 || static_cast<size_t>(vtable) >= r.size()) fail("bad vtable offset");
        vt = static_cast<size_t>(vtable);
        vtSize = r.scalar<uint16_t>(vt);
    }

    template <typename T>
    T get(int field, T fallback) const {
        const size_t off = field_offset(field);
        return off == 0 ? fallback : r.scalar<T>(pos + off);
    }
    bool has(int field) const { return field_offset(field) != 0; }

    // Position of what a reference field points at, or 0 when absent.
    size_t target(int field) const {
        const size_t off = field_offset(field);
        if (off == 0) return 0;
        const size_t at = pos + off;
        const uint64_t to = at + static_cast<uint64_t>(r.scalar<uint32_t>(at));
        if (to >= r.size()) fail("reference past the end of the file");
        return static_cast<size_t>(to);
    }
    Table table(int field) const { return Table(r, target(field)); }

    // A vector: its element count and the position of element 0.
    size_t count(int field, size_t elementSize, size_t* first) const {
        const size_t v = target(field);
        *first = v + 4;
        if (v == 0) return 0;
        const uint32_t n = r.scalar<uint32_t>(v);
        if (n > (r.size() - *first) / elementSize) fail("vector longer than the file");
        return n;
    }
    std::vector<Table> tables(int field) const {
        size_t first;
        const size_t n = count(field, 4, &first);
        std::vector<Table> out;
        for (size_t i = 0; i < n; ++i) {
            const size_t at = first + 4 * i;
            const uint64_t to = at + static_cast<uint64_t>(r.scalar<uint32_t>(at));
            if (to >= r.size()) fail("table reference past the end of the file");
            out.emplace_back(r, static_cast<size_t>(to));
        }
        return out;
    }
    std::vector<int32_t> ints(int field) const {
        size_t first;
        const size_t n = count(field, 4, &first);
        std::vector<int32_t> out(n);
        for (size_t i = 0; i < n; ++i) out[i] = r.scalar<int32_t>(first + 4 * i);
        return out;
    }
    std::vector<uint8_t> bytes(int field) const {
        size_t first;
        const size_t n = count(field, 1, &first);
        return std::vector<uint8_t>(r.at(first), r.at(first) + n);
    }
    std::string text(int field) const {
        const std::vector<uint8_t> b = bytes(field);
        return std::string(b.begin(), b.end());
    }

private:
    size_t field_offset(int field) const {
        const size_t entry = 4 + 2 * static_cast<size_t>(field);
        if (entry + 2 > vtSize) return 0;
        return r.scalar<uint16_t>(vt + entry);
    }

    const Reader& r;
    size_t pos, vt;
    uint16_t vtSize;
};

// Builtin options union members used here, and the field of each that holds
// the fused activation.
enum OptionsType : uint8_t {
    kConv2dOptions = 1,
    kPool2dOptions = 5,
    kFullyConnectedOptions = 8,
    kAddOptions = 11,
    kMulOptions = 21,
    kSubOptions = 28,
    kDivOptions = 29,
};

void read_options(const Table& op, Operator* o) {
    if (!op.has(4)) return;
    const Table opt = op.table(4);
    switch (op.get<uint8_t>(3, 0)) {
        case kConv2dOptions:
            o->padding = opt.get<int8_t>(0, kSame);
            o->stride_w = opt.get<int32_t>(1, 0);
            o->stride_h = opt.get<int32_t>(2, 0);
            o->activation = opt.get<int8_t>(3, 0);
            o->dilation_w = opt.get<int32_t>(4, 1);
            o->dilation_h = opt.get<int32_t>(5, 1);
            break;
        case kPool2dOptions:
            o->padding = opt.get<int8_t>(0, kSame);
            o->stride_w = opt.get<int32_t>(1, 0);
            o->stride_h = opt.get<int32_t>(2, 0);
            o->filter_w = opt.get<int32_t>(3, 0);
            o->filter_h = opt.get<int32_t>(4, 0);
            o->activation = opt.get<int8_t>(5, 0);
            break;
        case kFullyConnectedOptions:
        case kAddOptions:
        case kMulOptions:
        case kSubOptions:
        case kDivOptions:
            o->activation = opt.get<int8_t>(0, 0);
            break;
        default:
            break;
    }
}

template <typename T>
std::vector<T> values_of(const std::vector<uint8_t>& raw, const Tensor& t) {
    if (raw.size() % sizeof(T) != 0) fail("tensor \"" + t.name + "\" has a partial value");
    std::vector<T> out(raw.size() / sizeof(T));
    if (!raw.empty()) std::memcpy(out.data(), raw.data(), raw.size());
    return out;
}

void check_index(int32_t i, size_t count, const char* what) {
    if (i < -1 || i >= static_cast<int64_t>(count)) fail(std::string("bad ") + what + " index");
}

}  // namespace

Graph read_graph(const std::vector<uint8_t>& bytes) {
    const Reader r(bytes);
    if (bytes.size() < 8 || std::memcmp(bytes.data() + 4, "TFL3", 4) != 0)
        fail("not a TFLite model (no \"TFL3\" identifier)");
    const Table model(r, r.scalar<uint32_t>(0));

    std::vector<int32_t> codes;
    for (const Table& c : model.tables(1)) {
        const int32_t deprecated = c.get<int8_t>(0, 0);
        const int32_t code = c.get<int32_t>(3, 0);
        codes.push_back(code > deprecated ? code : deprecated);
    }
    const std::vector<Table> buffers = model.tables(4);
    const std::vector<Table> subgraphs = model.tables(2);
    if (subgraphs.size() != 1) fail("expected exactly one subgraph");
    const Table& sg = subgraphs[0];

    Graph g;
    for (const Table& t : sg.tables(0)) {
        Tensor tensor;
        tensor.name = t.text(3);
        tensor.shape = t.ints(0);
        tensor.type = t.get<int8_t>(1, 0);
        if (tensor.type != 0 && tensor.type != 2)
            fail("tensor \"" + tensor.name + "\" is neither float32 nor int32");
        const uint32_t buffer = t.get<uint32_t>(2, 0);
        if (buffer >= buffers.size()) fail("tensor \"" + tensor.name + "\" names no buffer");
        const std::vector<uint8_t> raw = buffers[buffer].bytes(0);
        if (tensor.type == 0)
            tensor.floats = values_of<float>(raw, tensor);
        else
            tensor.ints = values_of<int32_t>(raw, tensor);
        uint64_t elements = 1;
        for (int32_t d : tensor.shape) {
            elements *= static_cast<uint64_t>(d < 0 ? 0 : d);
            if (d < 0 || elements > (uint64_t{1} << 31))
                fail("tensor \"" + tensor.name + "\" has a bad size");
        }
        if (tensor.constant() && tensor.floats.size() + tensor.ints.size() != elements)
            fail("tensor \"" + tensor.name +
                 "\" holds a different number of values than its shape");
        g.tensors.push_back(std::move(tensor));
    }
    g.inputs = sg.ints(1);
    g.outputs = sg.ints(2);
    for (int32_t i : g.inputs) check_index(i, g.tensors.size(), "input tensor");
    for (int32_t i : g.outputs) check_index(i, g.tensors.size(), "output tensor");
    for (const Table& op : sg.tables(3)) {
        Operator o;
        const uint32_t index = op.get<uint32_t>(0, 0);
        if (index >= codes.size()) fail("operator names no operator code");
        o.code = codes[index];
        o.inputs = op.ints(1);
        o.outputs = op.ints(2);
        for (int32_t i : o.inputs) check_index(i, g.tensors.size(), "operator input");
        for (int32_t i : o.outputs) check_index(i, g.tensors.size(), "operator output");
        read_options(op, &o);
        g.operators.push_back(std::move(o));
    }
    return g;
}

Graph read_graph_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot open \"" + path + "\"");
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                     std::istreambuf_iterator<char>());
    return read_graph(bytes);
}

}  // namespace tflite_graph
