// Dense LU with row exchanges refuses a singular matrix.  The factorisation itself is the reference
// of the tridiagonal solvers in the Gummel tests, and the complex 3x3 inverse of the small-signal
// blocks is exercised by every small-signal test, whose capacitances and conductances it decides.
#include "solver/small_linalg.h"

#include <gtest/gtest.h>

#include <vector>

namespace tervo {
namespace {

TEST(LU, ASingularMatrixIsRefusedWithAReason) {
    matrix S(3, 3);
    const double rows[3][3] = {{1, 2, 3}, {2, 4, 6}, {0, 1, 1}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) S[i][j] = rows[i][j];
    std::vector<int> pivot;
    EXPECT_EQ(lu_decomposition(S, pivot), -1);
    EXPECT_FALSE(LastLUDecompositionError().empty());
}

} // namespace
} // namespace tervo
