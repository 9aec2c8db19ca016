// Least squares and the median.
#include <gtest/gtest.h>

#include <vector>

#include "cell/expect_values.h"
#include "platform/analysis.h"

using namespace tervo;
using namespace tervo::test;

TEST(PolyFit, ExactOnAParabolaLeastSquaresOnALineAndSmallScales) {
    std::vector<double> x, y, fitted(10);
    for (int i = 0; i < 10; ++i) {
        x.push_back(i - 3.0);
        y.push_back(2.0 - 3.0 * x.back() + 0.5 * x.back() * x.back());
    }
    double c[3], mse = -1.0;
    ASSERT_EQ(PolyFit(x.data(), y.data(), 10, 2, fitted.data(), c, mse), 0);
    ExpectWithin(1e-12, c[0], 2.0, c[1], -3.0, c[2], 0.5);
    EXPECT_NEAR(mse, 0.0, 1e-24);
    for (int i = 0; i < 10; ++i) EXPECT_NEAR(fitted[i], y[i], 1e-12);

    // Line through (0,0), (1,1), (2,1): slope 1/2, intercept 1/6, residuals -1/6, 1/3, -1/6.
    const double xl[] = {0.0, 1.0, 2.0}, yl[] = {0.0, 1.0, 1.0}, same[] = {1.0, 1.0, 1.0};
    ASSERT_EQ(PolyFit(xl, yl, 3, 1, nullptr, c, mse), 0);
    ExpectWithin(1e-14, c[0], 1 / 6.0, c[1], 0.5, mse, 1 / 18.0);

    // Abscissae of order 1e-7 (a depletion width in m) must not look singular.
    for (int i = 0; i < 8; ++i) {
        x[i] = (i + 1) * 1e-7;
        y[i] = 1.0 + 2e7 * x[i] + 3e14 * x[i] * x[i];
    }
    ASSERT_EQ(PolyFit(x.data(), y.data(), 8, 2, nullptr, c, mse), 0);
    ExpectWithin(1e-8, c[2] / 3e14, 1.0, c[1] / 2e7, 1.0);

    // Too few points, or coincident ones, cannot carry the polynomial.
    ExpectExact(PolyFit(same, yl, 2, 2, nullptr, c, mse), -1, PolyFit(same, yl, 3, 1, nullptr, c, mse), -1);
}

TEST(Statistics, MedianOfOddAndEvenCounts) {
    double odd[] = {5.0, 1.0, 3.0};
    const double even[] = {4.0, 1.0, 10.0, 2.0};
    const double median = Median(odd, 3);
    ExpectExact(median, 3.0, odd[0], 5.0, Median(even, 4), 3.0); // the input keeps its order
}
