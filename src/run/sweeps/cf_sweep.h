// The capacitance-frequency characteristic: the cell held at its working point, one small-signal
// solve per frequency of a logarithmic list, with no steady-state step in between.
#pragma once

#include "run/control/work_point.h"
#include "setup/parameter_sets.h"

namespace tervo {

// Frequency i of a logarithmic walk of n > 1 points from `start` to `stop` (Hz, both above 0):
// 10^(((n - 1 - i) log10(start) + i log10(stop)) / (n - 1)).  A start above the stop walks downwards.
double CfFrequency(double start, double stop, int n, int i);

// One point of the curve from the admittance of the cell with its external circuit (S/m2) at
// omega_us (rad/s), in the units of the result list.
struct CfPoint {
    double C = 0;      // nF/cm2
    double G = 0;      // S/cm2, at least 1e-12
    double Zre = 0;    // ohm cm2, from the admittance before the floor of G
    double Zim = 0;    // ohm cm2
    double Zmagn = 0;  // ohm cm2
    double Zphase = 0; // degrees
};
CfPoint MakeCfPoint(double y_re, double y_im, double omega_us);

// Walks the C-f request `action.Cf` at the solved state in `cv` (the driver has put the working point
// there).  Each frequency: bereken_klein_signaal, the small-signal currents, the admittance as the mean
// of the total current over the mesh, the shunt and series resistance of `wp`, then C = Im(Y)/omega
// and G = Re(Y).  The curve goes into the present element of the result list (`cf_as`, `cfcap`,
// `cfcon`, `cfZre`, `cfZim`, `cfZmagn`, `cfZphase`, `points` long, zeros beyond `done`).
// Result: 1 when the sweep ran; 0 when `cv` holds no solved point (CfConvergenceFailure 1) or the
// request cannot be walked (reported); the result of a pause that was not "go on".
int calccf(CalculationVariables& cv, Actie& action);

} // namespace tervo
