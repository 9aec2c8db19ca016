// Helpers on sampled curves: interpolation in either direction, the running
// integral and the derivative by local parabolas (exact for parabolas on any spacing), and the two
// Chi-square measures.  No command of the program calls them yet but interpolation: the few-point
// corners of the others wait for their callers.
#include "script/curve_helpers.h"

#include <gtest/gtest.h>

#include <vector>

namespace tervo {
namespace {

using Vec = std::vector<double>;

int N(const Vec& v) {
    return static_cast<int>(v.size());
}

// 3x^2 - 2x + 0.5 on uneven steps, its integral and its slope.
const Vec kX{-1.0, -0.7, 0.1, 0.15, 0.9, 2.0, 2.3};
double Parabola(double x) {
    return 3 * x * x - 2 * x + 0.5;
}

TEST(MathInterpolate, LinearInsideEitherDirectionExactOnPointsAndTheFirstOrdinateOutside) {
    struct Row {
        Vec x, y;
        double x0, expected;
    };
    const Vec x{1, 2, 4}, y{10, 20, 0};
    const Row rows[] = {{x, y, 3.0, 10},
                        {x, y, 4.0, 0},
                        // Outside, at either end: the first ordinate, not the nearest one.
                        {x, y, 9.0, 10},
                        // Falling abscissae; an unsorted curve, where the first interval that holds x0
                        // decides: (0,10) before (10,5).
                        {{4, 2, 1}, {0, 20, 10}, 3.0, 10},
                        {{0, 10, 5, 15}, {0, 100, 0, 200}, 7.5, 75}};
    for (const Row& r : rows)
        EXPECT_DOUBLE_EQ(MathInterpolate(r.y.data(), r.x0, r.x.data(), N(r.x)), r.expected) << r.x0;
    EXPECT_EQ(MathInterpolate(y.data(), 1.5, x.data(), 0), 0);
}

TEST(MathIntegrate, ExactForAParabolaTheRuleOnACubicAndSteps) {
    auto integral = [](double x) { return x * x * x - x * x + 0.5 * x; };
    Vec y, out(kX.size(), -7);
    for (const double v : kX) y.push_back(Parabola(v));
    MathIntegrate(out.data(), kX.data(), y.data(), N(kX));
    for (size_t i = 0; i < kX.size(); ++i) EXPECT_NEAR(out[i], integral(kX[i]) - integral(kX[0]), 1e-12) << i;

    // Every result starts at 0.  On a cubic the rule shows: the first interval takes the parabola
    // through the first three points (integral 0 over [0, 1]), an inner interval the mean of its two
    // parabolas (4 and 3.5), the last one the parabola through the last three (16.5).  Two points make
    // a trapezoid; coinciding abscissae hold no area.
    struct Row {
        Vec x, y, expected;
    };
    const Row rows[] = {{{0, 1, 2, 3}, {0, 1, 8, 27}, {0, 0, 3.75, 20.25}},
                        {{1, 3}, {2, 6}, {0, 8}},
                        {{0, 1, 1, 2}, {1, 1, 5, 5}, {0, 1, 1, 6}}};
    for (const Row& r : rows) {
        Vec s(r.x.size(), -7);
        MathIntegrate(s.data(), r.x.data(), r.y.data(), N(r.x));
        for (size_t i = 0; i < s.size(); ++i)
            EXPECT_NEAR(s[i], r.expected[i], 1e-12) << r.x.size() << " points, " << i;
    }
}

TEST(MathDifferentiate, ExactForAParabolaInEitherDirectionAndTheChordOfTwoPoints) {
    Vec y, out(kX.size());
    for (const double v : kX) y.push_back(Parabola(v));
    const Vec xr(kX.rbegin(), kX.rend()), yr(y.rbegin(), y.rend());
    for (const auto& [x, f] : {std::pair{kX, y}, std::pair{xr, yr}}) {
        MathDifferentiate(out.data(), x.data(), f.data(), N(x));
        for (size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(out[i], 6 * x[i] - 2, 1e-10) << i;
    }
    // Two points: the chord.
    MathDifferentiate(out.data(), kX.data(), y.data(), 2);
    EXPECT_NEAR(out[1], (y[1] - y[0]) / (kX[1] - kX[0]), 1e-12);
}

TEST(ChiSquare, RelativeSquaredDistanceOverTheCommonRangePlainAndLogarithmic) {
    const Vec x{0, 1, 2, 3, 4}, y{1, 2, 4, 8, 16};
    // Curve 2 covers 0.5 .. 3: only the points 1, 2, 3 of curve 1 count; it is a line 2x, so the
    // differences there are 0, 0 and 2.
    const Vec x2{0.5, 3}, y2{1, 6};
    EXPECT_DOUBLE_EQ(Chi_square(x.data(), y.data(), 5, x2.data(), y2.data(), 2), 4.0 / (4 + 16 + 64));
    // The logarithms: curve 2 the square of curve 1 on the same abscissae differs from it by ln y1
    // itself, whose squares the distance is measured against.
    const Vec squares{1, 4, 16, 64, 256};
    EXPECT_DOUBLE_EQ(Chi_square_log(x.data(), y.data(), 5, x.data(), squares.data(), 5), 1.0);

    // The non-positive points leave both curves, with their abscissae: what is left agrees.
    const Vec x4{0, 1, 2, 3}, y1{-1, 2, 0, 8}, xk{1, 3}, yk{2, 8};
    EXPECT_EQ(Chi_square_log(x4.data(), y1.data(), 4, xk.data(), yk.data(), 2), 0);
    // A zero curve 1: the plain sum of squares; no common range: nothing to compare.
    const Vec zero{0, 0, 0, 0}, line{0, 1, 2, 3}, far{10, 11};
    EXPECT_DOUBLE_EQ(Chi_square(x4.data(), zero.data(), 4, x4.data(), line.data(), 4), 14);
    EXPECT_EQ(Chi_square(x4.data(), line.data(), 4, far.data(), line.data(), 2), 1e60);
}

} // namespace
} // namespace tervo
