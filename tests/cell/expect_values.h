// Checks of many values at once, written as pairs: actual, expected, actual, expected, ...
// A failure names the pair by its place in the list.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace tervo::test {

// Runs check(actual, expected) on each pair.
template <typename Check, typename... T>
void ExpectPairs(Check check, const T&... v) {
    static_assert(sizeof...(T) % 2 == 0, "values come in pairs of actual and expected");
    const std::array<double, sizeof...(T)> x{static_cast<double>(v)...};
    for (size_t i = 0; i < x.size(); i += 2) check(x[i], x[i + 1], i / 2);
}

// Equal to the last bit (integers and enumerations pass through a double exactly).
template <typename... T>
void ExpectExact(const T&... v) {
    ExpectPairs([](double a, double e, size_t i) { EXPECT_EQ(a, e) << "pair " << i; }, v...);
}

// Equal to four units in the last place.
template <typename... T>
void ExpectDoubles(const T&... v) {
    ExpectPairs([](double a, double e, size_t i) { EXPECT_DOUBLE_EQ(a, e) << "pair " << i; }, v...);
}

// Equal to a relative precision of the expected value, or within an absolute tolerance.
template <typename... T>
void ExpectRelative(double rel, const T&... v) {
    ExpectPairs(
        [rel](double a, double e, size_t i) { EXPECT_NEAR(a, e, rel * std::fabs(e)) << "pair " << i; }, v...);
}
template <typename... T>
void ExpectWithin(double tolerance, const T&... v) {
    ExpectPairs([tolerance](double a, double e, size_t i) { EXPECT_NEAR(a, e, tolerance) << "pair " << i; },
                v...);
}

} // namespace tervo::test
