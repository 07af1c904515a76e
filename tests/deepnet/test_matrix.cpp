// The result matrix: stream form, moves and the printing oddity.
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "deepnet/matrix.h"

namespace mp {
namespace {

TEST(Matrix, ConstructionAndStreamForm) {
    matrix m(2, 3);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(m.data[i], 0.0f);
    m.at(1, 0) = 5.0f;
    EXPECT_EQ(m.data[3], 5.0f);
    EXPECT_STREQ(m.type_name(), "matrix_mp");

    std::stringstream empty;
    EXPECT_TRUE(matrix().write(empty));
    EXPECT_EQ(empty.str(), std::string(16, '\0'));

    std::stringstream s;
    m.write(s);
    EXPECT_EQ(s.str().size(), 16u + 24u);
    matrix back;
    EXPECT_TRUE(back.read(s, 0));
    EXPECT_EQ(back.rows, 2);
    EXPECT_EQ(back.at(1, 0), 5.0f);

    // The limit keeps its "+ 8": the form's size minus 8 is still accepted, one less is not.
    s.clear();
    s.seekg(0);
    matrix limited;
    EXPECT_FALSE(limited.read(s, 31));
    s.seekg(0);
    EXPECT_TRUE(limited.read(s, 32));
}

TEST(Matrix, ZeroRowsHaveNoData) {
    matrix wide(0, 5);
    std::stringstream s;
    wide.write(s);
    EXPECT_EQ(s.str().size(), 16u);
    matrix back(1, 1);
    EXPECT_TRUE(back.read(s, 0));
    EXPECT_EQ(back.rows, 0);
    EXPECT_EQ(back.cols, 5);
    EXPECT_FALSE(back.has_data());
    s.seekg(0);
    back.skip(s);
    EXPECT_EQ(s.tellg(), 16);
}

}  // namespace
}  // namespace mp
