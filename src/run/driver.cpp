#include "run/driver.h"

namespace tervo {

int Calculationmode = -1;
int Generation_Mode = 0;
int secondGeneration_Mode = 0;
int IPV_Mode = 0;
int META_Mode = 0;
int MIS_mode = 0;
int pausestatus = 0;
int equiberekend = 0;
int kortberekend = 0;
int werkberekend = 0;
int AllFilesFound = 1;
int SingleShotSimulationNumber = 0;
int BatchSimulationNumber = 0;
int CurveFitSimulationNumber = 0;

void MarkNothingCalculated() {
    equiberekend = 0;
    kortberekend = 0;
    werkberekend = 0;
}

} // namespace tervo
