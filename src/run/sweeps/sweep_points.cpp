#include "run/sweeps/sweep_points.h"

#include "run/sweeps/operating_points.h"

namespace tervo {

SweepWalk StartSweepWalk(CalculationVariables& cv, std::vector<double>& v, int points, int mode) {
    SweepWalk walk;
    walk.twoBranches = mode == SWEEP_AROUND_ZERO || mode == SWEEP_AROUND_WORKING;
    walk.known = mode == SWEEP_AROUND_WORKING ? &werkpuntcv : &kortsluitcv;
    walk.Vknown = mode == SWEEP_AROUND_WORKING ? wp.voltage : 0.0;
    if (walk.twoBranches && points > 0) {
        ReorderVoltagesAroundStartVoltage(v.data(), points, walk.Vknown, walk.split);
        ReturnToAKnownStartingPoint(cv, *walk.known, 1);
        volgende_iv_punt(cv, walk.Vknown, v[0], 2);
    }
    return walk;
}

void StepToSweepPoint(CalculationVariables& cv, const SweepWalk& walk, const std::vector<double>& v, int i) {
    if (walk.twoBranches && i == walk.split) {
        ReturnToAKnownStartingPoint(cv, *walk.known, 1);
        volgende_iv_punt(cv, walk.Vknown, v[At(i)], 2);
    } else {
        volgende_iv_punt(cv, v[At(i - 1)], v[At(i)], 2);
    }
}

double VoltageBeforeSweepPoint(const SweepWalk& walk, const std::vector<double>& v, int i) {
    // Point 0 has no previous point: the curve is cut where the walk to it began.
    return i > 0 ? v[At(i - 1)] : (walk.twoBranches ? walk.Vknown : v[0]);
}

} // namespace tervo
