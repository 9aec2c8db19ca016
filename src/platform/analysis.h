// Numerical helpers of the run-time layer: least squares, sort, median, extremes, polar form.
#pragma once

#include <cstddef>
#include <vector>

namespace tervo {

// Least-squares polynomial of the given order through n points.  `coefficients` from order 0
// upward (order+1 of them); `fitted` receives the polynomial at each x; `mse` the mean squared error.
// 0 on success, -1 when there are fewer points than coefficients or the system is singular.
int PolyFit(const double* x, const double* y, int n, int order, double* fitted, double* coefficients,
            double& mse);

void Sort(double* values, int n); // ascending
double Median(const double* values, int n);
void MaxMin1D(const double* values, int n, double& max, int& maxIndex, double& min, int& minIndex);
void ToPolar(double re, double im, double& magnitude, double& phase); // phase in radians

// A number read from a file as an integer: truncated toward zero and held within the range of int,
// 0 for a NaN.  A plain conversion of a number beyond that range is undefined.
int TruncateToInt(double value);

// A growing list of items, indexed from 1, as the settings readers keep them.
template <typename T>
struct List {
    std::vector<T> items;
};
template <typename T>
void ListInsertItem(List<T>& list, const T& item) {
    list.items.push_back(item);
}
template <typename T>
int ListNumItems(const List<T>& list) {
    return static_cast<int>(list.items.size());
}
template <typename T>
const T& ListGetItem(const List<T>& list, int index) {
    return list.items.at(static_cast<std::size_t>(index - 1));
}
template <typename T>
void ListClear(List<T>& list) {
    list.items.clear();
}

} // namespace tervo
