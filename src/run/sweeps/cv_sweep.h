// The capacitance-voltage characteristic: at each voltage of the request one steady-state solve and
// one small-signal solve at the frequency of the working point, the admittance with the external
// shunt and series resistance, the merge of the points' currents into the I-V curve of the
// simulation, and the Mott-Schottky analysis (depletion width and apparent doping from the local
// slope of 1/C^2 against V).
#pragma once

#include <vector>

#include "cell/working_settings.h"
#include "run/control/work_point.h"
#include "setup/parameter_sets.h"

namespace tervo {

// Walks the C-V request `action.CV` (voltages in the internal convention) from the state that
// CalculateStartingPoint left in `cv`; `mode` is its result (1 from start to stop, 6 and 7 two branches
// away from the short circuit or the working point).  The curve goes into the present element of the
// result list (`cv_as`, `cvcap` nF/cm2, `cvcon` S/cm2, `cvMott` 1/C^2 in (cm2/nF)^2, `cvW` µm, `cvN`
// /cm3), its currents are merged into the element's I-V curve and the cell parameters are found
// again on the merged curve.  A point that does not converge cuts the curve (reported once).
// Result: 1 when the sweep ran (also when cut), 0 when more than MAX_NUM_CALCULATION_STEPS points
// were asked (reported), or the result of a pause that was not "go on".
int calccv(CalculationVariables& cv, Actie& action, int mode);

// The merged order of an I-V curve (nIV voltages) and a C-V curve (nCV voltages): both sorted
// ascending, walked together, the smaller head taken (an I-V point wins a tie) and kept only when it
// lies more than 1e-5 V from the last kept point; when one list ends the rest of the other follows
// with the same test.  `count` receives the number of merged points; index[k] is the place of merged point k
// in its own curve, source[k] 1 for the I-V curve, 2 for the C-V curve.  Without I-V points the
// merged curve is the C-V curve in its own order.
void merge_IV_and_CV(int nIV, const double* ivVoltages, int nCV, const double* cvVoltages, int& count,
                     std::vector<int>& index, std::vector<int>& source);

// The Mott-Schottky analysis of n points (V in volt, C in F/m2) with the settings `nw`: width
// W = eps eps0 / C in µm and apparent doping -2 / (q eps eps0 d(1/C^2)/dV) in /cm3, the slope from a
// least-squares polynomial over a sliding window of `fitPoints` points (order `orderEdges` where the
// window cannot be centred, `orderMiddle` elsewhere).  Only when fitPoints < n; otherwise both stay
// 0.  A window whose slope is 0 gives an apparent doping of 0.
void MottSchottkyAnalysis(const double* V, const double* C, int n, const MottSchottkySettings& nw,
                          double* width, double* doping);

} // namespace tervo
