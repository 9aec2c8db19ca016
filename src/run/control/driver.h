// Global state of the simulation driver: what was asked for, which stages are calculated, and the
// modes that the loaded problem switches on.
#pragma once

// Generation_Mode, IPV_Mode and MIS_mode are read by the solver and are declared with its switches.
#include <string>

#include "setup/parameter_sets.h"
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
// Stages of a calculation: 1 not reached, 0 reached.  All start at 1 in `calculate`.
extern int EquilibriumConvergenceFailure;
extern int ShortCircuitConvergenceFailure;
extern int WorkPointConvergenceFailure;
extern int FirstIVPointConvergenceFailure;
extern int FirstCVPointConvergenceFailure;
extern int IVConvergenceFailure;
extern int CVConvergenceFailure;
extern int CfConvergenceFailure;
extern int QEConvergenceFailure;
extern int cvbezig;                    // a C-f sweep is under way
extern int workpointFromPreviousBatch; // the next calculate may start from werkpuntcv
extern double JShortCircuit;           // mA/cm2, median current of the stored short circuit
extern double JWorkingPoint;           // mA/cm2, of the stored working point
extern std::string deffilenamevorig;   // definition of the last calculation

// The records of a batch run and a curve fit (they arrive with those runs).
struct BatchRecord;
struct CurveFitterRecord;

// Requests of `Simulate`.
enum SimulationRequest : int { SINGLE_SHOT = 0, BATCH = 1, BATCH_RECORDING = 2, CURVE_FIT = 3 };

// A stop asked for from outside the calculation (a front end, a signal): read at the pause points.
extern int stopRequested;

// The pause points of a calculation.  Without a user there is nothing to wait for: the result is 1
// (go on), or 0 when a stop was asked for.
int Pause(int panel);
// The guess for the next voltage: 0 shift of the whole solution, 20 and any other value the two
// older guesses that move the electrons only.
extern int versieschatting;

// A change of the cell or the spectrum: nothing of the present problem is calculated any more.
void MarkNothingCalculated();

// The numerical switches of the diagnostics: versieschatting, calculation_of_current, VersieKD,
// VersieJac and the signs of the small-signal currents take their defaults.
void InitialiseDiagnostics();

// Commits the session's cell to the calculation.  The silent form only keeps the batch's list of
// definition files up to date; without a screen the other form does the same as the user's OK.
void SetProblem(int silent);

// Runs one request.  The stored results (result list, stored states) are the effect; the result of
// its calculation is kept in `lastCalculationResult` (0 ran to its end, -1 a stage failed).
void Simulate(int request);
extern int lastCalculationResult;

// The exit status that the last Simulate earns: EXIT_FAILED when a stage failed or a sweep that the
// action list asked for was cut, else EXIT_RAN.
int LastCalculationStatus();

// The fixed sequence of a simulation; 0 when it ran to its end (a sweep may have been cut), -1 when
// a stage failed or a stop was asked for.  `batch` and `curvefitter` are null outside those runs.
int calculate(const BatchRecord* batch, const CurveFitterRecord* curvefitter, int metaPass);
int calculate_withMeta(const BatchRecord* batch, const CurveFitterRecord* curvefitter);

// After equilibrium, short circuit or working point: 1 when `cv` converged (the profiles are then
// extracted), 0 with a message when not.  `flag` is the stage's failure flag.
int CheckConvergenceFailure(int& flag, const std::string& name, int dark, double vReached, double vWanted,
                            CalculationVariables& cv, int ipmode);

// Colour of the present curve and its index among the curve colours (1 .. 15, 0 before the first
// simulation of the list).
inline int kleurindex = 0;
inline int kl = 0;

} // namespace tervo
