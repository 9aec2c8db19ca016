// Numerical helpers: least-squares polynomial, sort, median, extremes, polar form, complex division.
#include "platform/analysis.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tervo {

int PolyFit(const double* x, const double* y, int n, int order, double* fitted, double* coefficients,
            double& mse) {
    if (order < 0 || n < order + 1 || x == nullptr || y == nullptr || coefficients == nullptr) return -1;
    const std::size_t rows = static_cast<std::size_t>(n);
    const std::size_t cols = static_cast<std::size_t>(order) + 1;

    // The Vandermonde matrix, column-major, each column scaled to unit length so that the rank test
    // below does not depend on the units of x (a C-V fit has x in volts, a Mott-Schottky fit 1/C^2
    // in m^4/F^2).
    std::vector<double> a(rows * cols);
    std::vector<double> scale(cols);
    for (std::size_t j = 0; j < cols; ++j) {
        double norm2 = 0.0;
        for (std::size_t i = 0; i < rows; ++i) {
            const double v = std::pow(x[i], static_cast<double>(j));
            a[j * rows + i] = v;
            norm2 += v * v;
        }
        scale[j] = std::sqrt(norm2);
        if (!(scale[j] > 0.0) || !std::isfinite(scale[j])) return -1;
        for (std::size_t i = 0; i < rows; ++i) a[j * rows + i] /= scale[j];
    }
    std::vector<double> b(y, y + rows);

    // Householder QR: the least-squares solution without forming the ill-conditioned normal equations.
    std::vector<double> diagonal(cols);
    for (std::size_t j = 0; j < cols; ++j) {
        double norm2 = 0.0;
        for (std::size_t i = j; i < rows; ++i) norm2 += a[j * rows + i] * a[j * rows + i];
        const double norm = std::sqrt(norm2);
        // With unit columns, a remainder this small means the column is a combination of the
        // earlier ones: fewer distinct x than coefficients.
        if (norm < 1e-12) return -1;
        const double alpha = a[j * rows + j] > 0.0 ? -norm : norm;
        a[j * rows + j] -= alpha; // the column below the diagonal is now the Householder vector v
        double vv = 0.0;
        for (std::size_t i = j; i < rows; ++i) vv += a[j * rows + i] * a[j * rows + i];
        auto reflect = [&](double* column) {
            double dot = 0.0;
            for (std::size_t i = j; i < rows; ++i) dot += a[j * rows + i] * column[i];
            const double f = 2.0 * dot / vv;
            for (std::size_t i = j; i < rows; ++i) column[i] -= f * a[j * rows + i];
        };
        for (std::size_t k = j + 1; k < cols; ++k) reflect(&a[k * rows]);
        reflect(b.data());
        diagonal[j] = alpha;
    }

    // Back substitution in R c = Q^T b; R holds the diagonal apart and its upper part in a.
    std::vector<double> c(cols);
    for (std::size_t j = cols; j-- > 0;) {
        double s = b[j];
        for (std::size_t k = j + 1; k < cols; ++k) s -= a[k * rows + j] * c[k];
        c[j] = s / diagonal[j];
    }
    for (std::size_t j = 0; j < cols; ++j) coefficients[j] = c[j] / scale[j];

    double sum2 = 0.0;
    for (std::size_t i = 0; i < rows; ++i) {
        double value = 0.0;
        for (std::size_t j = cols; j-- > 0;) value = value * x[i] + coefficients[j];
        if (fitted != nullptr) fitted[i] = value;
        sum2 += (y[i] - value) * (y[i] - value);
    }
    mse = sum2 / static_cast<double>(n);
    return 0;
}

void Sort(double* values, int n) {
    if (values != nullptr && n > 1) std::sort(values, values + n);
}

double Median(const double* values, int n) {
    if (values == nullptr || n <= 0) return std::numeric_limits<double>::quiet_NaN();
    std::vector<double> copy(values, values + n);
    const std::size_t half = static_cast<std::size_t>(n) / 2;
    std::nth_element(copy.begin(), copy.begin() + static_cast<std::ptrdiff_t>(half), copy.end());
    const double upper = copy[half];
    if (n % 2 == 1) return upper;
    const double lower = *std::max_element(copy.begin(), copy.begin() + static_cast<std::ptrdiff_t>(half));
    return 0.5 * (lower + upper);
}

void MaxMin1D(const double* values, int n, double& max, int& maxIndex, double& min, int& minIndex) {
    max = min = 0.0;
    maxIndex = minIndex = -1;
    if (values == nullptr || n <= 0) return;
    maxIndex = minIndex = 0;
    max = min = values[0];
    for (int i = 1; i < n; ++i) {
        if (values[i] > max) {
            max = values[i];
            maxIndex = i;
        }
        if (values[i] < min) {
            min = values[i];
            minIndex = i;
        }
    }
}

void ToPolar(double re, double im, double& magnitude, double& phase) {
    magnitude = std::hypot(re, im);
    phase = std::atan2(im, re);
}

int TruncateToInt(double value) {
    if (std::isnan(value)) return 0;
    const double t = std::trunc(value);
    if (t >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
    if (t <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
    return static_cast<int>(t);
}

} // namespace tervo
