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
int versieschatting = 0;

void MarkNothingCalculated() {
    equiberekend = 0;
    kortberekend = 0;
    werkberekend = 0;
}

} // namespace tervo
