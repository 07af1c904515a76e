// A map of random values in [0, 1) and its summed-area table, for tests that
// check table readings against brute-force sums.
#ifndef SMARTCROP_TESTS_RANDOM_MAPS_H
#define SMARTCROP_TESTS_RANDOM_MAPS_H

#include <random>

#include "analysis/summed_area_table.h"

namespace test {

inline void random_map_with_table(int rows, int cols, unsigned seed, smartCrop::FloatMap& map,
                                  smartCrop::DoubleMap& table) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    map.resize(rows, cols);
    for (float& v : map.data) v = value(rng);
    table.resize(rows, cols);
    // The table by its definition, one map at a time: each entry from the
    // one above, the one to the left and the one above-left.
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            double v = map.at(r, c);
            if (r > 0 && c > 0)
                v = table.at(r - 1, c) + table.at(r, c - 1) - table.at(r - 1, c - 1) + v;
            else if (r > 0)
                v = table.at(r - 1, c) + v;
            else if (c > 0)
                v = table.at(r, c - 1) + v;
            table.at(r, c) = v;
        }
}

}  // namespace test

#endif  // SMARTCROP_TESTS_RANDOM_MAPS_H
