#include "setup/generation.h"

namespace tervo {

GenerationParameters generatieparameters;
GenerationParameters secondgeneratieparameters;
double Rfront = 0;
double Tfront = 1;

void InitialiseGenerationParameters(GenerationParameters& gp, const GenerationParameters* from) {
    GenerationParameters fresh;
    if (from) {
        fresh.side = from->side;
        fresh.cutoffOn = from->cutoffOn;
        fresh.shortCutoff = from->shortCutoff;
        fresh.longCutoff = from->longCutoff;
        fresh.numberOfWavelengths = from->numberOfWavelengths;
        fresh.transmission = from->transmission;
        fresh.QEmode = from->QEmode;
        fresh.incidentPower = from->incidentPower;
        fresh.numberOfPhotons = from->numberOfPhotons;
    }
    gp = std::move(fresh);
}

void FreeGenerationParameters(GenerationParameters& gp) {
    InitialiseGenerationParameters(gp);
}

} // namespace tervo
