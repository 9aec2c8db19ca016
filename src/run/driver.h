// Global state of the simulation driver: what was asked for, which stages are calculated, and the
// modes that the loaded problem switches on.
#pragma once

namespace tervo {

extern int Calculationmode; // 0 single shot, 1 batch, 2 batch with recording, 3 curve fit, -1 none
extern int Generation_Mode; // 0 internal optical model, 1 generation from a file
extern int secondGeneration_Mode;
extern int IPV_Mode; // 1 when a defect of the cell has optical capture data
extern int META_Mode;
extern int MIS_mode;
extern int pausestatus;
extern int equiberekend; // equilibrium calculated for the present problem
extern int kortberekend; // short circuit calculated
extern int werkberekend; // working point calculated
extern int AllFilesFound;
extern int SingleShotSimulationNumber;
extern int BatchSimulationNumber;
extern int CurveFitSimulationNumber;

// A change of the cell or the spectrum: nothing of the present problem is calculated any more.
void MarkNothingCalculated();

} // namespace tervo
