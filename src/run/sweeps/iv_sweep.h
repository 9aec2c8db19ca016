// The current-voltage characteristic: the sweep over the voltages of an I-V request, with the
// external series and shunt resistance and the split of the current into its loss channels, and
// the reduction of an I-V curve to the cell parameters Voc, Jsc, FF, efficiency and the maximum
// power point.
#pragma once

#include "run/control/work_point.h"
#include "run/results/result_list.h"
#include "setup/parameter_sets.h"

namespace tervo {

// Walks the I-V request `action.IV` (voltages in the internal convention) from the state that
// CalculateStartingPoint left in `cv`; `mode` is its result (1 from start to stop, 6 and 7 two
// branches away from the short circuit or the working point).  Each point is one step of the
// voltage, one solve and one extraction; the current of a point is the median of the total current
// over the mesh, taken as a consumer at the left contact sees it (positive when it enters there, so
// that generated power has V J < 0; the solver's profiles count the other way).  The curve goes
// into the present element of the result list in the user's convention, with its cell parameters:
// `iv_as` the external voltage, `rec_v_as` the voltage over the cell proper, the loss channels in
// A/m2.  A point that does not converge cuts the curve at the last
// good one (reported once).  Sets `action.IV.done` and IVConvergenceFailure.
// Result: 1 when the sweep ran (also when it was cut), 0 when more than MAX_NUM_CALCULATION_STEPS
// points were asked (reported), or the result of a pause that was not "go on".
int calciv(CalculationVariables& cv, Actie& action, int mode);

// The loss channels of a solved state: recombination at the interfaces and in the bulk (A/m2, the
// bulk split by mechanism), and the minority-carrier current that leaves through each contact
// (mA/cm2, from the last extracted current profiles).
struct LossChannelValues {
    double interfaces = 0;
    double bulk = 0;
    double srh = 0;
    double radiative = 0;
    double auger = 0;
    double leftMinority = 0;
    double rightMinority = 0;
};
LossChannelValues LossChannelsOfState(const CalculationVariables& cv);

// Whose curve IVParameters analyses.
enum IVCurveKind : int {
    IV_MEASUREMENT = 0, // as given; light and result from the measurement
    IV_SIMULATION = 1,  // user convention; light from `wp`; result into the present list element
    IV_SCRIPT = 2,      // user convention; light from the action settings; result into `target`
};

// The illumination of a measured curve.
struct MeasuredIllumination {
    double incidentPower = 1000; // W/m2
    int dark = 0;
};

// Voc, Jsc, FF, efficiency and the maximum power point of the curve V[0..n-1] (V), J[0..n-1]
// (mA/cm2), found by interpolation with fixed rules and with flags for what could be found and
// what rests on extrapolation.  `target` receives the result for kinds 0 and 2; kind 0 needs
// `measurement`.  Result 1 when the analysis ran, 0 when it does not apply (dark, fewer than 2
// points, the first two voltages equal, an unknown kind, no place for the result); the target then
// stays as it was.
int IVParameters(const double* V, const double* J, int n, int kind, SolarCellParameters* target,
                 const MeasuredIllumination* measurement = nullptr);

// What the efficiency of a curve is measured against.
struct IVIllumination {
    int dark = 0;
    double incidentPower = 0;     // W/m2
    int generationFromFile = 0;   // 1: the efficiency is the collected part of the ideal light current
    double attenuation = 100;     // %, of the generation file
    double idealLightCurrent = 0; // mA/cm2, of the generation file
};

// The analysis itself on a curve in the internal convention (generated power -V J > 0).
int AnalyseIVCurve(const double* V, const double* J, int n, const IVIllumination& light,
                   SolarCellParameters& result);

} // namespace tervo
