// Checks of many values at once, written as pairs: actual, expected, actual, expected, ...
// A failure names the pair by its place in the list.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

namespace tervo::test {

template <typename... T>
std::array<double, sizeof...(T)> Values(const T&... v) {
    static_assert(sizeof...(T) % 2 == 0, "values come in pairs of actual and expected");
    return {static_cast<double>(v)...};
}

// Equal to the last bit (integers and enumerations pass through a double exactly).
template <typename... T>
void ExpectExact(const T&... v) {
    const auto x = Values(v...);
    for (size_t i = 0; i < x.size(); i += 2) EXPECT_EQ(x[i], x[i + 1]) << "pair " << i / 2;
}

// Equal to four units in the last place.
template <typename... T>
void ExpectDoubles(const T&... v) {
    const auto x = Values(v...);
    for (size_t i = 0; i < x.size(); i += 2) EXPECT_DOUBLE_EQ(x[i], x[i + 1]) << "pair " << i / 2;
}

// Equal to a relative precision of the expected value.
template <typename... T>
void ExpectRelative(double rel, const T&... v) {
    const auto x = Values(v...);
    for (size_t i = 0; i < x.size(); i += 2)
        EXPECT_NEAR(x[i], x[i + 1], rel * std::fabs(x[i + 1])) << "pair " << i / 2;
}

// Equal within an absolute tolerance.
template <typename... T>
void ExpectWithin(double tolerance, const T&... v) {
    const auto x = Values(v...);
    for (size_t i = 0; i < x.size(); i += 2) EXPECT_NEAR(x[i], x[i + 1], tolerance) << "pair " << i / 2;
}

} // namespace tervo::test
