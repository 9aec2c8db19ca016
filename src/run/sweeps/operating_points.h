// Reaching the operating points of a cell: the first guess and the solution at equilibrium, the
// solution under the present illumination, and the walk from one voltage to the next with a guess
// for each new voltage.
//
// Voltages here are internal: applied to the left contact, the right contact the reference.
#pragma once

#include <string>

#include "setup/parameter_sets.h"

namespace tervo {

// The applied voltage in volt, in units of kT/q and as exp(V/kT), and the offsets of the carrier
// variables for it.
void SetAppliedVoltage(CalculationVariables& cv, double V);

// Solves from the guess that `cv` holds; CONVERGENTIEFALING 1 when the solve failed or its state is no
// solution.
void SolveAtPresentGuess(CalculationVariables& cv);

// The first guess at V = 0: psi linear between the contact values, flat quasi-Fermi levels at the
// Fermi level of the left contact.
void eerste_schatting(CalculationVariables& cv);

// Poisson's equation alone at V = 0 in the dark, from the first guess.  `iteration_count` takes the
// Poisson count; EquilibriumConvergenceFailure and CONVERGENTIEFALING are 1 on failure, else 0.
void equilibrium(CalculationVariables& cv);

// The guess for a solve after the generation changed (a step of the light): one Newton step of each
// continuity equation with psi held, taken whole, first u and then v.  Under low injection the
// carrier equations at fixed psi are linear in u and v, so the step lands on the new densities that
// the clamped iteration would reach only in many steps of a fraction of kT each (the minority
// densities in a wide-gap layer rise by tens of kT from the dark to the first light).  False, with
// `cv` possibly changed, when a step could not be formed; the caller then starts again from its
// kept state.
bool GuessCarriersForNewGeneration(CalculationVariables& cv);

// Solves at the present voltage with the present generation.  0, or -1 (and CONVERGENTIEFALING 1)
// when the state had already failed; CONVERGENTIEFALING tells how the solve went.
int onder_belichting(CalculationVariables& cv);

// Walks from Vfrom to Vto in n - 1 equal steps, each a guess and a solve; stops at the first failure
// with CONVERGENTIEFALING 1.  A failed state is not stepped; a step below 1e-9 V is no step.
void volgende_iv_punt(CalculationVariables& cv, double Vfrom, double Vto, int n);

// The same walk with the retries of a failed step (smaller steps, then the coupled iteration) when
// they are switched on; `what` names the walk in the messages of a recovered step.
void WalkWithRecovery(CalculationVariables& cv, double Vfrom, double Vto, int n, const std::string& what);

// The guess for voltage V reached by a step dV, by the routine that versieschatting chooses.
void volgende_schatting(CalculationVariables& cv, double V, double dV);
// Shifts the whole solution by the linear potential that the voltage step adds.
void volgende_schatting_TERVO_MOST_RECENT(CalculationVariables& cv, double V, double dV);
// Older guesses that move only the electron quasi-Fermi level; the second also tilts psi.
void volgende_schatting_TERVO1(CalculationVariables& cv, double V, double dV);
void volgende_schatting_TERVO20(CalculationVariables& cv, double V, double dV);

// Makes `cv` a copy of a stored state, with the graded properties expanded on the stored mesh.  With
// `regenerate` not 0 the generation profile is formed anew on that mesh: by the optical model, or
// from the generation file of the working point when Generation_Mode is 1.
void ReturnToAKnownStartingPoint(CalculationVariables& cv, const CalculationVariables& stored,
                                 int regenerate);

// How a sweep walks its voltages after CalculateStartingPoint.
enum SweepStartMode : int {
    SWEEP_FAILED = 0,         // the first point was not reached
    SWEEP_FROM_START = 1,     // from start to stop
    SWEEP_AROUND_ZERO = 6,    // 0 V lies inside the range: two branches away from the short circuit
    SWEEP_AROUND_WORKING = 7, // the working-point voltage lies inside: two branches away from it
};

// Brings `cv` to the first voltage of a sweep from the nearest known state: the short circuit, the
// working point (voltage of `wp`) or the present state.  `start` and `stop` are the sweep's own
// values (internal convention) and may be exchanged, so that the sweep runs from the nearer end, or
// ordered ascending when the range holds 0 V or the working-point voltage.  The result is the
// SweepStartMode, 0 after a convergence failure (reported under the sweep's `name`), or the result
// of a pause that was not "go on".  `kind` names the sweep (3 I-V, 4 C-V) and changes nothing.
int CalculateStartingPoint(double& start, double& stop, CalculationVariables& cv,
                           const CalculationVariables& shortcircuit, const CalculationVariables& workingpoint,
                           const std::string& name, int kind);

// For an ascending sweep v[0..n-1] with v[0] < Vs < v[n-1]: the voltages above Vs in rising order,
// then those at or below it in falling order, so that both branches walk away from Vs.
// `splitIndex` becomes the index where the second branch begins.  Otherwise nothing changes.
void ReorderVoltagesAroundStartVoltage(double* v, int n, double Vs, int& splitIndex);

} // namespace tervo
