#include "source/PoolGrid.h"

#include <cmath>

namespace smartCrop {

float* pool_cells(const DoubleMap& table, int L, const WorkRect& crop, float* out) {
    const auto [r0, c0, r1, c1] = crop;
    const float stepR = static_cast<float>(r1 - r0) / static_cast<float>(L);
    const float stepC = static_cast<float>(c1 - c0) / static_cast<float>(L);
    float fr = static_cast<float>(r0);
    int rowStart = static_cast<int>(std::floor(fr));
    for (int i = 0; i < L; ++i) {
        fr += stepR;
        const int rowEnd = static_cast<int>(std::floor(fr));
        float fc = static_cast<float>(c0);
        int colStart = static_cast<int>(std::floor(fc));
        for (int j = 0; j < L; ++j) {
            fc += stepC;
            const int colEnd = static_cast<int>(std::floor(fc));
            const float cells = static_cast<float>(colEnd - colStart + 1) *
                                static_cast<float>(rowEnd - rowStart + 1);
            *out++ =
                static_cast<float>(region_sum(table, rowStart, rowEnd, colStart, colEnd) / cells);
            colStart = colEnd;
        }
        rowStart = rowEnd;
    }
    return out;
}

}  // namespace smartCrop
