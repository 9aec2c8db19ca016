// Numerical helpers on sampled curves: linear interpolation, the index of the closest abscissa, the
// running integral and the derivative by local parabolas, and two Chi-square measures of how far one
// curve lies from another.  Used by the script's math command, the views of the QE curve and the fit.
//
// A curve is n abscissae x and n ordinates y; the abscissae need not be sorted nor distinct, and the
// helpers say what they do when two of them coincide.
#pragma once

namespace tervo {

// y at x0 by linear interpolation: the first point whose abscissa is x0, or the first interval that
// holds x0 strictly inside it (rising or falling), decides.  Outside the curve, and for a search that
// finds nothing, the first ordinate y[0].  0 for an empty curve.
double MathInterpolate(const double* y, double x0, const double* x, int n);

// The first index whose value lies closest to x0; -1 for an empty list.
int MathClosestIndex(double x0, const double* v, int n);

// out[i] = the integral of y from x[0] to x[i], by parabolas through three neighbouring points: an
// inner interval takes the mean of the integrals of its two parabolas, the two end intervals the one
// parabola they belong to.  Exact for a parabola, whatever the spacing.  Two points: the trapezoid.
// Nothing for n below 1.
void MathIntegrate(double* out, const double* x, const double* y, int n);

// out[i] = dy/dx at x[i], the derivative of the parabola through the point and its two neighbours
// (the first three or the last three points at the ends).  Where the middle abscissa coincides with
// one neighbour the chord to the other neighbour is taken; three coinciding abscissae give 0 for
// equal ordinates and not-a-number otherwise, as do two outer ones that coincide around a distinct
// middle one (no y(x) passes through such points).  Two points: the chord; one point: 0.
void MathDifferentiate(double* out, const double* x, const double* y, int n);

// The relative squared distance of curve 2 from curve 1: over the points of curve 1 inside the
// common range of abscissae (ends included), the sum of (y1 - y2 interpolated at x1)^2 divided by
// the sum of y1^2.  When all those y1 are 0 the plain sum of squares is the result (0 for two curves
// that agree); when curve 1 has no point in the common range the curves cannot be compared and the
// result is 1e60.
double Chi_square(const double* x1, const double* y1, int n1, const double* x2, const double* y2, int n2);

// The same on the logarithms: only points with y above 0 take part, each with ln y.
double Chi_square_log(const double* x1, const double* y1, int n1, const double* x2, const double* y2, int n2);

} // namespace tervo
