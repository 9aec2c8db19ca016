// Dense LU with row exchanges and the complex 3x3 inverse of the small-signal blocks.  The 2x2 block
// products and inverses are exercised through the block tridiagonal solve of the Gummel tests.
#include "solver/small_linalg.h"

#include <gtest/gtest.h>

#include <vector>

namespace tervo {
namespace {

TEST(LU, SolvesAKnownSystemWithARowExchangeTwiceAndRefusesASingularOne) {
    // A zero in the first pivot place needs a row exchange.
    const double a[4][4] = {{0, 2, 1, -1}, {3, -1, 0, 2}, {1, 1, 4, 0}, {-2, 0, 1, 5}};
    const double xTrue[4] = {1.5, -2, 0.25, 3};
    matrix A(4, 4);
    double b[4] = {0, 0, 0, 0};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            A[i][j] = a[i][j];
            b[i] += a[i][j] * xTrue[j];
        }
    std::vector<int> pivot;
    ASSERT_EQ(lu_decomposition(A, pivot), 0);
    lu_solve(A, pivot, b);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(b[i], xTrue[i], 1e-13);
    // The same factors solve a second right-hand side: column 2 of A gives unit vector 2.
    double e[4] = {a[0][2], a[1][2], a[2][2], a[3][2]};
    lu_solve(A, pivot, e);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(e[i], i == 2 ? 1.0 : 0.0, 1e-14);

    matrix S(3, 3);
    const double rows[3][3] = {{1, 2, 3}, {2, 4, 6}, {0, 1, 1}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) S[i][j] = rows[i][j];
    EXPECT_EQ(lu_decomposition(S, pivot), -1);
    EXPECT_FALSE(LastLUDecompositionError().empty());
}

TEST(Complex, ThreeByThreeInverseTimesTheMatrixIsTheIdentityAndSolvesBack) {
    complex3x3 A;
    A[0] = {complex{2, 1}, complex{0, -1}, complex{1, 0}};
    A[1] = {complex{1, 0}, complex{3, 0}, complex{0, 2}};
    A[2] = {complex{0, 0}, complex{1, 1}, complex{4, -1}};
    const complex3x3 Ainv = comkering3x3(A);
    for (const complex3x3& P : {cproduct3x3(Ainv, A), cproduct3x3(A, Ainv)})
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                EXPECT_NEAR(P[i][j].re, i == j ? 1.0 : 0.0, 1e-14) << i << "," << j;
                EXPECT_NEAR(P[i][j].im, 0.0, 1e-14) << i << "," << j;
            }
    // A x by hand: (4+2i, -1+5i, 4+4i) for x = (1, i, 1+i); the inverse takes it back to x.
    const complex3 x{complex{1, 0}, complex{0, 1}, complex{1, 1}};
    const complex3 y = cproduct3x1(A, x);
    const complex3 yHand{complex{4, 2}, complex{-1, 5}, complex{4, 4}};
    const complex3 back = cproduct3x1(Ainv, y);
    for (int i = 0; i < 3; ++i) {
        EXPECT_DOUBLE_EQ(y[i].re, yHand[i].re) << i;
        EXPECT_DOUBLE_EQ(y[i].im, yHand[i].im) << i;
        EXPECT_NEAR(back[i].re, x[i].re, 1e-14) << i;
        EXPECT_NEAR(back[i].im, x[i].im, 1e-14) << i;
    }
}

} // namespace
} // namespace tervo
