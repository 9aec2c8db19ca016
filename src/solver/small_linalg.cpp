// The small numerical building blocks of the solvers.
#include "solver/small_linalg.h"

#include <cmath>
#include <utility>

namespace tervo {

namespace {

size_t RowLength(int n) {
    return static_cast<size_t>(n > 0 ? n : 0);
}

// The minor of row i and column j: the remaining rows and columns, in order.
template <typename M>
auto Minor(const M& A, int i, int j) {
    const int r0 = i == 0 ? 1 : 0, r1 = i == 2 ? 1 : 2;
    const int c0 = j == 0 ? 1 : 0, c1 = j == 2 ? 1 : 2;
    return std::array{A[r0][c0], A[r0][c1], A[r1][c0], A[r1][c1]};
}

std::string lastLUError;

} // namespace

// ---------------------------------------------------------------------------------------------

matrix_2x2 identity_2x2() {
    matrix_2x2 I;
    I[0][0] = I[1][1] = 1;
    return I;
}

matrix_3x3 identity_3x3() {
    matrix_3x3 I;
    I[0][0] = I[1][1] = I[2][2] = 1;
    return I;
}

vector_2x1 add_2x1(const vector_2x1& a, const vector_2x1& b) {
    return {{a[0] + b[0], a[1] + b[1]}};
}

vector_3x1 add_3x1(const vector_3x1& a, const vector_3x1& b) {
    return {{a[0] + b[0], a[1] + b[1], a[2] + b[2]}};
}

vector_2x1 subtract_2x1(const vector_2x1& a, const vector_2x1& b) {
    return {{a[0] - b[0], a[1] - b[1]}};
}

vector_2x1 multiply_2matrix_x_2vector(const matrix_2x2& A, const vector_2x1& x) {
    return {{A[0][0] * x[0] + A[0][1] * x[1], A[1][0] * x[0] + A[1][1] * x[1]}};
}

matrix_2x2 copy_2x2(const matrix_2x2& A) {
    return A;
}
matrix_3x3 copy_3x3(const matrix_3x3& A) {
    return A;
}

double determinant(const matrix_2x2& A) {
    return A[0][0] * A[1][1] - A[0][1] * A[1][0];
}

matrix_2x2 minus_2x2(const matrix_2x2& A) {
    matrix_2x2 B;
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j) B[i][j] = -A[i][j];
    return B;
}

matrix_3x3 minus_3x3(const matrix_3x3& A) {
    matrix_3x3 B;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) B[i][j] = -A[i][j];
    return B;
}

matrix_2x2 add_2x2(const matrix_2x2& A, const matrix_2x2& B) {
    matrix_2x2 C;
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j) C[i][j] = A[i][j] + B[i][j];
    return C;
}

matrix_3x3 add_3x3(const matrix_3x3& A, const matrix_3x3& B) {
    matrix_3x3 C;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) C[i][j] = A[i][j] + B[i][j];
    return C;
}

matrix_2x2 subtract_2x2(const matrix_2x2& A, const matrix_2x2& B) {
    matrix_2x2 C;
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j) C[i][j] = A[i][j] - B[i][j];
    return C;
}

matrix_2x2 multiply_2matrix_x_2matrix(const matrix_2x2& A, const matrix_2x2& B) {
    matrix_2x2 C;
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j) C[i][j] = A[i][0] * B[0][j] + A[i][1] * B[1][j];
    return C;
}

matrix_2x2 invert_2x2(const matrix_2x2& A) {
    const double det = determinant(A);
    matrix_2x2 B;
    B[0][0] = A[1][1] / det;
    B[0][1] = -A[0][1] / det;
    B[1][0] = -A[1][0] / det;
    B[1][1] = A[0][0] / det;
    return B;
}

int sign(double x) {
    return x > 0 ? 1 : (x < 0 ? -1 : 0);
}

// ---------------------------------------------------------------------------------------------

std::vector<vector_2x1> row_of_2x1_vectors(int n) {
    return std::vector<vector_2x1>(RowLength(n));
}
std::vector<vector_3x1> row_of_3x1_vectors(int n) {
    return std::vector<vector_3x1>(RowLength(n));
}
std::vector<matrix_2x2> row_of_2x2_matrices(int n) {
    return std::vector<matrix_2x2>(RowLength(n));
}
std::vector<matrix_3x3> row_of_3x3_matrices(int n) {
    return std::vector<matrix_3x3>(RowLength(n));
}

// ---------------------------------------------------------------------------------------------

int LUDecompositionError(const std::string& text) {
    lastLUError = text;
    return -1;
}

const std::string& LastLUDecompositionError() {
    return lastLUError;
}

int lu_decomposition(matrix& A, std::vector<int>& pivot) {
    const int n = A.r;
    pivot.resize(RowLength(n));
    for (int i = 0; i < n; ++i) pivot[static_cast<size_t>(i)] = i;
    if (A.c != n) return LUDecompositionError("lu_decomposition: matrix is not square");
    for (int k = 0; k < n; ++k) {
        int best = k;
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(A[i][k]) > std::fabs(A[best][k])) best = i;
        if (A[best][k] == 0.0) return LUDecompositionError("lu_decomposition: zero pivot, singular matrix");
        if (best != k) {
            for (int j = 0; j < n; ++j) std::swap(A[k][j], A[best][j]);
            std::swap(pivot[static_cast<size_t>(k)], pivot[static_cast<size_t>(best)]);
        }
        for (int i = k + 1; i < n; ++i) {
            const double l = A[i][k] / A[k][k];
            A[i][k] = l;
            for (int j = k + 1; j < n; ++j) A[i][j] -= l * A[k][j];
        }
    }
    return 0;
}

void lu_solve(const matrix& LU, const std::vector<int>& pivot, double* b) {
    const int n = LU.r;
    std::vector<double> y(RowLength(n));
    for (int i = 0; i < n; ++i) {
        double s = b[pivot[static_cast<size_t>(i)]];
        for (int j = 0; j < i; ++j) s -= LU[i][j] * y[static_cast<size_t>(j)];
        y[static_cast<size_t>(i)] = s;
    }
    for (int i = n - 1; i >= 0; --i) {
        double s = y[static_cast<size_t>(i)];
        for (int j = i + 1; j < n; ++j) s -= LU[i][j] * b[j];
        b[i] = s / LU[i][i];
    }
}

// ---------------------------------------------------------------------------------------------

complex cplus(complex a, complex b) {
    return {a.re + b.re, a.im + b.im};
}
complex cmin(complex a, complex b) {
    return {a.re - b.re, a.im - b.im};
}
complex cproduct(complex a, complex b) {
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
double c_norm(complex a) {
    return a.re * a.re + a.im * a.im;
}
complex cmaald(complex a, double d) {
    return {a.re * d, a.im * d};
}

complex cdeling(complex a, complex b) {
    const double n = c_norm(b);
    const complex num = cproduct(a, {b.re, -b.im});
    return {num.re / n, num.im / n};
}

complex3x3 cidentity3x3() {
    complex3x3 I;
    for (int i = 0; i < 3; ++i) I[i][i] = {1, 0};
    return I;
}

complex3x3 cplus3x3(const complex3x3& A, const complex3x3& B) {
    complex3x3 C;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) C[i][j] = cplus(A[i][j], B[i][j]);
    return C;
}

complex3x3 cmin3x3(const complex3x3& A, const complex3x3& B) {
    complex3x3 C;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) C[i][j] = cmin(A[i][j], B[i][j]);
    return C;
}

complex3x3 cproduct3x3(const complex3x3& A, const complex3x3& B) {
    complex3x3 C;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            complex s;
            for (int k = 0; k < 3; ++k) s = cplus(s, cproduct(A[i][k], B[k][j]));
            C[i][j] = s;
        }
    return C;
}

complex3 cproduct3x1(const complex3x3& A, const complex3& x) {
    complex3 y;
    for (int i = 0; i < 3; ++i) {
        complex s;
        for (int k = 0; k < 3; ++k) s = cplus(s, cproduct(A[i][k], x[k]));
        y[i] = s;
    }
    return y;
}

complex3 cplus3x1(const complex3& a, const complex3& b) {
    complex3 c;
    for (int i = 0; i < 3; ++i) c[i] = cplus(a[i], b[i]);
    return c;
}

complex3 cmin3x1(const complex3& a, const complex3& b) {
    complex3 c;
    for (int i = 0; i < 3; ++i) c[i] = cmin(a[i], b[i]);
    return c;
}

complex3x3 comkering3x3(const complex3x3& A) {
    // Cofactor of (i, j): the determinant of the minor with the checkerboard sign.
    complex3x3 cof;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const auto m = Minor(A, i, j);
            const complex minor = cmin(cproduct(m[0], m[3]), cproduct(m[1], m[2]));
            cof[i][j] = (i + j) % 2 == 0 ? minor : cmaald(minor, -1);
        }
    complex det;
    for (int j = 0; j < 3; ++j) det = cplus(det, cproduct(A[0][j], cof[0][j]));
    complex3x3 inv;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) inv[j][i] = cdeling(cof[i][j], det);
    return inv;
}

void cmaal3x3xn(complex3x3* A, double d, int n) {
    for (int p = 0; p < n; ++p)
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) A[p][i][j] = cmaald(A[p][i][j], d);
}

void cplus3x3xn(complex3x3* A, const complex3x3* B, int n) {
    for (int p = 0; p < n; ++p) A[p] = cplus3x3(A[p], B[p]);
}

void nul3x3xn(complex3x3* A, int n) {
    for (int p = 0; p < n; ++p) A[p] = complex3x3{};
}

} // namespace tervo
