// The illumination record: a table of wavelengths with the power of each interval, filters of both
// contacts, and the fluxes and generation on the mesh.
#pragma once

#include <array>
#include <vector>

#include "cell/cell_records.h"

namespace tervo {

struct GenerationParameters {
    int numberOfWavelengths = 0;
    double transmission = 1.0; // 10^-ND
    int side = -1;             // -1 light from the left, +1 from the right
    int cutoffOn = 0;
    double shortCutoff = 0;   // nm
    double longCutoff = 2000; // nm
    int QEmode = 1;           // 0 constant incident power, 1 constant number of photons
    double incidentPower = 10;
    double numberOfPhotons = 1e19;
    std::vector<double> rightFilter;
    std::vector<double> leftFilter;
    std::vector<double> lambda;                             // nm, rising
    std::vector<double> watt_lambda;                        // W/m2 of each wavelength interval
    std::vector<double> incomingFlux_us;                    // photons per m2 and second
    std::array<double, MAX_MESH_POINTS> cutoffWavelength{}; // 1239.977/Eg(x), nm
    std::array<double, MAX_MESH_POINTS> G{};                // normalised generation
    std::vector<double> flux;                               // per wavelength and mesh point, normalised
    std::vector<double> generation;                         // the same
    std::vector<std::vector<double>> alfa_us;               // per mesh point, alpha at each wavelength, /m
    std::vector<std::vector<double>> alfa;                  // alpha L
};

extern GenerationParameters generatieparameters;
extern GenerationParameters secondgeneratieparameters;

// Internal reflection and transmission at the front surface; they add up to 1.
extern double Rfront;
extern double Tfront;

// The defaults, or with `from` its side, cut-off and numbers; all arrays empty.
void InitialiseGenerationParameters(GenerationParameters& gp, const GenerationParameters* from = nullptr);
void FreeGenerationParameters(GenerationParameters& gp);

} // namespace tervo
