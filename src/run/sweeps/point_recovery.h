// Steps of a voltage walk that do not give up at the first failure, and the test that a state the
// solver returned is a solution at all.
//
// A point whose solve fails is tried again from the last solved state: first in smaller voltage
// steps (the step halved on each failure, a bounded number of times), then with the fully coupled
// Newton iteration in the same steps and carrier offsets that both contacts can resolve.  Only when
// both fail is the curve cut.  With the recovery switched off a failure cuts at once.
#pragma once

#include <string>
#include <vector>

#include "run/results/result_list.h"
#include "setup/mesh.h"
#include "setup/parameter_sets.h"

namespace tervo {

// 1 (default): a failed point is retried before the curve is cut; 0: the first failure cuts.
extern int sweepRecovery;
// The smallest step of a retry is the failed step divided by 2 to this power.
inline constexpr int MAX_STEP_HALVINGS = 6;
// The coupling scheme of the second retry: psi, u and v in one Newton iteration.
inline constexpr int RECOVERY_SCHEME = 13;
// The carrier offsets of the second retry: a_n = 1/(1 + e^-V), a_p = 1/(1 + e^V), the smaller of the
// two contact values of each carrier (to a factor 2).  The default offsets take the larger one, e^V for
// the electrons: beyond about 0.9 V forward (e^(V/kT) near the inverse of the machine precision) the
// equilibrium density at the other contact, a_n + u = 1, is lost in the rounding of a_n + u, and a
// thick absorber whose minority carriers stay at that level over tens of µm cannot be solved.
inline constexpr int RECOVERY_OFFSETS = 0;
// With the recovery on, the Gummel passes of a solve after which the coupled iteration finishes it
// (also when the first pass moved nothing): the separate blocks converge linearly, and where they
// are slow (high injection) the update that ends them hides errors of some 1e-4 in the current, as
// does a guess that starts within the termination; the coupled finish leaves the square of that.
inline constexpr int GUMMEL_PASSES_BEFORE_NEWTON = 1;

// The variables of a solved state that a new solve starts from: the potential, the carrier variables
// and their offsets, the voltage, and the mesh they live on.  Small next to the whole record; the
// defect occupations are found again by the next solve.
struct SolvedState {
    MeshBlock mesh;
    std::vector<double> psi, u, v, EFn, EFp;
    double a_n = 0, a_p = 0;
    double V_applied = 0, V_norm = 0, exp_V = 1;
    int iteration_count = 0;
    bool valid = false;
    bool retried = false; // the last step from this state failed and was retried
    bool coupled = false; // the walk needed the coupled iteration: its next steps start with it
};

void KeepSolvedState(SolvedState& kept, const CalculationVariables& cv);
// Puts the kept state back; on another mesh the mesh, the properties on it and the generation
// profiles are restored as well.
void RestoreSolvedState(CalculationVariables& cv, const SolvedState& kept);

// The current through a solution is the same at every point of the mesh.  A state whose total current
// varies through the stack by more than this share of the carrier currents (or that holds a value that
// is not finite) is not a solution, whatever the size of the last Newton steps.  Solved cells keep the
// spread below 1e-4 of the carrier currents even in high injection; the states that the outer
// iteration leaves when it stalls (stopped by two equal currents, or by steps that no longer move)
// show a few per cent and more.
inline constexpr double SOLUTION_CURRENT_SPREAD = 1e-2;
// Below this (mA/cm2) a spread of the current is rounding: the minority-carrier variables near a contact
// lose digits to the majority density, which leaves about 1e-6 mA/cm2 in a junction in the dark.
inline constexpr double SOLUTION_CURRENT_FLOOR = 1e-5;
bool StateIsSolution(CalculationVariables& cv);

// One step of a walk: from the solved state `last` (which `cv` holds) to the voltage Vto, with the
// recovery when it is switched on.  On success `last` holds the new state; on a cut `cv` holds the
// last failed iterate and `last` the state before.  `what` names the curve and the unit of its
// messages ("I(V)", "C(V)", ...).
// With `before`, the solved state before `last` on the walk, the first guess lies on the straight line
// through the two (with the retries switched on); `before` then moves on with the walk.
PointStatus SolveStep(CalculationVariables& cv, SolvedState& last, double Vto, const std::string& what,
                      SolvedState* before = nullptr);

// The line a cut message adds when the failed step from `last` was retried; empty without retries.
std::string RetriesText(const SolvedState& last);

ConvergenceRow MakeConvergenceRow(const CalculationVariables& cv, const std::string& curve, int point,
                                  double value, PointStatus status);

} // namespace tervo
