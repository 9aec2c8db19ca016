// Reaching the operating points of a cell: the first guess and the solution at equilibrium, the
// solution under the present illumination, and the walk from one voltage to the next with a guess
// for each new voltage.
//
// Voltages here are internal: applied to the left contact, the right contact the reference.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// The first guess at V = 0: psi linear between the contact values, flat quasi-Fermi levels at the
// Fermi level of the left contact.
void eerste_schatting(CalculationVariables& cv);

// Poisson's equation alone at V = 0 in the dark, from the first guess.  `iteration_count` takes the
// Poisson count; EquilibriumConvergenceFailure and CONVERGENTIEFALING are 1 on failure, else 0.
void equilibrium(CalculationVariables& cv);

// Solves at the present voltage with the present generation.  0, or -1 (and CONVERGENTIEFALING 1)
// when the state had already failed; CONVERGENTIEFALING tells how the solve went.
int onder_belichting(CalculationVariables& cv);

// Walks from Vfrom to Vto in n - 1 equal steps, each a guess and a solve; stops at the first failure
// with CONVERGENTIEFALING 1.  A failed state is not stepped; a step below 1e-9 V is no step.
void volgende_iv_punt(CalculationVariables& cv, double Vfrom, double Vto, int n);

// The guess for voltage V reached by a step dV, by the routine that versieschatting chooses.
void volgende_schatting(CalculationVariables& cv, double V, double dV);
// Shifts the whole solution by the linear potential that the voltage step adds.
void volgende_schatting_TERVO_MOST_RECENT(CalculationVariables& cv, double V, double dV);
// Older guesses that move only the electron quasi-Fermi level; the second also tilts psi.
void volgende_schatting_TERVO1(CalculationVariables& cv, double V, double dV);
void volgende_schatting_TERVO20(CalculationVariables& cv, double V, double dV);

} // namespace tervo
