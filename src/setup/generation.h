// The illumination record: a table of wavelengths with the power of each interval, filters of both
// contacts, and the absorption, fluxes and generation on the mesh.
//
// Units.  Wavelengths in nm, powers in W/m2 per wavelength interval, incoming fluxes in photons per
// m2 and second.  On the mesh the flux of a point in layer i is normalised by N_i D / L and the
// generation by N_i D / L^2 (D and N_i the scales of the normalisation, L the cell thickness), so that
// the generation is alpha L times the flux.
#pragma once

#include <array>
#include <cstddef>
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
    // Per wavelength: transmission of the contact on the illuminated side, reflection of the far one
    // (fractions).
    std::vector<double> rightFilter;
    std::vector<double> leftFilter;
    std::vector<double> lambda;                             // nm, rising
    std::vector<double> watt_lambda;                        // W/m2 of each wavelength interval
    std::vector<double> incomingFlux_us;                    // photons per m2 and second
    std::array<double, MAX_MESH_POINTS> cutoffWavelength{}; // 1239.977/Eg(x), nm
    std::array<double, MAX_MESH_POINTS> G{};                // normalised generation
    // Per wavelength k and mesh point j, at k * fluxPoints + j (see FluxIndex), normalised.
    std::vector<double> flux;
    std::vector<double> generation;           // the same layout
    int fluxPoints = 0;                       // mesh points of one wavelength's row in flux and generation
    std::vector<std::vector<double>> alfa_us; // [mesh point][wavelength], /m
    std::vector<std::vector<double>> alfa;    // alpha L, normalised
};

// Position of wavelength k at mesh point j in `flux` and `generation`.
inline std::size_t FluxIndex(const GenerationParameters& gp, int k, int j) {
    return static_cast<std::size_t>(k) * static_cast<std::size_t>(gp.fluxPoints) +
           static_cast<std::size_t>(j);
}

extern GenerationParameters generatieparameters;
extern GenerationParameters secondgeneratieparameters;

// Internal reflection and transmission at the front surface; they add up to 1.  Light reflected at the
// back contact returns to the front, where the share Rfront is sent back into the cell again.
extern double Rfront;
extern double Tfront;

// The defaults, or with `from` its side, cut-off and numbers; all arrays empty.
void InitialiseGenerationParameters(GenerationParameters& gp, const GenerationParameters* from = nullptr);
void FreeGenerationParameters(GenerationParameters& gp);

} // namespace tervo
