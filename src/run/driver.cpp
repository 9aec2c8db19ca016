#include "run/driver.h"

namespace tervo {

int Calculationmode = -1;
int secondGeneration_Mode = 0;
int META_Mode = 0;
int pausestatus = 0;
int equiberekend = 0;
int kortberekend = 0;
int werkberekend = 0;
int AllFilesFound = 1;
int SingleShotSimulationNumber = 0;
int BatchSimulationNumber = 0;
int CurveFitSimulationNumber = 0;
int CONVERGENTIEFALING = 0;
int EquilibriumConvergenceFailure = 1;
int ShortCircuitConvergenceFailure = 1;
int WorkPointConvergenceFailure = 1;
int FirstIVPointConvergenceFailure = 1;
int FirstCVPointConvergenceFailure = 1;
int IVConvergenceFailure = 1;
int CVConvergenceFailure = 1;
int CfConvergenceFailure = 1;
int QEConvergenceFailure = 1;
int cvbezig = 0;
int workpointFromPreviousBatch = 0;
double JShortCircuit = 0;
double JWorkingPoint = 0;
std::string deffilenamevorig;
int versieschatting = 0;
int stopRequested = 0;

int Pause(int /*panel*/) {
    // Without a user a pause point only looks at the stop flag.
    return stopRequested ? 0 : 1;
}

void MarkNothingCalculated() {
    equiberekend = 0;
    kortberekend = 0;
    werkberekend = 0;
}

} // namespace tervo
