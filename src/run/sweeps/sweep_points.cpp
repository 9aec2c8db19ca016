#include "run/sweeps/sweep_points.h"

#include "run/sweeps/operating_points.h"

namespace tervo {

SweepWalk StartSweepWalk(CalculationVariables& cv, std::vector<double>& v, int points, int mode,
                         const std::string& what) {
    SweepWalk walk;
    walk.what = what;
    walk.twoBranches = mode == SWEEP_AROUND_ZERO || mode == SWEEP_AROUND_WORKING;
    walk.known = mode == SWEEP_AROUND_WORKING ? &werkpuntcv : &kortsluitcv;
    walk.Vknown = mode == SWEEP_AROUND_WORKING ? wp.voltage : 0.0;
    if (walk.twoBranches && points > 0) {
        ReorderVoltagesAroundStartVoltage(v.data(), points, walk.Vknown, walk.split);
        ReturnToAKnownStartingPoint(cv, *walk.known, 1);
        KeepSolvedState(walk.last, cv);
        walk.firstStatus = SolveStep(cv, walk.last, v[0], what);
    } else {
        // The start of the sweep has brought the state to its first voltage.
        KeepSolvedState(walk.last, cv);
    }
    return walk;
}

PointStatus StepToSweepPoint(CalculationVariables& cv, SweepWalk& walk, const std::vector<double>& v, int i) {
    if (walk.twoBranches && i == walk.split) {
        ReturnToAKnownStartingPoint(cv, *walk.known, 1);
        KeepSolvedState(walk.last, cv);
        walk.before.valid = false; // a new branch: no straight line through its first point yet
    }
    return SolveStep(cv, walk.last, v[At(i)], walk.what, &walk.before);
}

double VoltageBeforeSweepPoint(const SweepWalk& walk, const std::vector<double>& v, int i) {
    // Point 0 and the first point of a second branch are walked to from the known state.
    if (walk.twoBranches && (i == 0 || i == walk.split)) return walk.Vknown;
    return i > 0 ? v[At(i - 1)] : v[0];
}

} // namespace tervo
