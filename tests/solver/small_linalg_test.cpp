// Small vectors and matrices, LU and complex arithmetic of the solvers.
#include "solver/small_linalg.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tervo {
namespace {

template <typename M>
void ExpectIdentity(const M& A, int n, double tol) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) EXPECT_NEAR(A[i][j], i == j ? 1.0 : 0.0, tol) << i << "," << j;
}

TEST(SmallMatrices, TwoByTwoDeterminantInverseAndOrderOfProducts) {
    EXPECT_EQ(determinant(identity_2x2()), 1.0);
    matrix_2x2 D;
    D[0][0] = 4;
    D[1][1] = -0.5;
    const matrix_2x2 Dinv = invert_2x2(D);
    EXPECT_EQ(Dinv[0][0], 0.25);
    EXPECT_EQ(Dinv[1][1], -2.0);
    EXPECT_EQ(Dinv[0][1], 0.0);

    matrix_2x2 A;
    A[0] = {1, 2};
    A[1] = {3, 4};
    matrix_2x2 B;
    B[0] = {0, 1};
    B[1] = {5, -1};
    EXPECT_EQ(determinant(A), -2.0);
    const matrix_2x2 AB = multiply_2matrix_x_2matrix(A, B);
    EXPECT_EQ(AB[0][0], 10);
    EXPECT_EQ(AB[0][1], -1);
    EXPECT_EQ(AB[1][0], 20);
    EXPECT_EQ(AB[1][1], -1);
    const matrix_2x2 BA = multiply_2matrix_x_2matrix(B, A);
    EXPECT_EQ(BA[0][0], 3); // B * A differs
    ExpectIdentity(multiply_2matrix_x_2matrix(invert_2x2(A), A), 2, 1e-15);
    ExpectIdentity(multiply_2matrix_x_2matrix(A, invert_2x2(A)), 2, 1e-15);

    const matrix_2x2 S = subtract_2x2(add_2x2(A, B), minus_2x2(B)); // A + 2B
    EXPECT_EQ(S[1][0], 13);
    const vector_2x1 y = multiply_2matrix_x_2vector(A, vector_2x1{{1, -1}});
    EXPECT_EQ(y[0], -1);
    EXPECT_EQ(y[1], -1);
}

TEST(SmallMatrices, ThreeByThreeCofactorsAndInverse) {
    matrix_3x3 A;
    A[0] = {2, -1, 0};
    A[1] = {1, 3, 4};
    A[2] = {0, 5, -2};
    // Expansion along the first row: 2(3*-2 - 4*5) + 1(1*-2 - 0) = -52 - 2 = -54.
    EXPECT_EQ(determinant_3x3(A), -54.0);
    EXPECT_EQ(determinant_minor(A, 1, 2), 10.0); // rows 0,2 and columns 0,1: 2*5 - (-1)*0
    EXPECT_EQ(determinant_minor(A, 2, 0), -4.0); // rows 0,1 and columns 1,2: -1*4 - 0*3
    EXPECT_EQ(determinant_3x3(identity_3x3()), 1.0);

    const matrix_3x3 Ainv = invert_3x3(A, determinant_3x3(A));
    ExpectIdentity(multiply_3matrix_x_3matrix(Ainv, A), 3, 1e-14);
    ExpectIdentity(multiply_3matrix_x_3matrix(A, Ainv), 3, 1e-14);

    matrix_3x3 B;
    B[0] = {1, 0, 0};
    B[1] = {0, 0, 1};
    B[2] = {0, 1, 0}; // exchanges columns 1 and 2 from the right, rows from the left
    const matrix_3x3 AB = multiply_3matrix_x_3matrix(A, B);
    const matrix_3x3 BA = multiply_3matrix_x_3matrix(B, A);
    EXPECT_EQ(AB[1][1], 4);
    EXPECT_EQ(AB[1][2], 3);
    EXPECT_EQ(BA[1][1], 5);
    EXPECT_EQ(BA[2][1], 3);

    const vector_3x1 x{{1, 2, 3}};
    const vector_3x1 y = multiply_3matrix_x_3vector(A, x);
    EXPECT_EQ(y[0], 0);
    EXPECT_EQ(y[1], 19);
    EXPECT_EQ(y[2], 4);
    const matrix_3x3 C = subtract_3x3(add_3x3(A, A), copy_3x3(A));
    const matrix_3x3 N = add_3x3(C, minus_3x3(A));
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(N[i][j], 0.0);
    EXPECT_EQ(subtract_3x1(add_3x1(x, y), y)[2], 3);
}

TEST(LU, SolvesKnownSystemsWithRowExchanges) {
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

    // The same factors solve a second right-hand side.
    double e[4] = {a[0][2], a[1][2], a[2][2], a[3][2]}; // column 2: the solution is unit vector 2
    lu_solve(A, pivot, e);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(e[i], i == 2 ? 1.0 : 0.0, 1e-14);
}

TEST(LU, SingularMatrixFailsWithoutReplacingThePivot) {
    matrix A(3, 3);
    const double rows[3][3] = {{1, 2, 3}, {2, 4, 6}, {0, 1, 1}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) A[i][j] = rows[i][j];
    std::vector<int> pivot;
    EXPECT_EQ(lu_decomposition(A, pivot), -1);
    EXPECT_FALSE(LastLUDecompositionError().empty());
    EXPECT_EQ(
        LUDecompositionError("bereken_delta_u_of_v_Gummel: main[0] = 0 at left contact, at start algorithm"),
        -1);
    EXPECT_EQ(LastLUDecompositionError(),
              "bereken_delta_u_of_v_Gummel: main[0] = 0 at left contact, at start algorithm");
}

TEST(Complex, ScalarArithmeticAndDivision) {
    const complex a{3, 4}, b{1, -2};
    const complex q = cdeling(a, b); // (3+4i)(1+2i)/5 = (-5+10i)/5
    EXPECT_DOUBLE_EQ(q.re, -1);
    EXPECT_DOUBLE_EQ(q.im, 2);
    const complex back = cproduct(q, b);
    EXPECT_DOUBLE_EQ(back.re, 3);
    EXPECT_DOUBLE_EQ(back.im, 4);
    EXPECT_EQ(c_norm(a), 25);
    EXPECT_EQ(cmin(a, b).im, 6);
    EXPECT_EQ(cplus(a, b).re, 4);
    EXPECT_EQ(cmaald(a, -2).im, -8);
    const complex z = cdeling(a, complex{0, 0});
    EXPECT_FALSE(std::isfinite(z.re) && std::isfinite(z.im));
}

TEST(Complex, ThreeByThreeInverseAndProducts) {
    complex3x3 A;
    A[0] = {complex{2, 1}, complex{0, -1}, complex{1, 0}};
    A[1] = {complex{1, 0}, complex{3, 0}, complex{0, 2}};
    A[2] = {complex{0, 0}, complex{1, 1}, complex{4, -1}};
    const complex3x3 Ainv = comkering3x3(A);
    for (const complex3x3& P : {cproduct3x3(Ainv, A), cproduct3x3(A, Ainv)})
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                EXPECT_NEAR(P[i][j].re, i == j ? 1.0 : 0.0, 1e-14);
                EXPECT_NEAR(P[i][j].im, 0.0, 1e-14);
            }

    // A x against a hand computation, and the solve through the inverse back to x.
    complex3 x;
    x[0] = {1, 0};
    x[1] = {0, 1};
    x[2] = {1, 1};
    const complex3 y = cproduct3x1(A, x);
    // Row 0: (2+i) + (-i)(i) + (1+i) = 4+2i; row 1: 1 + 3i + 2i(1+i) = -1+5i; row 2: (1+i)i + (4-i)(1+i) =
    // 4+4i.
    EXPECT_DOUBLE_EQ(y[0].re, 4);
    EXPECT_DOUBLE_EQ(y[0].im, 2);
    EXPECT_DOUBLE_EQ(y[1].re, -1);
    EXPECT_DOUBLE_EQ(y[1].im, 5);
    EXPECT_DOUBLE_EQ(y[2].re, 4);
    EXPECT_DOUBLE_EQ(y[2].im, 4);
    const complex3 xs = cproduct3x1(Ainv, y);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(xs[i].re, x[i].re, 1e-14);
        EXPECT_NEAR(xs[i].im, x[i].im, 1e-14);
    }
    const complex3 d = cmin3x1(cplus3x1(y, x), y);
    EXPECT_EQ(d[2].im, 1);

    const complex3x3 I = cidentity3x3();
    const complex3x3 Z = cmin3x3(cplus3x3(A, I), A);
    EXPECT_EQ(Z[1][1].re, 1);
    EXPECT_EQ(Z[0][1].im, 0);
}

} // namespace
} // namespace tervo
