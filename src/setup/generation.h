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
#include <cstdint>
#include <vector>

#include "cell/cell_records.h"

namespace tervo {

// The absorption spectrum of one pure material on its own wavelength grid.
struct AlphaTable {
    std::vector<double> lambda; // nm, rising
    std::vector<double> alpha;  // /m
    // ln alpha of the positive entries, formed once for the interpolations (empty: not formed).
    std::vector<double> lnAlpha;
};

// The absorption of one layer's compositions at the wavelengths of an illumination, kept from one
// mesh to the next: an adaptive mesh keeps most of its points, and so most of its compositions, and a
// row made once serves every later mesh.  `material`, `law` and `length` are what the rows were made
// from.
struct LayerAlphaRows {
    bool valid = false;
    MaterialParameters material;
    int law = 0;
    double length = 0; // L of alpha L
    AlphaTable tableA, tableB;
    std::vector<std::uint64_t> keys; // bit patterns of the compositions y, rising
    // Alpha (/m) at each wavelength, one row per composition, up to its last non-zero value: what
    // lies beyond (the wavelengths below the gap, mostly) is 0 and not kept, which in a graded layer
    // of a few hundred compositions saves megabytes.  Alpha L is formed from it where it is used.
    std::vector<std::vector<double>> rows;
    std::vector<int> extent; // of each row: 1 + the index of its last non-zero alpha, its length
};

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
    // Per wavelength k and mesh point j, at k * fluxPoints + j (see FluxIndex), normalised.  Held
    // only where the occupation of defects with optical capture reads it (CalculateOpticalGeneration);
    // the generation of one wavelength is flux times alpha L (GenerationAt).
    std::vector<double> flux;
    int fluxPoints = 0; // mesh points of one wavelength's row in flux
    // Alpha of mesh point j is the row alphaRowOfPoint[j] of the layer alphaLayerOfPoint[j] in
    // `alphaRows` (AlphaOfPoint, AlphaLOfPoint); row -1: the layer's absorption could not be
    // determined, alpha 0.  `alphaPoints` points are set; the rows belong to `alphaRowsLambda`.
    int alphaPoints = 0;
    std::array<int, MAX_MESH_POINTS> alphaRowOfPoint{};
    std::array<int, MAX_MESH_POINTS> alphaLayerOfPoint{};
    std::vector<double> alphaRowsLambda;
    std::array<LayerAlphaRows, MAX_LAYERS> alphaRows;
};

// Position of wavelength k at mesh point j in `flux`.
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
