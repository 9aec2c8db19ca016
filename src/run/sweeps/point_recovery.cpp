#include "run/sweeps/point_recovery.h"

#include <algorithm>
#include <cmath>

#include "cell/cell_records.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/sweeps/operating_points.h"
#include "solver/bulk_recombination.h"
#include "solver/discrete_equations.h"
#include "solver/gummel.h"

namespace tervo {

int sweepRecovery = 1;

namespace {

void KeepArray(std::vector<double>& to, const MeshArray& from, int n) {
    to.assign(from.begin(), from.begin() + n);
}

void RestoreArray(MeshArray& to, const std::vector<double>& from) {
    std::copy(from.begin(), from.end(), to.begin());
}

// The guess at Vto on the straight line through two solved states of the same mesh: potential and
// quasi-Fermi levels point by point, the carrier variables from the levels with the offsets of Vto.
void ExtrapolatedGuess(CalculationVariables& cv, const SolvedState& before, const SolvedState& last,
                       double Vto) {
    const double r = (Vto - last.V_applied) / (last.V_applied - before.V_applied);
    SetAppliedVoltage(cv, Vto);
    const size_t n = last.psi.size();
    for (size_t i = 0; i < n; ++i) {
        cv.psi[i] = last.psi[i] + r * (last.psi[i] - before.psi[i]);
        cv.EFn[i] = last.EFn[i] + r * (last.EFn[i] - before.EFn[i]);
        cv.EFp[i] = last.EFp[i] + r * (last.EFp[i] - before.EFp[i]);
        cv.u[i] = std::exp(cv.EFn[i]) - cv.a_n;
        cv.v[i] = std::exp(-cv.EFp[i]) - cv.a_p;
    }
    update_psivar(cv);
}

// The profile scratch of the solution test: one for the process, the program is single-threaded.
CurrentProfiles& ProfileScratch() {
    static CurrentProfiles scratch;
    return scratch;
}

// Walks from the solved state `last` to Vto in steps that start at half the distance, halve after each
// failure and grow back by doubling after two solved steps in a row; a step below the distance divided
// by 2^MAX_STEP_HALVINGS that fails ends the walk.  Each solved step becomes the new `last`.  Every
// solved step covers at least the smallest step, so the walk ends after a bounded number of solves.
bool WalkInHalvedSteps(CalculationVariables& cv, SolvedState& last, double Vto) {
    const double distance = Vto - last.V_applied;
    const double smallest = std::fabs(distance) / (1 << MAX_STEP_HALVINGS);
    double step = distance / 2;
    int solvedInARow = 0;
    for (;;) {
        const double V0 = last.V_applied;
        const double Vn = std::fabs(Vto - V0) <= std::fabs(step) * (1 + 1e-9) ? Vto : V0 + step;
        volgende_iv_punt(cv, V0, Vn, 2);
        if (CONVERGENTIEFALING == 0) {
            KeepSolvedState(last, cv);
            if (Vn == Vto) return true;
            if (++solvedInARow == 2 && std::fabs(step) * 2 <= std::fabs(distance) / 2) {
                step *= 2;
                solvedInARow = 0;
            }
            continue;
        }
        RestoreSolvedState(cv, last);
        solvedInARow = 0;
        if (std::fabs(step) <= smallest * (1 + 1e-9)) return false;
        step /= 2;
    }
}

// The solver choices of the second retry, and back.  The carrier variables follow the offsets at the
// next guess, which forms u and v from the quasi-Fermi levels.
struct SolverChoice {
    int scheme = 0;
    int offsets = 0;
};

SolverChoice UseRecoveryIteration(ConvergenceParameters& c) {
    const SolverChoice kept{c.coupling_scheme, c.contactExponential};
    c.coupling_scheme = RECOVERY_SCHEME;
    c.contactExponential = RECOVERY_OFFSETS;
    return kept;
}

void Reinstate(ConvergenceParameters& c, const SolverChoice& kept) {
    c.coupling_scheme = kept.scheme;
    c.contactExponential = kept.offsets;
}

} // namespace

void KeepSolvedState(SolvedState& kept, const CalculationVariables& cv) {
    const int n = MeshPoints(cv);
    // The mesh record is large and mostly the same from one solve to the next: copied only when its
    // points changed.
    if (!kept.valid || !SameMesh(kept.mesh, cv.mesh)) kept.mesh = cv.mesh;
    KeepArray(kept.psi, cv.psi, n);
    KeepArray(kept.u, cv.u, n);
    KeepArray(kept.v, cv.v, n);
    KeepArray(kept.EFn, cv.EFn, n);
    KeepArray(kept.EFp, cv.EFp, n);
    kept.a_n = cv.a_n;
    kept.a_p = cv.a_p;
    kept.V_applied = cv.V_applied;
    kept.V_norm = cv.V_norm;
    kept.exp_V = cv.exp_V;
    kept.iteration_count = cv.iteration_count;
    kept.valid = true;
    kept.retried = false;
}

void RestoreSolvedState(CalculationVariables& cv, const SolvedState& kept) {
    if (!kept.valid) return;
    const bool otherMesh = !SameMesh(cv.mesh, kept.mesh);
    if (otherMesh) {
        // The failed solve refined the mesh: the properties and the light go back to the old one.
        const MeshBlock failed = cv.mesh;
        cv.mesh = kept.mesh;
        Full_x_Dependence(cv);
        RefreshAfterMeshChange(cv, failed);
    }
    RestoreArray(cv.psi, kept.psi);
    RestoreArray(cv.u, kept.u);
    RestoreArray(cv.v, kept.v);
    RestoreArray(cv.EFn, kept.EFn);
    RestoreArray(cv.EFp, kept.EFp);
    cv.a_n = kept.a_n;
    cv.a_p = kept.a_p;
    cv.V_applied = kept.V_applied;
    cv.V_norm = kept.V_norm;
    cv.exp_V = kept.exp_V;
    cv.iteration_count = kept.iteration_count;
    update_psivar(cv);
    if (otherMesh) {
        // The light was formed anew on the restored mesh while the defect records still belonged to
        // the failed one: the defect absorption of a cell with optical capture was left out.  The
        // records of the restored state, then the light its defects let through.
        RefreshRecombination(cv);
        IterateFt(cv);
    }
    CONVERGENTIEFALING = 0;
}

bool StateIsSolution(CalculationVariables& cv) {
    const int n = MeshPoints(cv);
    for (size_t i = 0; i < At(n); ++i)
        if (!std::isfinite(cv.psi[i]) || !std::isfinite(cv.u[i]) || !std::isfinite(cv.v[i])) return false;
    CurrentProfiles& p = ProfileScratch();
    CalculateCurrentProfiles(cv, calculation_of_current, p);
    double carriers = 0;
    for (size_t i = 0; i < At(n); ++i) {
        if (!std::isfinite(p.j_tot[i])) return false;
        carriers = std::max(carriers, std::fabs(p.j_n[i]) + std::fabs(p.j_p[i]) + std::fabs(p.jn_tunnel[i]) +
                                          std::fabs(p.jp_tunnel[i]));
    }
    return cv.J_spread <= std::max(SOLUTION_CURRENT_FLOOR, SOLUTION_CURRENT_SPREAD * carriers);
}

namespace {

// Moves the walk on to the state in `cv`: `last` becomes `before`, the new state `last`.  Whether the
// walk prefers the coupled iteration stays with `last`.
void Advance(CalculationVariables& cv, SolvedState& last, SolvedState* before) {
    const bool coupled = last.coupled;
    if (before != nullptr) std::swap(*before, last);
    KeepSolvedState(last, cv);
    last.coupled = coupled;
}

// The first attempt at Vto: from the straight line through the two points before (when there are two
// on the same mesh), then from the ordinary guess.
bool FirstAttempt(CalculationVariables& cv, SolvedState& last, double Vto, SolvedState* before) {
    const bool extrapolate = sweepRecovery && before != nullptr && before->valid &&
                             before->V_applied != last.V_applied && SameMesh(before->mesh, cv.mesh) &&
                             SameMesh(last.mesh, cv.mesh);
    if (extrapolate) {
        ExtrapolatedGuess(cv, *before, last, Vto);
        SolveAtPresentGuess(cv);
        if (CONVERGENTIEFALING == 0) return true;
        RestoreSolvedState(cv, last);
    }
    volgende_iv_punt(cv, last.V_applied, Vto, 2);
    return CONVERGENTIEFALING == 0;
}

} // namespace

PointStatus SolveStep(CalculationVariables& cv, SolvedState& last, double Vto, const std::string& what,
                      SolvedState* before) {
    const double Vfrom = last.V_applied;
    ConvergenceParameters& c = cv.parameters->convergence;
    // Once a walk needed the coupled iteration, its next points start with it: the separate blocks
    // that failed at the point before would fail again and cost the retries at every point.
    const bool coupledFirst = sweepRecovery && last.coupled;
    const SolverChoice choice = coupledFirst ? UseRecoveryIteration(c) : SolverChoice{};
    const bool solved = FirstAttempt(cv, last, Vto, before);
    if (coupledFirst) Reinstate(c, choice);
    if (solved) {
        Advance(cv, last, before);
        return coupledFirst ? PointStatus::ConvergedCoupled : PointStatus::Converged;
    }
    // The retries walk through points of their own: no straight line through the last two after them.
    if (before != nullptr) before->valid = false;
    // A state that had already failed is not a start for a retry.
    last.retried = sweepRecovery && last.valid && last.iteration_count != -1;
    if (!last.retried) return PointStatus::Cut;

    const double sign = zonnecel.signV;
    RestoreSolvedState(cv, last);
    if (!coupledFirst && WalkInHalvedSteps(cv, last, Vto)) {
        TERVOErrorMessage(FmtStr("%s<While calculating %s ...", what),
                          FmtStr("%s<Convergence failure at V = %f[p6] Volt; recovered in smaller steps "
                                 "from V = %f[p6] Volt.",
                                 Vto * sign, Vfrom * sign));
        return PointStatus::RecoveredByHalving;
    }
    // The separate Newton blocks of the Gummel passes did not get there: psi, u and v together.
    const SolverChoice kept = UseRecoveryIteration(c);
    const double reached = last.V_applied;
    const bool coupled = WalkInHalvedSteps(cv, last, Vto);
    Reinstate(c, kept);
    if (coupled) {
        last.coupled = true;
        TERVOErrorMessage(FmtStr("%s<While calculating %s ...", what),
                          FmtStr("%s<Convergence failure at V = %f[p6] Volt; recovered by the coupled "
                                 "iteration from V = %f[p6] Volt.",
                                 Vto * sign, reached * sign));
        return PointStatus::RecoveredByCoupled;
    }
    // Back at the last solved state, whose voltage is where the curve is cut.
    cv.iteration_count = -1;
    CONVERGENTIEFALING = 1;
    last.retried = true;
    return PointStatus::Cut;
}

std::string RetriesText(const SolvedState& last) {
    return last.retried ? "\nThe point was retried in smaller steps and with the coupled iteration." : "";
}

ConvergenceRow MakeConvergenceRow(const CalculationVariables& cv, const std::string& curve, int point,
                                  double value, PointStatus status) {
    return {curve,       point,       value, cv.iteration_count, cv.inner_iterations, cv.max_dpsi,
            cv.max_dEFn, cv.max_dEFp, status};
}

} // namespace tervo
