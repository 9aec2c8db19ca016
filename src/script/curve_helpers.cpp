#include "script/curve_helpers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace tervo {

namespace {

constexpr double NOTHING_COMPARED = 1e60;

double NotANumber() {
    return std::numeric_limits<double>::quiet_NaN();
}

// The slope of the chord from point a to point b; for equal abscissae 0 when the ordinates agree
// too, else not-a-number.
double Chord(const double* x, const double* y, int a, int b) {
    if (x[b] == x[a]) return y[b] == y[a] ? 0.0 : NotANumber();
    return (y[b] - y[a]) / (x[b] - x[a]);
}

// The first of the three neighbouring points that a local parabola at point i uses.
int TripleStart(int i, int n) {
    if (i <= 1) return 0;
    if (i >= n - 2) return n - 3;
    return i - 1;
}

// Integrals of the parabola through (l, m, r) over its left interval [x_l, x_m] and its right
// interval [x_m, x_r], with a = x_m - x_l and b = x_r - x_m.  An interval of no width holds nothing;
// when the other interval has no width the parabola is undetermined and the trapezoid takes over.
double LeftIntegral(const double* x, const double* y, int l) {
    const int m = l + 1, r = l + 2;
    const double a = x[m] - x[l], b = x[r] - x[m];
    if (a == 0) return 0;
    if (b == 0) return (y[m] + y[l]) * a / 2;
    return (-a * a * a * y[r] / (b * (a + b)) + (3 * b + a) * a * y[m] / b +
            (3 * b + 2 * a) * a * y[l] / (a + b)) /
           6;
}

double RightIntegral(const double* x, const double* y, int l) {
    const int m = l + 1, r = l + 2;
    const double a = x[m] - x[l], b = x[r] - x[m];
    if (b == 0) return 0;
    if (a == 0) return (y[r] + y[m]) * b / 2;
    return ((3 * a + 2 * b) * b * y[r] / (a + b) + (3 * a + b) * b * y[m] / a -
            b * b * b * y[l] / (a * (a + b))) /
           6;
}

// The smallest and largest abscissa of a curve; 1e60 and -1e60 for an empty one.
void Extent(const std::vector<double>& x, double& lo, double& hi) {
    lo = NOTHING_COMPARED;
    hi = -NOTHING_COMPARED;
    for (const double v : x) {
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
}

double ChiSquare(const std::vector<double>& x1, const std::vector<double>& y1, const std::vector<double>& x2,
                 const std::vector<double>& y2) {
    double lo1 = 0, hi1 = 0, lo2 = 0, hi2 = 0;
    Extent(x1, lo1, hi1);
    Extent(x2, lo2, hi2);
    const double lo = std::max(lo1, lo2), hi = std::min(hi1, hi2);
    const int n2 = static_cast<int>(x2.size());
    double e = 0, s = 0;
    int compared = 0;
    for (size_t i = 0; i < x1.size(); ++i) {
        if (x1[i] < lo || x1[i] > hi) continue;
        const double d = y1[i] - MathInterpolate(y2.data(), x1[i], x2.data(), n2);
        e += d * d;
        s += y1[i] * y1[i];
        ++compared;
    }
    if (compared == 0) return NOTHING_COMPARED;
    return s == 0 ? e : e / s;
}

std::vector<double> Copy(const double* v, int n) {
    return n > 0 ? std::vector<double>(v, v + n) : std::vector<double>{};
}

// The points of a curve with y above 0, with ln y.
void PositivePart(const double* x, const double* y, int n, std::vector<double>& xs, std::vector<double>& ys) {
    xs.clear();
    ys.clear();
    for (int i = 0; i < n; ++i) {
        if (!(y[i] > 0)) continue;
        xs.push_back(x[i]);
        ys.push_back(std::log(y[i]));
    }
}

} // namespace

double MathInterpolate(const double* y, double x0, const double* x, int n) {
    if (n <= 0) return 0;
    if (x[0] == x0) return y[0];
    for (int i = 1; i < n; ++i) {
        if (x[i] == x0) return y[i];
        const bool inside = (x[i - 1] < x0 && x0 < x[i]) || (x[i] < x0 && x0 < x[i - 1]);
        if (inside) return (y[i] * (x0 - x[i - 1]) + y[i - 1] * (x[i] - x0)) / (x[i] - x[i - 1]);
    }
    return y[0];
}

int MathClosestIndex(double x0, const double* v, int n) {
    if (n <= 0) return -1;
    int best = 0;
    double distance = NOTHING_COMPARED;
    for (int i = 0; i < n; ++i) {
        const double d = std::fabs(x0 - v[i]);
        if (d < distance) {
            distance = d;
            best = i;
        }
    }
    return best;
}

void MathIntegrate(double* out, const double* x, const double* y, int n) {
    if (n <= 0) return;
    out[0] = 0;
    if (n == 1) return;
    if (n == 2) {
        out[1] = x[1] == x[0] ? 0.0 : (x[1] - x[0]) * (y[0] + y[1]) / 2;
        return;
    }
    double previousRight = 0;
    for (int i = 1; i < n; ++i) {
        const int l = TripleStart(i, n);
        const double left = LeftIntegral(x, y, l);
        if (i == 1)
            out[1] = left;
        else if (i < n - 1)
            out[i] = out[i - 1] + (previousRight + left) / 2;
        else
            out[i] = out[i - 1] + previousRight;
        previousRight = RightIntegral(x, y, l);
    }
}

void MathDifferentiate(double* out, const double* x, const double* y, int n) {
    if (n <= 0) return;
    if (n == 1) {
        out[0] = 0;
        return;
    }
    if (n == 2) {
        out[0] = out[1] = Chord(x, y, 0, 1);
        return;
    }
    for (int i = 0; i < n; ++i) {
        const int l = i == 0 ? 0 : (i == n - 1 ? n - 3 : i - 1);
        const int m = l + 1, r = l + 2;
        if (x[l] == x[m] && x[m] == x[r]) {
            out[i] = y[l] == y[m] && y[m] == y[r] ? 0.0 : NotANumber();
        } else if (x[m] == x[r]) {
            out[i] = Chord(x, y, l, m);
        } else if (x[m] == x[l]) {
            out[i] = Chord(x, y, m, r);
        } else if (x[l] == x[r]) {
            // Two ordinates at one abscissa: no parabola y(x) passes through the three points.
            out[i] = NotANumber();
        } else {
            // The derivative of the Lagrange parabola at x[i].
            const double t = x[i];
            out[i] = y[l] * (2 * t - x[m] - x[r]) / ((x[l] - x[m]) * (x[l] - x[r])) +
                     y[m] * (2 * t - x[l] - x[r]) / ((x[m] - x[l]) * (x[m] - x[r])) +
                     y[r] * (2 * t - x[l] - x[m]) / ((x[r] - x[l]) * (x[r] - x[m]));
        }
    }
}

double Chi_square(const double* x1, const double* y1, int n1, const double* x2, const double* y2, int n2) {
    return ChiSquare(Copy(x1, n1), Copy(y1, n1), Copy(x2, n2), Copy(y2, n2));
}

double Chi_square_log(const double* x1, const double* y1, int n1, const double* x2, const double* y2,
                      int n2) {
    std::vector<double> a, b, c, d;
    PositivePart(x1, y1, n1, a, b);
    PositivePart(x2, y2, n2, c, d);
    return ChiSquare(a, b, c, d);
}

} // namespace tervo
