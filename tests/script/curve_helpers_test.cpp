// Helpers on sampled curves: interpolation in either direction, the closest index, the running
// integral and the derivative by local parabolas (exact for parabolas on any spacing), and the two
// Chi-square measures.
#include "script/curve_helpers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tervo {
namespace {

int N(const std::vector<double>& v) {
    return static_cast<int>(v.size());
}

double Parabola(double x) {
    return 3 * x * x - 2 * x + 0.5;
}
double ParabolaIntegral(double x) {
    return x * x * x - x * x + 0.5 * x;
}
double ParabolaSlope(double x) {
    return 6 * x - 2;
}

TEST(MathInterpolate, LinearInsideEitherDirectionExactOnPointsAndTheFirstOrdinateOutside) {
    const std::vector<double> x{1, 2, 4}, y{10, 20, 0};
    EXPECT_DOUBLE_EQ(MathInterpolate(y.data(), 1.5, x.data(), 3), 15);
    EXPECT_DOUBLE_EQ(MathInterpolate(y.data(), 3.0, x.data(), 3), 10);
    EXPECT_DOUBLE_EQ(MathInterpolate(y.data(), 4.0, x.data(), 3), 0);
    EXPECT_DOUBLE_EQ(MathInterpolate(y.data(), 2.0, x.data(), 3), 20);
    // Outside, at either end: the first ordinate, not the nearest one.
    EXPECT_DOUBLE_EQ(MathInterpolate(y.data(), 0.5, x.data(), 3), 10);
    EXPECT_DOUBLE_EQ(MathInterpolate(y.data(), 9.0, x.data(), 3), 10);

    // Falling abscissae, and an unsorted curve where the first interval that holds x0 decides.
    const std::vector<double> xf{4, 2, 1}, yf{0, 20, 10};
    EXPECT_DOUBLE_EQ(MathInterpolate(yf.data(), 3.0, xf.data(), 3), 10);
    const std::vector<double> xu{0, 10, 5, 15}, yu{0, 100, 0, 200};
    EXPECT_DOUBLE_EQ(MathInterpolate(yu.data(), 7.5, xu.data(), 4), 75) << "from (0,10), not (10,5)";
    EXPECT_DOUBLE_EQ(MathInterpolate(yu.data(), 12.5, xu.data(), 4), 150) << "from (5,15)";
    EXPECT_EQ(MathInterpolate(y.data(), 1.5, x.data(), 0), 0);
}

TEST(MathClosestIndex, TheFirstOfTheClosestValues) {
    const std::vector<double> v{5, 1, 3, 1, 2.5};
    EXPECT_EQ(MathClosestIndex(1.2, v.data(), N(v)), 1);
    EXPECT_EQ(MathClosestIndex(2.75, v.data(), N(v)), 2) << "a tie goes to the first";
    EXPECT_EQ(MathClosestIndex(100, v.data(), N(v)), 0);
    EXPECT_EQ(MathClosestIndex(1, v.data(), 0), -1);
}

TEST(MathIntegrate, ExactForAParabolaOnUnevenSpacing) {
    const std::vector<double> x{-1.0, -0.7, 0.1, 0.15, 0.9, 2.0, 2.3};
    std::vector<double> y, out(x.size(), -7);
    for (const double v : x) y.push_back(Parabola(v));
    MathIntegrate(out.data(), x.data(), y.data(), N(x));
    for (size_t i = 0; i < x.size(); ++i)
        EXPECT_NEAR(out[i], ParabolaIntegral(x[i]) - ParabolaIntegral(x[0]), 1e-12) << i;

    // Three points: the one parabola; the first element is 0.
    std::vector<double> three(3, -7);
    MathIntegrate(three.data(), x.data(), y.data(), 3);
    EXPECT_EQ(three[0], 0);
    EXPECT_NEAR(three[2], ParabolaIntegral(x[2]) - ParabolaIntegral(x[0]), 1e-12);

    // On a cubic the rule shows: the first interval takes the parabola through the first three
    // points (3x^2 - 2x, whose integral over [0, 1] is 0), an inner interval the mean of its two
    // parabolas (4 and 3.5), the last interval the parabola through the last three (16.5).
    const std::vector<double> xc{0, 1, 2, 3}, yc{0, 1, 8, 27};
    std::vector<double> cubic(4);
    MathIntegrate(cubic.data(), xc.data(), yc.data(), 4);
    EXPECT_NEAR(cubic[1], 0.0, 1e-12);
    EXPECT_NEAR(cubic[2], 3.75, 1e-12);
    EXPECT_NEAR(cubic[3], 20.25, 1e-12);
}

TEST(MathIntegrate, TwoPointsTheTrapezoidAndCoincidingAbscissaeHoldNothing) {
    const std::vector<double> x{1, 3}, y{2, 6};
    std::vector<double> out(2, -7);
    MathIntegrate(out.data(), x.data(), y.data(), 2);
    EXPECT_EQ(out[0], 0);
    EXPECT_DOUBLE_EQ(out[1], 8);
    const std::vector<double> same{1, 1};
    MathIntegrate(out.data(), same.data(), y.data(), 2);
    EXPECT_EQ(out[1], 0);

    // A repeated abscissa (a step in the data): no area over the zero-width interval, and the
    // trapezoid over the interval beside it.
    const std::vector<double> xs{0, 1, 1, 2}, ys{1, 1, 5, 5};
    std::vector<double> s(4);
    MathIntegrate(s.data(), xs.data(), ys.data(), 4);
    EXPECT_DOUBLE_EQ(s[1], 1);
    EXPECT_DOUBLE_EQ(s[2], 1);
    EXPECT_DOUBLE_EQ(s[3], 6);

    std::vector<double> one{-7};
    MathIntegrate(one.data(), x.data(), y.data(), 1);
    EXPECT_EQ(one[0], 0);
}

TEST(MathDifferentiate, ExactForAParabolaAtEveryPointIncludingTheEnds) {
    const std::vector<double> x{-1.0, -0.7, 0.1, 0.15, 0.9, 2.0, 2.3};
    std::vector<double> y, out(x.size());
    for (const double v : x) y.push_back(Parabola(v));
    MathDifferentiate(out.data(), x.data(), y.data(), N(x));
    for (size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(out[i], ParabolaSlope(x[i]), 1e-10) << i;
    // Falling abscissae give the same slopes.
    std::vector<double> xr(x.rbegin(), x.rend()), yr(y.rbegin(), y.rend());
    MathDifferentiate(out.data(), xr.data(), yr.data(), N(xr));
    for (size_t i = 0; i < xr.size(); ++i) EXPECT_NEAR(out[i], ParabolaSlope(xr[i]), 1e-10) << i;
}

TEST(MathDifferentiate, FewPointsAndCoincidingAbscissae) {
    std::vector<double> out(3, -7);
    const std::vector<double> x1{2}, y1{5};
    MathDifferentiate(out.data(), x1.data(), y1.data(), 1);
    EXPECT_EQ(out[0], 0);

    const std::vector<double> x2{1, 3}, y2{2, 6};
    MathDifferentiate(out.data(), x2.data(), y2.data(), 2);
    EXPECT_DOUBLE_EQ(out[0], 2);
    EXPECT_DOUBLE_EQ(out[1], 2);
    const std::vector<double> same{1, 1}, equal{4, 4};
    MathDifferentiate(out.data(), same.data(), equal.data(), 2);
    EXPECT_EQ(out[0], 0);
    MathDifferentiate(out.data(), same.data(), y2.data(), 2);
    EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[1]));

    // Middle abscissa equal to the right one: the chord from the left; equal to the left one: the
    // chord to the right.
    const std::vector<double> xr{0, 2, 2}, yr{1, 5, 9};
    MathDifferentiate(out.data(), xr.data(), yr.data(), 3);
    EXPECT_DOUBLE_EQ(out[0], 2);
    const std::vector<double> xl{0, 0, 2}, yl{1, 5, 9};
    MathDifferentiate(out.data(), xl.data(), yl.data(), 3);
    EXPECT_DOUBLE_EQ(out[1], 2);
    const std::vector<double> xa{3, 3, 3}, ya{1, 1, 1}, yb{1, 2, 1};
    MathDifferentiate(out.data(), xa.data(), ya.data(), 3);
    EXPECT_EQ(out[1], 0);
    MathDifferentiate(out.data(), xa.data(), yb.data(), 3);
    EXPECT_TRUE(std::isnan(out[1]));
}

TEST(ChiSquare, ZeroAgainstItselfAndTheRelativeSquaredDistanceOverTheCommonRange) {
    const std::vector<double> x{0, 1, 2, 3, 4}, y{1, 2, 4, 8, 16};
    EXPECT_EQ(Chi_square(x.data(), y.data(), 5, x.data(), y.data(), 5), 0);
    EXPECT_EQ(Chi_square_log(x.data(), y.data(), 5, x.data(), y.data(), 5), 0);

    // Curve 2 covers 0.5 .. 3: only the points 1, 2, 3 of curve 1 count; it is a line 2x, so the
    // differences there are 0, 0 and 2.
    const std::vector<double> x2{0.5, 3}, y2{1, 6};
    EXPECT_DOUBLE_EQ(Chi_square(x.data(), y.data(), 5, x2.data(), y2.data(), 2), 4.0 / (4 + 16 + 64));
    // The logarithms: ln y1 against ln y2 interpolated linearly, ln 1 .. ln 6 over 0.5 .. 3.
    const double l6 = std::log(6.0);
    double e = 0, s = 0;
    for (const double xi : {1.0, 2.0, 3.0}) {
        const double ly1 = std::log(std::pow(2.0, xi));
        e += std::pow(ly1 - (xi - 0.5) / 2.5 * l6, 2);
        s += ly1 * ly1;
    }
    EXPECT_DOUBLE_EQ(Chi_square_log(x.data(), y.data(), 5, x2.data(), y2.data(), 2), e / s);
}

TEST(ChiSquare, TheLogarithmicMeasureSkipsPointsThatAreNotPositiveAndDegenerateSums) {
    // The non-positive points leave both curves, with their abscissae: what is left agrees.
    const std::vector<double> x{0, 1, 2, 3}, y1{-1, 2, 0, 8}, y2{5, 2, 7, 8};
    const std::vector<double> xk{1, 3}, yk{2, 8};
    EXPECT_EQ(Chi_square_log(x.data(), y1.data(), 4, xk.data(), yk.data(), 2), 0);
    EXPECT_GT(Chi_square_log(x.data(), y2.data(), 4, xk.data(), yk.data(), 2), 0);

    // A zero curve 1: the plain sum of squares.
    const std::vector<double> zero{0, 0, 0, 0}, line{0, 1, 2, 3};
    EXPECT_EQ(Chi_square(x.data(), zero.data(), 4, x.data(), zero.data(), 4), 0);
    EXPECT_DOUBLE_EQ(Chi_square(x.data(), zero.data(), 4, x.data(), line.data(), 4), 14);
    // No common range: nothing to compare.
    const std::vector<double> far{10, 11};
    EXPECT_EQ(Chi_square(x.data(), line.data(), 4, far.data(), line.data(), 2), 1e60);
}

} // namespace
} // namespace tervo
