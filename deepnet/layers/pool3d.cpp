#include "deepnet/layers/pool3d.h"

#include <algorithm>
#include <cmath>

#include "deepnet/layers/kernel_geometry.h"

namespace deepnet {

namespace {

void read_pool(record_reader& in, layer_model_pool3d& r) {
    r.kernel0 = in.u32();
    r.kernel1 = in.u32();
    read_strides_and_padding(in, r);
    check_padding(r, "layer_model_pool3d::deserialize()");
}

}  // namespace

void read_pool3d_payload(record_reader& in, layer_model_base& record) {
    read_pool(in, static_cast<layer_model_pool3d&>(record));
}

template <class Dtype, class Pool>
void layer_test_pool_3d_base<Dtype, Pool>::allocate(const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_pool3d&>(record);
    if (this->inputs.size() != 1 || this->inputs[0]->y_dim != 3) {
        throw std::runtime_error("layer_test_pool_3d_base::allocate(): Input mismatch");
    }
    const auto* x = this->inputs[0];
    const uint64_t Y0 = window_positions(x->y_size[0], r.pad0_low, r.pad0_high, r.kernel0,
                                         r.stride0, 0, "layer_test_pool_3d_base::allocate()");
    const uint64_t Y1 = window_positions(x->y_size[1], r.pad1_low, r.pad1_high, r.kernel1,
                                         r.stride1, 0, "layer_test_pool_3d_base::allocate()");
    this->set_shape(3, Y0, Y1, x->y_size[2]);
    this->size_output();
    size_buffer(scratch, checked_product(x->y_size[1], Y0));
}

template <class Dtype, class Pool>
void layer_test_pool_3d_base<Dtype, Pool>::fprop_test(uint64_t, const layer_model_base& record) {
    const auto& r = static_cast<const layer_model_pool3d&>(record);
    const auto* x = this->inputs[0];
    const int64_t W = static_cast<int64_t>(x->y_size[0]), H = static_cast<int64_t>(x->y_size[1]);
    const uint64_t Y0 = this->y_size[0], Y1 = this->y_size[1], C = this->y_size[2];
    const float area = static_cast<float>(r.kernel0 * r.kernel1);
    float* out = this->y.data();
    for (uint64_t c = 0; c < C; ++c) {
        const float* plane = x->y.data() + c * W * H;
        for (uint64_t o1 = 0; o1 < Y1; ++o1) {
            const int64_t row = static_cast<int32_t>(r.stride1 * o1 - r.pad1_low);
            const int64_t rowFirst = std::max<int64_t>(row, 0),
                          rowLast = std::min<int64_t>(H, row + r.kernel1);
            for (uint64_t o0 = 0; o0 < Y0; ++o0) {
                const int64_t col = static_cast<int32_t>(r.stride0 * o0 - r.pad0_low);
                const int64_t colFirst = std::max<int64_t>(col, 0),
                              colLast = std::min<int64_t>(W, col + r.kernel0);
                float v = std::is_same<Pool, detail::pool_type_max>::value ? -3.4028235e38f : 0.0f;
                for (int64_t y = rowFirst; y < rowLast; ++y) {
                    for (int64_t xi = colFirst; xi < colLast; ++xi) {
                        const float e = plane[y * W + xi];
                        if (std::is_same<Pool, detail::pool_type_max>::value) {
                            v = std::max(v, e);
                        } else {
                            v += e;
                        }
                    }
                }
                // The full kernel area also at clipped borders.
                *out++ = std::is_same<Pool, detail::pool_type_max>::value ? v : v / area;
            }
        }
    }
}

template class layer_test_pool_3d_base<float, detail::pool_type_max>;
template class layer_test_pool_3d_base<float, detail::pool_type_avg>;

}  // namespace deepnet
