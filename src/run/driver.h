// Global state of the simulation driver: what was asked for, which stages are calculated, and the
// modes that the loaded problem switches on.
#pragma once

// Generation_Mode, IPV_Mode and MIS_mode are read by the solver and are declared with its switches.
#include "solver/discrete_equations.h"

namespace tervo {

extern int Calculationmode; // 0 single shot, 1 batch, 2 batch with recording, 3 curve fit, -1 none
extern int secondGeneration_Mode;
extern int META_Mode;
extern int pausestatus;
extern int equiberekend; // equilibrium calculated for the present problem
extern int kortberekend; // short circuit calculated
extern int werkberekend; // working point calculated
extern int AllFilesFound;
extern int SingleShotSimulationNumber;
extern int BatchSimulationNumber;
extern int CurveFitSimulationNumber;

// Convergence failure of the last solve (equilibrium, short circuit, a step of the voltage): 1 failed.
extern int CONVERGENTIEFALING;
// Stages of a calculation: 1 not reached, 0 reached.
extern int EquilibriumConvergenceFailure;
// The guess for the next voltage: 0 shift of the whole solution, 20 and any other value the two
// older guesses that move the electrons only.
extern int versieschatting;

// A change of the cell or the spectrum: nothing of the present problem is calculated any more.
void MarkNothingCalculated();

// Colour of the present curve and its index among the curve colours (1 .. 15, 0 before the first
// simulation of the list).
inline int kleurindex = 0;
inline int kl = 0;

} // namespace tervo
