// The small numerical building blocks of the solvers: 2- and 3-vectors, 2x2 and 3x3 matrices, rows of
// them per mesh point, tridiagonal storage, a dense matrix with an LU solve, and complex scalars,
// 3-vectors and 3x3 matrices for the small-signal system.
//
// Everything is a value: a result is a new object, and a row is a std::vector that owns its
// elements.  The 3x3 operations of the coupled block solve are inline: they run at every mesh point of
// every Newton step.  Matrices are indexed A[row][column], rows and columns in the order of the unknowns
// (psi, u, v for the 3x3 blocks).
#pragma once

#include <array>
#include <string>
#include <vector>

namespace tervo {

// ---------------------------------------------------------------------------------------------
// Real vectors and matrices of size 2 and 3.

struct vector_2x1 {
    std::array<double, 2> v{};
    double& operator[](int i) { return v[static_cast<size_t>(i)]; }
    double operator[](int i) const { return v[static_cast<size_t>(i)]; }
};

struct vector_3x1 {
    std::array<double, 3> v{};
    double& operator[](int i) { return v[static_cast<size_t>(i)]; }
    double operator[](int i) const { return v[static_cast<size_t>(i)]; }
};

struct matrix_2x2 {
    std::array<std::array<double, 2>, 2> m{};
    std::array<double, 2>& operator[](int i) { return m[static_cast<size_t>(i)]; }
    const std::array<double, 2>& operator[](int i) const { return m[static_cast<size_t>(i)]; }
};

struct matrix_3x3 {
    std::array<std::array<double, 3>, 3> m{};
    std::array<double, 3>& operator[](int i) { return m[static_cast<size_t>(i)]; }
    const std::array<double, 3>& operator[](int i) const { return m[static_cast<size_t>(i)]; }
};

matrix_2x2 identity_2x2();
matrix_3x3 identity_3x3();

vector_2x1 add_2x1(const vector_2x1& a, const vector_2x1& b);
vector_3x1 add_3x1(const vector_3x1& a, const vector_3x1& b);
vector_2x1 subtract_2x1(const vector_2x1& a, const vector_2x1& b); // a - b
inline vector_3x1 subtract_3x1(const vector_3x1& a, const vector_3x1& b) {
    return {{a[0] - b[0], a[1] - b[1], a[2] - b[2]}};
}
vector_2x1 multiply_2matrix_x_2vector(const matrix_2x2& A, const vector_2x1& x);
inline vector_3x1 multiply_3matrix_x_3vector(const matrix_3x3& A, const vector_3x1& x) {
    vector_3x1 y;
    for (int i = 0; i < 3; ++i) y[i] = A[i][0] * x[0] + A[i][1] * x[1] + A[i][2] * x[2];
    return y;
}

matrix_2x2 copy_2x2(const matrix_2x2& A);
matrix_3x3 copy_3x3(const matrix_3x3& A);
double determinant(const matrix_2x2& A);
// Determinant of the 2x2 matrix left when row i and column j are struck from A.
inline double determinant_minor(const matrix_3x3& A, int i, int j) {
    const int r0 = i == 0 ? 1 : 0, r1 = i == 2 ? 1 : 2;
    const int c0 = j == 0 ? 1 : 0, c1 = j == 2 ? 1 : 2;
    return A[r0][c0] * A[r1][c1] - A[r0][c1] * A[r1][c0];
}
inline double determinant_3x3(const matrix_3x3& A) {
    return A[0][0] * determinant_minor(A, 0, 0) - A[0][1] * determinant_minor(A, 0, 1) +
           A[0][2] * determinant_minor(A, 0, 2);
}
matrix_2x2 minus_2x2(const matrix_2x2& A); // -A
matrix_3x3 minus_3x3(const matrix_3x3& A);
matrix_2x2 add_2x2(const matrix_2x2& A, const matrix_2x2& B);
matrix_3x3 add_3x3(const matrix_3x3& A, const matrix_3x3& B);
matrix_2x2 subtract_2x2(const matrix_2x2& A, const matrix_2x2& B); // A - B
inline matrix_3x3 subtract_3x3(const matrix_3x3& A, const matrix_3x3& B) {
    matrix_3x3 C;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) C[i][j] = A[i][j] - B[i][j];
    return C;
}
matrix_2x2 multiply_2matrix_x_2matrix(const matrix_2x2& A, const matrix_2x2& B); // A * B
// A * B
inline matrix_3x3 multiply_3matrix_x_3matrix(const matrix_3x3& A, const matrix_3x3& B) {
    matrix_3x3 C;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) C[i][j] = A[i][0] * B[0][j] + A[i][1] * B[1][j] + A[i][2] * B[2][j];
    return C;
}
// Inverse as adjugate over determinant.  The caller tests the determinant for 0.0 first; a singular
// matrix gives non-finite elements.
matrix_2x2 invert_2x2(const matrix_2x2& A);
// Inverse by cofactors over the determinant `det` that the caller computed (determinant_3x3): the
// transposed matrix of cofactors over the determinant.
inline matrix_3x3 invert_3x3(const matrix_3x3& A, double det) {
    matrix_3x3 B;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const double cofactor = ((i + j) % 2 == 0 ? 1.0 : -1.0) * determinant_minor(A, i, j);
            B[j][i] = cofactor / det;
        }
    return B;
}

// 1, -1 or 0 by the sign of x.
int sign(double x);

// ---------------------------------------------------------------------------------------------
// Rows over the mesh.  A negative length counts as 0.

std::vector<vector_2x1> row_of_2x1_vectors(int n);
std::vector<vector_3x1> row_of_3x1_vectors(int n);
std::vector<matrix_2x2> row_of_2x2_matrices(int n);
std::vector<matrix_3x3> row_of_3x3_matrices(int n);

// One 2-vector (u, v) per mesh point.
struct uv_row {
    std::vector<vector_2x1> x;
    uv_row() = default;
    explicit uv_row(int n) : x(row_of_2x1_vectors(n)) {}
    vector_2x1& operator[](int i) { return x[static_cast<size_t>(i)]; }
    const vector_2x1& operator[](int i) const { return x[static_cast<size_t>(i)]; }
};

// Block tridiagonal matrix: per mesh point i the diagonal block main[i], the block sub[i] that
// couples to point i-1 and super[i] that couples to point i+1.  (The 3x3 form of the coupled
// iteration is in solver/coupled_newton.h.)
struct uv_trimatrix {
    std::vector<matrix_2x2> main, sub, super;
    uv_trimatrix() = default;
    explicit uv_trimatrix(int n)
        : main(row_of_2x2_matrices(n)), sub(row_of_2x2_matrices(n)), super(row_of_2x2_matrices(n)) {}
};

// Scalar tridiagonal matrix: row i holds A[i][0] sub, A[i][1] main, A[i][2] super.
struct trimatrix {
    std::vector<std::array<double, 3>> rows;
    trimatrix() = default;
    explicit trimatrix(int n) : rows(static_cast<size_t>(n > 0 ? n : 0)) {}
    std::array<double, 3>& operator[](int i) { return rows[static_cast<size_t>(i)]; }
    const std::array<double, 3>& operator[](int i) const { return rows[static_cast<size_t>(i)]; }
    int size() const { return static_cast<int>(rows.size()); }
};

// Dense matrix of r rows and c columns, stored row after row; A[i][j] as for the small ones.
struct matrix {
    int r = 0;
    int c = 0;
    std::vector<double> data;
    matrix() = default;
    matrix(int rows, int columns)
        : r(rows > 0 ? rows : 0), c(columns > 0 ? columns : 0), data(static_cast<size_t>(r) * c) {}
    double* operator[](int i) { return data.data() + static_cast<size_t>(i) * c; }
    const double* operator[](int i) const { return data.data() + static_cast<size_t>(i) * c; }
};

// ---------------------------------------------------------------------------------------------
// LU.

// Marks the failure of an elimination at a zero pivot and returns -1, for the caller to return.
// There is no screen in this build: the signal is the text, kept for LastLUDecompositionError.
int LUDecompositionError(const std::string& text);
const std::string& LastLUDecompositionError();

// LU factorisation in place of a square matrix with row exchanges (partial pivoting); `pivot`
// receives the row order.  0, or -1 through LUDecompositionError when a column has no non-zero
// pivot (the matrix is singular).
int lu_decomposition(matrix& A, std::vector<int>& pivot);
// Solves LU x = P b in place of b (n = A.r values) with the factors of lu_decomposition.
void lu_solve(const matrix& LU, const std::vector<int>& pivot, double* b);

// ---------------------------------------------------------------------------------------------
// Complex numbers for the small-signal system.

struct complex {
    double re = 0;
    double im = 0;
};

struct complex3 {
    std::array<complex, 3> v{};
    complex& operator[](int i) { return v[static_cast<size_t>(i)]; }
    const complex& operator[](int i) const { return v[static_cast<size_t>(i)]; }
};

struct complex3x3 {
    std::array<std::array<complex, 3>, 3> m{};
    std::array<complex, 3>& operator[](int i) { return m[static_cast<size_t>(i)]; }
    const std::array<complex, 3>& operator[](int i) const { return m[static_cast<size_t>(i)]; }
};

complex cplus(complex a, complex b);
complex cmin(complex a, complex b); // a - b
complex cproduct(complex a, complex b);
// a / b through the conjugate of b over c_norm(b).  Division by 0 is not guarded: the result is
// then not finite.
complex cdeling(complex a, complex b);
double c_norm(complex a); // squared modulus
complex cmaald(complex a, double d);

complex3x3 cidentity3x3();
complex3x3 cplus3x3(const complex3x3& A, const complex3x3& B);
complex3x3 cmin3x3(const complex3x3& A, const complex3x3& B);     // A - B
complex3x3 cproduct3x3(const complex3x3& A, const complex3x3& B); // A * B
complex3 cproduct3x1(const complex3x3& A, const complex3& x);     // A x
complex3 cplus3x1(const complex3& a, const complex3& b);
complex3 cmin3x1(const complex3& a, const complex3& b); // a - b
// Inverse by cofactors, the determinant computed inside.  A singular matrix is not guarded: the
// result is then not finite.
complex3x3 comkering3x3(const complex3x3& A);

// Over n mesh points: every element of A[i] times d; A[i] += B[i]; A[i] = 0.
void cmaal3x3xn(complex3x3* A, double d, int n);
void cplus3x3xn(complex3x3* A, const complex3x3* B, int n);
void nul3x3xn(complex3x3* A, int n);

} // namespace tervo
