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
    smartCrop::integral_image(map, table);
}

}  // namespace test

#endif  // SMARTCROP_TESTS_RANDOM_MAPS_H
