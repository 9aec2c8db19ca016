// Least squares, median, extremes and complex arithmetic.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "platform/analysis.h"

namespace tervo {
namespace {

TEST(PolyFit, ExactOnAParabola) {
    std::vector<double> x, y;
    for (int i = 0; i < 10; ++i) {
        x.push_back(i - 3.0);
        y.push_back(2.0 - 3.0 * x.back() + 0.5 * x.back() * x.back());
    }
    std::vector<double> fitted(10);
    double c[3], mse = -1.0;
    ASSERT_EQ(PolyFit(x.data(), y.data(), 10, 2, fitted.data(), c, mse), 0);
    EXPECT_NEAR(c[0], 2.0, 1e-12);
    EXPECT_NEAR(c[1], -3.0, 1e-12);
    EXPECT_NEAR(c[2], 0.5, 1e-12);
    EXPECT_NEAR(mse, 0.0, 1e-24);
    for (int i = 0; i < 10; ++i) EXPECT_NEAR(fitted[i], y[i], 1e-12);
}

TEST(PolyFit, LeastSquaresAndSmallScales) {
    // Line through (0,0), (1,1), (2,1): slope 1/2, intercept 1/6, residuals -1/6, 1/3, -1/6.
    const double x[] = {0.0, 1.0, 2.0}, y[] = {0.0, 1.0, 1.0};
    double c[2], mse = 0.0;
    ASSERT_EQ(PolyFit(x, y, 3, 1, nullptr, c, mse), 0);
    EXPECT_NEAR(c[0], 1.0 / 6.0, 1e-14);
    EXPECT_NEAR(c[1], 0.5, 1e-14);
    EXPECT_NEAR(mse, 1.0 / 18.0, 1e-14);

    // Abscissae of order 1e-7 (a depletion width in m) must not look singular.
    std::vector<double> xs, ys;
    for (int i = 1; i <= 8; ++i) {
        xs.push_back(i * 1e-7);
        ys.push_back(1.0 + 2e7 * xs.back() + 3e14 * xs.back() * xs.back());
    }
    double q[3];
    ASSERT_EQ(PolyFit(xs.data(), ys.data(), 8, 2, nullptr, q, mse), 0);
    EXPECT_NEAR(q[2] / 3e14, 1.0, 1e-8);
    EXPECT_NEAR(q[1] / 2e7, 1.0, 1e-8);

    // Too few points, or coincident ones, cannot carry the polynomial.
    const double same[] = {1.0, 1.0, 1.0};
    EXPECT_EQ(PolyFit(same, y, 2, 2, nullptr, q, mse), -1);
    EXPECT_EQ(PolyFit(same, y, 3, 1, nullptr, q, mse), -1);
}

TEST(Statistics, MedianSortAndExtremes) {
    double odd[] = {5.0, 1.0, 3.0};
    EXPECT_EQ(Median(odd, 3), 3.0);
    EXPECT_EQ(odd[0], 5.0); // the input keeps its order
    const double even[] = {4.0, 1.0, 10.0, 2.0};
    EXPECT_EQ(Median(even, 4), 3.0);

    double v[] = {3.0, -1.0, 7.0, 7.0, -1.0, 2.0};
    double max = 0.0, min = 0.0;
    int imax = -5, imin = -5;
    MaxMin1D(v, 6, max, imax, min, imin);
    EXPECT_EQ(max, 7.0);
    EXPECT_EQ(imax, 2); // the first of equal extremes
    EXPECT_EQ(min, -1.0);
    EXPECT_EQ(imin, 1);
    Sort(v, 6);
    EXPECT_EQ((std::vector<double>(v, v + 6)), (std::vector<double>{-1.0, -1.0, 2.0, 3.0, 7.0, 7.0}));
}

TEST(Complex, PolarForm) {
    double magnitude = 0.0, phase = 0.0;
    ToPolar(-1.0, 0.0, magnitude, phase);
    EXPECT_DOUBLE_EQ(magnitude, 1.0);
    EXPECT_DOUBLE_EQ(phase, std::numbers::pi);
}

} // namespace
} // namespace tervo
