#include "analysis/summed_area_table.h"

namespace smartCrop {

namespace {

void table_first_row_and_column(const FloatMap& map, DoubleMap& table) {
    const int R = map.rows, C = map.cols;
    table.at(0, 0) = map.at(0, 0);
    for (int c = 1; c < C; ++c) table.at(0, c) = table.at(0, c - 1) + map.at(0, c);
    for (int r = 1; r < R; ++r) table.at(r, 0) = table.at(r - 1, 0) + map.at(r, 0);
}

}  // namespace

void integral_images(const FloatMap* const* maps, DoubleMap* const* tables, int count) {
    constexpr int kMaxMaps = 16;
    if (count <= 0) return;
    if (count > kMaxMaps) {
        integral_images(maps, tables, kMaxMaps);
        integral_images(maps + kMaxMaps, tables + kMaxMaps, count - kMaxMaps);
        return;
    }
    const int R = maps[0]->rows, C = maps[0]->cols;
    if (R == 0 || C == 0) return;
    for (int k = 0; k < count; ++k) {
        table_first_row_and_column(*maps[k], *tables[k]);
    }
    // Two rows at a time, the lower one a column behind: each element waits
    // on its left neighbour, so the second row's running sums double the
    // independent work in flight; every element is still the same sum.
    const float* src[2][kMaxMaps];
    double* row[2][kMaxMaps];
    const double* above[kMaxMaps];
    for (int r = 1; r < R; r += 2) {
        const bool pair = r + 1 < R;
        for (int k = 0; k < count; ++k) {
            above[k] = &tables[k]->at(r - 1, 0);
            for (int i = 0; i < (pair ? 2 : 1); ++i) {
                src[i][k] = &maps[k]->at(r + i, 0);
                row[i][k] = &tables[k]->at(r + i, 0);
            }
        }
        if (!pair) {
            for (int c = 1; c < C; ++c) {
                for (int k = 0; k < count; ++k) {
                    row[0][k][c] = above[k][c] + row[0][k][c - 1] - above[k][c - 1] + src[0][k][c];
                }
            }
            continue;
        }
        for (int c = 1; c < C; ++c) {
            for (int k = 0; k < count; ++k) {
                const double* a = above[k];
                double* upper = row[0][k];
                double* lower = row[1][k];
                upper[c] = a[c] + upper[c - 1] - a[c - 1] + src[0][k][c];
                lower[c] = upper[c] + lower[c - 1] - upper[c - 1] + src[1][k][c];
            }
        }
    }
}

}  // namespace smartCrop
