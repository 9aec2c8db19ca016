// Absorption and optical generation.
//
// Each layer is a mixture of two pure materials, A (composition y = 0) and B (y = 1), each with its own
// absorption: either the model alpha = (A + B/hv) sqrt(hv - Eg) above the gap and 0 below it, or a
// table of wavelength (nm) and alpha (/m) from an ".abs" file.  At a composition y the two pure
// absorption spectra are stretched between a short-wavelength anchor and the cut-off wavelength of the
// mixture and combined geometrically.  The photon flux of every wavelength is then carried through the
// stack by Beer-Lambert's law, with reflection at the far contact and internal reflection at the
// front, and alpha times the flux summed over the wavelengths is the generation profile G(x).
// Instead, G(x) can be read from a ".gen" file.  Defect levels with optical capture data add sub-gap
// absorption that depends on their occupation (impurity photovoltaic mode).
//
// All lengths on the mesh are normalised by L, alpha is kept both in /m and as alpha L, one row of
// wavelengths for each composition of a layer; see generation.h for the normalisation of flux and
// generation.
#pragma once

#include <string>
#include <vector>

#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

// Number of points of the wavelength grid of a pure material with the coefficient model.
inline constexpr int ALPHA_GRID_POINTS = 100;
// A first wavelength above this asks DetermineLayerAlpha for a grid; unused grid places hold 2e30.
inline constexpr double ALPHA_GRID_REQUEST = 1e30;

// Alpha of the pure material A (`material` 0) or B (1) of a layer at n wavelengths (nm), in /m, or in
// /cm with `display` 1.  The cut-off wavelength of the material is `pureA` or `pureB` of the absorption
// profile.  When wavelengths[0] is above 1e30 the function first builds its own grid of n wavelengths
// into `wavelengths` (a file: the file's table, the remaining places at 2e30 with alpha 0).  1, or 0
// when an absorption file cannot be used (reported).
int DetermineLayerAlpha(const MaterialParameters& material, std::vector<double>& wavelengths,
                        std::vector<double>& alpha, int n, int whichMaterial, int display);

// Alpha (/m) at composition y at n wavelengths, from the tables of the two pure materials.  `law` is
// the composition law of the layer; the band gap at y comes from the material's Eg profile.
void InterpolateAlpha(const MaterialParameters& material, int law, const std::vector<double>& wavelengths,
                      std::vector<double>& result, int n, const AlphaTable& tableA, const AlphaTable& tableB,
                      double y);

// Value of a table (x rising) at `position`, interpolated linearly in ln y.  Outside the table the end
// value (0 for an end value that is not above 0), continued on the logarithm where the table grows
// towards that end.
// `lnY`, when given, holds ln y of the positive entries, which are then not formed anew.
double LogInterpolateFromTable(double position, const double* x, const double* y, int n,
                               const double* lnY = nullptr);

// Alpha of every layer at every wavelength of `gp` on the mesh of `cv` (AlphaOfPoint, AlphaLOfPoint)
// and the cut-off wavelength of each point, and refreshes the cut-off wavelengths of the pure materials in
// the parameters from their band gaps.  The absorption of each composition is kept in `gp` for later meshes
// of the same wavelengths and materials (see ForgetAlphaRows).  1, or 0 when a layer's absorption data cannot
// be used (reported; its alpha is then 0).
int bepaal_alfa(CalculationVariables& cv, GenerationParameters& gp);

// Drops the absorption rows that bepaal_alfa keeps in `gp` from one mesh to the next, so that the
// next call reads the absorption data anew (a new illumination, or data files that may have changed).
void ForgetAlphaRows(GenerationParameters& gp);

// The larger alpha (/m) of the pure materials of a layer at one wavelength (nm): what limits the
// finest mesh step at the layer's edges under light.  0 when the data cannot be used.
double ExtractAlpha(const CalculationParameters& parameters, double wavelength, int layer);
double ExtractAlpha(const CalculationVariables& cv, double wavelength, int layer);

// The normalised photon flux at all mesh points for every wavelength (`CalculateFluxesEverywhere` for
// each).  With `fromFile` 1 (generation from a file) all fluxes are 0.  The internal reflection at
// the front is `Rfront` unless given.
void CalculateFluxes(CalculationVariables& cv, GenerationParameters& gp, int fromFile);
void CalculateFluxes(CalculationVariables& cv, GenerationParameters& gp, int fromFile,
                     double frontReflection);
// The same for wavelength k alone; the flux arrays must already have their size for the mesh
// (CalculateFluxes makes it).
void CalculateFluxesEverywhere(CalculationVariables& cv, GenerationParameters& gp, int k, int fromFile,
                               double frontReflection);

// G[j], the sum over the wavelengths k of flux[k][j] alpha L, from the fluxes that CalculateFluxes made.
void CalculateGeneration(CalculationVariables& cv, GenerationParameters& gp);

// Fluxes and G together, with the internal reflection `Rfront`.  The fluxes are kept in `gp` only with
// `keepFluxes` (the occupation of defects with optical capture reads them); else each wavelength's
// flux goes into G as it is made, and `flux` is left empty.  G is the same either way.
void CalculateOpticalGeneration(CalculationVariables& cv, GenerationParameters& gp, int fromFile,
                                bool keepFluxes);

// The generation of wavelength k at mesh point j, flux times alpha L (0 where no flux is kept).
double GenerationAt(const GenerationParameters& gp, int k, int j);

// Alpha (/m) and alpha L of mesh point j at wavelength k of `gp`, as bepaal_alfa set them; 0 below
// the gap, for a layer whose absorption could not be determined and off the mesh.
double AlphaOfPoint(const GenerationParameters& gp, int j, int k);
double AlphaLOfPoint(const GenerationParameters& gp, int j, int k);

// While a monochromatic probe is added to a generation from a file: the total G becomes the file's G
// (held by `spectrum`) plus the probe's G, and back.
void AddQEGeneration(const GenerationParameters& spectrum, const GenerationParameters& mono,
                     GenerationParameters& total);
void RemoveQEGeneration(const GenerationParameters& mono, GenerationParameters& total);

// Reads a generation file: positions (µm in the file, m here) into x and G (/m3 s) times
// attenuation/100 into G.  The number of points, or -1 with a message.
int GetGenerationFromFile(const std::string& file, double attenuation, std::vector<double>& x,
                          std::vector<double>& G);

// G on the mesh of `cv` from a generation file: 0 outside the positions of the file, linear between
// them, normalised.  In the dark G is 0.  1, or 0 on failure (reported).
int bereken_generatie_uit_file(CalculationVariables& cv, GenerationParameters& gp, int dark,
                               const std::string& file, double attenuation);

// Optical capture data of the defects (impurity photovoltaic mode), file form.  For every level in
// use and each carrier whose optical capture is switched on (from-file flag): the table of the model
// when `fromModel` is set, else the ".opt" file (wavelength in nm, cross section in m^2), sorted by
// wavelength.  The model gives for a level E0 from its band (the conduction band for electrons, the
// valence band for holes) 50 wavelengths up to the threshold 1239.977/E0 with
// sigma = 9.3e-21 (Eeff/E0)^2 / (E0 m*/m0 n) (x - 1)^(3/2) / x^3, x = hv/E0.  Carriers whose optical
// capture is off lose their table.  A file that cannot be read is reported and leaves no table.  A
// level given above the intrinsic level is placed with kT at `temperature` (K).
void ReadOpticalCaptureParameters(InputParameters& input, double temperature);

// Reduces a table of optical cross sections to the wavelengths of the spectrum (n values, rising)
// that lie within it, interpolated on the logarithm; `firstWavelength` becomes the index in the
// spectrum of the first of them.  No table, no wavelengths or none inside the table leave no data.
void InterpolateOpticalCaptureProperties(OpticalCaptureProperties& o, const double* wavelengths, int n);

// The current that a generation profile stands for when every generated pair is collected, mA/cm2:
// the sum of G (/m3 s) times the width of each point's interval (m), times q.
double GenerationFileCurrent(const std::vector<double>& x, const std::vector<double>& G);

} // namespace tervo
