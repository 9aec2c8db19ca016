#include "run/sweeps/operating_points.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "cell/cell_records.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/sweeps/point_recovery.h"
#include "setup/absorption.h"
#include "setup/generation.h"
#include "solver/discrete_equations.h"
#include "solver/gummel.h"
#include "solver/small_linalg.h"

namespace tervo {

void SetAppliedVoltage(CalculationVariables& cv, double V) {
    const double kT = cv.parameters->kT;
    cv.V_applied = V;
    cv.V_norm = V / kT;
    cv.exp_V = std::exp(cv.V_norm);
    Set_an_And_ap(cv, cv.a_n, cv.a_p);
}

namespace {

// The Dirichlet values of psi: 0 at the left contact, the difference of the work functions less
// the applied voltage at the right one.
void SetContactPotentials(CalculationVariables& cv, double V) {
    const CalculationParameters& P = *cv.parameters;
    const int n = MeshPoints(cv);
    if (n == 0) return;
    cv.psi[0] = 0;
    cv.psi[At(n - 1)] = (P.Fi_m_left - P.Fi_m_right - V) / P.kT;
}

// The fraction of the way from the left contact to the right one of each point.
double Fraction(const CalculationVariables& cv, int i) {
    const int n = MeshPoints(cv);
    const double x0 = cv.mesh.x[0];
    const double x1 = cv.mesh.x[At(n - 1)];
    return (cv.mesh.x[At(i)] - x0) / (x1 - x0);
}

// The two older guesses: the electron quasi-Fermi level moves by the step where it has not yet
// reached the new voltage (walking away from 0) or where it lies beyond it (walking back to 0).
void ElectronsOnlyGuess(CalculationVariables& cv, double V, double dV, bool tiltPsi) {
    const CalculationParameters& P = *cv.parameters;
    const double kT = P.kT;
    const int n = MeshPoints(cv);
    if (tiltPsi)
        for (int i = 0; i < n; ++i) cv.psi[At(i)] -= dV * Fraction(cv, i) / kT;
    SetContactPotentials(cv, V);
    update_psivar(cv);
    MeshArray L;
    for (size_t i = 0; i < At(n); ++i) L[i] = std::log(cv.a_n + cv.u[i]);
    const double target = std::fabs(V / kT);
    if (dV != 0 && V != 0) {
        const bool away = (dV > 0) == (V > 0);
        for (size_t i = 0; i < At(n); ++i) {
            const double level = std::fabs(L[i]);
            if (away ? level < target : level > target) L[i] += dV / kT;
        }
    }
    SetAppliedVoltage(cv, V);
    for (size_t i = 0; i < At(n); ++i) {
        cv.u[i] = std::exp(L[i]) - cv.a_n;
        cv.EFn[i] = L[i];
    }
}

} // namespace

void eerste_schatting(CalculationVariables& cv) {
    SetAppliedVoltage(cv, 0.0);
    const int n = MeshPoints(cv);
    if (n == 0) return;
    SetContactPotentials(cv, 0.0);
    // Inside the stack the potential of the neutral material at each point: n - p equals the net
    // doping with flat Fermi levels, n = Nc_eff e^psi and p = Nv_eff e^-psi.  The equilibrium this
    // leads to is the one a straight line between the contacts leads to, but the clamped Newton steps
    // then only have to shape the junctions; from the straight line a layer of some tens of µm
    // takes hundreds of steps to reach its flat bulk.
    const CalculationParameters& P = *cv.parameters;
    for (int i = 1; i < n - 1; ++i) {
        const size_t I = At(i);
        const double Nc = P.Nc_eff[I], Nv = P.Nv_eff[I], D = P.doping[I];
        if (!(Nc > 0) || !(Nv > 0)) {
            cv.psi[I] = cv.psi[At(n - 1)] * Fraction(cv, i);
            continue;
        }
        const double root = std::sqrt(D * D + 4 * Nc * Nv);
        // e^psi from Nc x^2 - D x - Nv = 0, in the form without cancellation for either sign of D.
        const double x = D >= 0 ? (D + root) / (2 * Nc) : 2 * Nv / (root - D);
        cv.psi[I] = std::log(x);
    }
    update_psivar(cv);
    for (size_t i = 0; i < At(n); ++i) {
        cv.EFn[i] = 0;
        cv.EFp[i] = 0;
        cv.u[i] = 1 - cv.a_n;
        cv.v[i] = 1 - cv.a_p;
    }
}

namespace {

// Newton's method on Poisson's equation alone from the present psi, with every point's step limited
// on its own: a step d (in kT) becomes c ln(1 + |d|/c) with its sign, c = 2 kT.  Small steps are
// taken nearly whole, so that the iteration ends quadratically; a large one grows only with its
// logarithm, which keeps exp(psi) in the space charge from overshooting.  The iteration that limits
// the whole step by one factor to the clamp moves the potential of a depleted layer by the clamp per
// step, and a junction bends by some 40 kT.  The number of steps when the last step was below the
// termination of psi, or -1 when there was no convergence within `limit` steps.
int PoissonNewton(CalculationVariables& cv, int limit) {
    constexpr double c = 2.0;
    const int n = MeshPoints(cv);
    const double termination = cv.parameters->convergence.termination_psi;
    trimatrix J(n);
    std::vector<double> rhs(At(n)), delta(At(n));
    InterfaceExtra extra{};
    for (int k = 0; k <= limit; ++k) {
        if (!RefreshRecombination(cv)) return -1;
        bereken_stelsel_psi_Gummel(cv, rhs);
        bereken_jac_psi_Gummel(cv, J, extra);
        if (bereken_delta_psi_Gummel(cv, J, extra, rhs, delta) < 0) return -1;
        double largest = 0;
        for (const double d : delta) largest = std::max(largest, std::fabs(d));
        if (!std::isfinite(largest)) return -1;
        // The last step, below the termination, is taken too: it costs nothing and leaves psi
        // within the square of it.
        for (size_t i = 0; i < At(n); ++i)
            cv.psi[i] += std::copysign(c * std::log1p(std::fabs(delta[i]) / c), delta[i]);
        update_psivar(cv);
        if (largest <= termination) return k + 1;
    }
    return -1;
}

} // namespace

void equilibrium(CalculationVariables& cv) {
    InitialiseTunnelCurrent(cv, 0);
    eerste_schatting(cv);
    // The iteration of the solver takes over from the limited Newton steps, and on its own from the
    // first guess when they did not converge; they take some ten steps on the shipped cells.
    const int steps = PoissonNewton(cv, std::min(cv.parameters->convergence.maxiter_psi_start, 50));
    if (steps < 0) eerste_schatting(cv);
    psi_iteratie_Gummel(cv, 1);
    if (steps > 0 && cv.psi_iterations >= 0) cv.psi_iterations += steps;
    cv.iteration_count = cv.psi_iterations;
    const int failed = cv.iteration_count == -1 ? 1 : 0;
    EquilibriumConvergenceFailure = failed;
    CONVERGENTIEFALING = failed;
}

bool GuessCarriersForNewGeneration(CalculationVariables& cv) {
    if (cv.iteration_count == -1) return false;
    const int n = MeshPoints(cv);
    if (n == 0) return false;
    const ConvergenceParameters& c = cv.parameters->convergence;
    const double fall = std::exp(-c.clamp_n);
    const double termination = std::min(c.termination_Fn, c.termination_Fp);
    trimatrix J(n);
    std::vector<double> rhs(At(n)), delta(At(n));
    // A second pass corrects what the first left through the nonlinearity of the recombination, so
    // that the solve does not stop at once on a guess that is only within its termination.
    for (int pass = 0; pass < 3; ++pass) {
        double largest = 0; // change of a quasi-Fermi level, kT
        for (const int carrier : {-1, 1}) {
            const bool electrons = carrier == -1;
            if (!RefreshRecombination(cv)) return false;
            if (electrons) {
                bereken_jac_u_Gummel(cv, J);
                bereken_stelsel_u_Gummel(cv, rhs);
            } else {
                bereken_jac_v_Gummel(cv, J);
                bereken_stelsel_v_Gummel(cv, rhs);
            }
            if (bereken_delta_u_of_v_Gummel(cv, J, rhs, delta) < 0) return false;
            MeshArray& w = electrons ? cv.u : cv.v;
            MeshArray& level = electrons ? cv.EFn : cv.EFp;
            const double offset = electrons ? cv.a_n : cv.a_p;
            for (size_t i = 0; i < At(n); ++i) {
                // The density at a point is proportional to offset + w.  A fall is held to the clamp
                // of the solver, which also keeps the density positive; a rise is taken whole.
                const double before = offset + w[i];
                double after = before + delta[i];
                if (!(after >= before * fall)) after = before * fall;
                if (!std::isfinite(after)) return false;
                w[i] = after - offset;
                level[i] = electrons ? std::log(after) : -std::log(after);
                largest = std::max(largest, std::fabs(std::log(after / before)));
            }
        }
        if (largest <= termination) break;
    }
    return true;
}

int onder_belichting(CalculationVariables& cv) {
    if (cv.iteration_count == -1) {
        CONVERGENTIEFALING = 1;
        return -1;
    }
    SolveAtPresentGuess(cv);
    return 0;
}

void volgende_iv_punt(CalculationVariables& cv, double Vfrom, double Vto, int n) {
    if (cv.iteration_count == -1) {
        CONVERGENTIEFALING = 1;
        return;
    }
    CONVERGENTIEFALING = 0;
    if (std::fabs(Vto - Vfrom) < 1e-9) return;
    if (n < 2) n = 2; // a walk has at least its one step
    const double dV = (Vto - Vfrom) / (n - 1);
    for (int i = 1; i <= n - 1; ++i) {
        // From the ends, not by adding dV, so that the last voltage is Vto exactly.
        const double V = Vfrom + i * (Vto - Vfrom) / (n - 1);
        volgende_schatting(cv, V, dV);
        SolveAtPresentGuess(cv);
        if (CONVERGENTIEFALING == 1) return;
    }
}

void WalkWithRecovery(CalculationVariables& cv, double Vfrom, double Vto, int n, const std::string& what) {
    if (!sweepRecovery || cv.iteration_count == -1) {
        volgende_iv_punt(cv, Vfrom, Vto, n);
        return;
    }
    CONVERGENTIEFALING = 0;
    if (n < 2) n = 2;
    SolvedState last;
    KeepSolvedState(last, cv);
    for (int i = 1; i <= n - 1; ++i)
        if (SolveStep(cv, last, Vfrom + i * (Vto - Vfrom) / (n - 1), what) == PointStatus::Cut) return;
}

namespace {

// One solve from the present guess: true when the solver converged to a solution.
bool SolvedFromPresentGuess(CalculationVariables& cv) {
    const int result = los_totaal_dc_stelsel_op_Gummel(cv);
    bool solved = result != -1 && cv.iteration_count != -1;
    if (solved && !StateIsSolution(cv)) {
        cv.iteration_count = -1;
        solved = false;
    }
    return solved;
}

} // namespace

void SolveAtPresentGuess(CalculationVariables& cv) {
    // A solve counts when the solver says it converged and the state it left is a solution (a state
    // that only stopped moving is not); a state that is not becomes a failed one.  With the recovery
    // on, the Gummel passes are finished by the coupled iteration; where Newton's method fails (a guess
    // too far from the solution, as when the light of a ramp grows by orders of magnitude), the Gummel
    // passes alone try again from the same guess, also under the coupled scheme.
    static SolvedState guess;
    ConvergenceParameters& c = cv.parameters->convergence;
    const bool recovery = sweepRecovery != 0;
    gummelPassesBeforeNewton = recovery ? GUMMEL_PASSES_BEFORE_NEWTON : 0;
    if (recovery) KeepSolvedState(guess, cv);
    bool solved = SolvedFromPresentGuess(cv);
    if (!solved && recovery) {
        RestoreSolvedState(cv, guess);
        const int scheme = c.coupling_scheme;
        if (scheme == 13 || scheme == 14) c.coupling_scheme = 11;
        gummelPassesBeforeNewton = 0;
        solved = SolvedFromPresentGuess(cv);
        c.coupling_scheme = scheme;
    }
    gummelPassesBeforeNewton = 0;
    CONVERGENTIEFALING = solved ? 0 : 1;
}

void volgende_schatting(CalculationVariables& cv, double V, double dV) {
    if (versieschatting == 0)
        volgende_schatting_TERVO_MOST_RECENT(cv, V, dV);
    else if (versieschatting == 20)
        volgende_schatting_TERVO20(cv, V, dV);
    else
        volgende_schatting_TERVO1(cv, V, dV);
}

void volgende_schatting_TERVO_MOST_RECENT(CalculationVariables& cv, double V, double dV) {
    SetAppliedVoltage(cv, V);
    const double kT = cv.parameters->kT;
    const int n = MeshPoints(cv);
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        const double d = Fraction(cv, i) * dV / kT;
        cv.psi[I] -= d;
        cv.EFn[I] += d;
        cv.EFp[I] += d;
        cv.u[I] = std::exp(cv.EFn[I]) - cv.a_n;
        cv.v[I] = std::exp(-cv.EFp[I]) - cv.a_p;
    }
    SetContactPotentials(cv, V);
    update_psivar(cv);
}

void volgende_schatting_TERVO1(CalculationVariables& cv, double V, double dV) {
    ElectronsOnlyGuess(cv, V, dV, false);
}

void volgende_schatting_TERVO20(CalculationVariables& cv, double V, double dV) {
    ElectronsOnlyGuess(cv, V, dV, true);
}

void ReturnToAKnownStartingPoint(CalculationVariables& cv, const CalculationVariables& stored,
                                 int regenerate) {
    // The generation profile in use belongs to the mesh of the state left behind.  When the stored
    // state lies on the same mesh it needs no new optical calculation, which is the costly part of a
    // return (every wavelength of the spectrum through the whole stack).
    const bool sameMesh = SameMesh(cv.mesh, stored.mesh);
    if (&cv != &stored) CopyCalculationVariables(cv, stored);
    Full_x_Dependence(cv);
    if (regenerate == 0 || sameMesh) return;
    // The stored state lies on another mesh: the generation profile is formed anew on it.
    GenerationParameters& gp = cv.generation != nullptr ? *cv.generation : generatieparameters;
    if (Generation_Mode == 0) {
        // The absorption coefficients of the points first: the ones in hand belong to the mesh left
        // behind, and on another mesh they would give no light (or, in a graded layer, the light of
        // other compositions).
        bepaal_alfa(cv, gp);
        CalculateOpticalGeneration(cv, gp, 0, IPV_Mode == 1);
    } else {
        bereken_generatie_uit_file(cv, gp, wp.dark, wp.generationFile, wp.attenuation);
    }
}

namespace {

// Where the walk to the first voltage of a sweep begins.
enum class Origin { ShortCircuit, WorkingPoint, PresentState };

struct StartChoice {
    Origin origin = Origin::ShortCircuit;
    double to = 0; // first voltage of the sweep
    int steps = 2; // points of the walk, ends included
    int mode = SWEEP_FROM_START;
};

// The choice of the first case that fits; may exchange or order start and stop.
StartChoice ChooseStart(double& start, double& stop, double c, double Vw) {
    StartChoice s;
    if (start == 0) {
        s.origin = Origin::ShortCircuit;
        s.to = start;
    } else if (stop == 0) {
        std::swap(start, stop);
        s.origin = Origin::ShortCircuit;
        s.to = start;
    } else if (start == Vw) {
        s.origin = Origin::WorkingPoint;
        s.to = start;
    } else if (stop == Vw) {
        std::swap(start, stop);
        s.origin = Origin::WorkingPoint;
        s.to = start;
    } else if (start == c) {
        s.origin = Origin::PresentState;
        s.to = start;
    } else if (stop == c) {
        std::swap(start, stop);
        s.origin = Origin::PresentState;
        s.to = start;
    } else if (start == stop) {
        // One voltage, reached from the nearest of the three known states, in the working point's
        // number of steps.
        const double V = start;
        s.to = V;
        s.steps = wp.numberofpoints;
        s.origin = Origin::ShortCircuit;
        if (std::fabs(V - Vw) < std::fabs(V) && std::fabs(V - Vw) <= std::fabs(V - c))
            s.origin = Origin::WorkingPoint;
        if (std::fabs(V - c) < std::fabs(V) && std::fabs(V - c) < std::fabs(V - Vw))
            s.origin = Origin::PresentState;
    } else {
        if (start > stop) std::swap(start, stop);
        if (start < 0 && 0 < stop) {
            // 0 V inside the range: the sweep walks two branches away from the short circuit.
            s.origin = Origin::ShortCircuit;
            s.to = 0;
            s.mode = SWEEP_AROUND_ZERO;
        } else if (start < Vw && Vw < stop) {
            s.origin = Origin::WorkingPoint;
            s.to = Vw;
            s.mode = SWEEP_AROUND_WORKING;
        } else {
            // The first known state that lies nearer to one end than the short circuit lies to the
            // start decides which end the sweep begins at.
            s.steps = wp.numberofpoints;
            const double reference = std::fabs(start);
            if (std::fabs(stop) < reference) {
                std::swap(start, stop);
                s.origin = Origin::ShortCircuit;
            } else if (std::fabs(start - Vw) < reference) {
                s.origin = Origin::WorkingPoint;
            } else if (std::fabs(stop - Vw) < reference) {
                std::swap(start, stop);
                s.origin = Origin::WorkingPoint;
            } else if (std::fabs(start - c) < reference) {
                s.origin = Origin::PresentState;
            } else if (std::fabs(stop - c) < reference) {
                std::swap(start, stop);
                s.origin = Origin::PresentState;
            } else {
                s.origin = Origin::ShortCircuit;
            }
            s.to = start;
        }
    }
    return s;
}

} // namespace

int CalculateStartingPoint(double& start, double& stop, CalculationVariables& cv,
                           const CalculationVariables& shortcircuit, const CalculationVariables& workingpoint,
                           const std::string& name, int kind) {
    (void)kind; // the kind of sweep only chose a status line on a screen
    const double c = cv.V_applied;
    const double Vw = wp.voltage;
    const StartChoice choice = ChooseStart(start, stop, c, Vw);
    double from = c;
    switch (choice.origin) {
    case Origin::ShortCircuit:
        ReturnToAKnownStartingPoint(cv, shortcircuit, 1);
        from = 0;
        break;
    case Origin::WorkingPoint:
        ReturnToAKnownStartingPoint(cv, workingpoint, 1);
        from = Vw;
        break;
    case Origin::PresentState:
        break;
    }
    WalkWithRecovery(cv, from, choice.to, choice.steps, name);
    if (pausestatus) {
        const int answer = Pause(0);
        if (answer != 1) return answer;
    }
    if (cv.iteration_count == -1) {
        const double sign = zonnecel.signV;
        TERVOErrorMessage(
            FmtStr("%s<Calculating first point of %s from working point", name),
            FmtStr("%s<from V = %f[p3] Volt to V = %f[p3] V: convergence failure at V = %f[p3] Volt",
                   from * sign, choice.to * sign, cv.V_applied * sign));
        return SWEEP_FAILED;
    }
    update_eb_panel(cv, 1);
    return choice.mode;
}

void ReorderVoltagesAroundStartVoltage(double* v, int n, double Vs, int& splitIndex) {
    if (v == nullptr || n < 2 || !(v[0] < Vs && Vs < v[n - 1])) return;
    int k = 0;
    while (k < n && !(v[k] > Vs)) ++k;
    std::vector<double> order;
    order.reserve(At(n));
    for (int i = k; i < n; ++i) order.push_back(v[i]);
    for (int i = k - 1; i >= 0; --i) order.push_back(v[i]);
    std::copy(order.begin(), order.end(), v);
    splitIndex = n - k;
}

} // namespace tervo
