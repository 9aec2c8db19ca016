// What the I-V and the C-V sweep share: the walk over their voltages, in two branches around a known
// state when the sweep starts inside its range, and what each solved point leaves in the sweep's
// arrays (its one current, its external voltage and its loss channels).
#pragma once

#include <vector>

#include "platform/analysis.h"
#include "platform/index.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/sweeps/iv_sweep.h"
#include "run/sweeps/point_recovery.h"

namespace tervo {

// How a sweep walks over its voltages.  With two branches the voltages are reordered so that the
// walk goes from the known state (the short circuit or the working point) upwards first, then,
// after a return to that state, downwards from `split` on.
struct SweepWalk {
    bool twoBranches = false;
    const CalculationVariables* known = nullptr;
    double Vknown = 0; // V, internal convention
    int split = -1;
    SolvedState last;   // the last solved point, where a retry starts
    SolvedState before; // the one before it on the same branch, for the straight-line guess
    PointStatus firstStatus = PointStatus::Converged; // how the first voltage was reached
    std::string what;                                 // the curve in messages: "I(V)", "C(V)"
};

// Sets up the walk of a sweep that starts in `mode` (`CalculateStartingPoint`) over the voltages
// `v` and, with two branches, brings the state to the first of them.
SweepWalk StartSweepWalk(CalculationVariables& cv, std::vector<double>& v, int points, int mode,
                         const std::string& what);

// Brings the state from the point before to point i > 0 (from the known state at a branch's start),
// with the retries of a failed point when they are switched on; CONVERGENTIEFALING is 1 on a cut.
PointStatus StepToSweepPoint(CalculationVariables& cv, SweepWalk& walk, const std::vector<double>& v, int i);

// The voltage from which the walk to point i began: where a curve cut at point i ends.
double VoltageBeforeSweepPoint(const SweepWalk& walk, const std::vector<double>& v, int i);

// Stores the solved state as point i of a sweep whose arrays `w` hold the voltages `v_cell`: the
// median over the mesh of the total current (mA/cm2) with the shunt, the external voltage with the
// drop on the series resistance, and the loss channels.  The median, not a mean or one chosen point,
// is the one current of a point.
template <typename SweepArrays>
void StoreSteadyStatePoint(CalculationVariables& cv, SweepArrays& w, int i) {
    // The recombination terms and currents of the point; its profiles would only feed the graphs of
    // a screen, and a saved band diagram extracts its own.
    update_eb_panel(cv, 0);
    const size_t I = At(i);
    w.dcstroom[I] = Median(j_tot.data(), std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS));
    if (wp.RshPresent) w.dcstroom[I] += w.v_cell[I] * wp.Gsh * 0.1;
    w.v_as[I] = wp.RsPresent ? w.v_cell[I] + wp.Rs * w.dcstroom[I] * 10 : w.v_cell[I];
    const LossChannelValues loss = LossChannelsOfState(cv);
    w.ifrdcstroom[I] = loss.interfaces;
    w.recdcstroom[I] = loss.bulk;
    w.recSRH[I] = loss.srh;
    w.recRadiative[I] = loss.radiative;
    w.recAuger[I] = loss.auger;
    w.leftMinority[I] = loss.leftMinority;
    w.rightMinority[I] = loss.rightMinority;
}

} // namespace tervo
