// Defect levels on the mesh: the energy sampling of distributed levels and the level records of bulk
// and interface defects (capture and emission coefficients, densities, occupations), built by set-up
// for each mesh; the solver computes occupation, charge and recombination on them (solver/defects).
//
// A bulk defect has K = 1 .. 4 levels and so K + 1 charge states; state k + 1 holds one electron more
// than state k.  Level k is the transition between states k and k + 1: electrons are captured into it
// at c_n n and emitted at e_n (thermally) plus g_n (optically), holes at c_p p, e_p and g_p.  In steady
// state the ratio of neighbouring states is f_(k+1)/f_k = (c_n n + e_p + g_p)/(c_p p + e_n + g_n), so
// the occupation of all states follows in closed form at each point.  A distributed level is sampled
// on an energy axis; every sample carries its own occupation and its terms are summed by the
// trapezoid rule.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// The energy axis of a distribution `type` (`energyDistrTypeStrings`) of width W around or from Et,
// eV, with n points: uniform over W, Gaussian over `widthgauss` W, a tail over `widthtail` W from its
// edge (a conduction-band tail downwards, a valence-band tail upwards).  n = 1 gives the one point Et
// with no step.
EnergyAxis bereken_energie_as(int type, double W, double Et, int n, double widthtail, double widthgauss);

// Relative density of a distribution at energy E for centre or edge Ec and width W: 1 for a single
// level and a uniform band, exp(-(E - Ec)^2 / W^2) for a Gaussian, exp((E - Ec)/W) for a
// conduction-band tail, exp(-(E - Ec)/W) for a valence-band tail.
double EnergyDistributionWeight(int type, double E, double Ec, double W);

// The distribution type as seen on an energy scale that counts downwards from the conduction band
// (bulk reference 2, interface reference 4): there a conduction-band tail runs towards larger values,
// so the two tails exchange their roles on the axis and in the weight.
int DistributionTypeOnScale(int type, int reference, bool interface);

// Weight of sample m of an axis of n points in the trapezoid sum: (dE[m-1] + dE[m])/2 with the
// missing neighbours at the two ends left out; 1 for a single level.
double TrapezoidWeight(const EnergyAxis& axis, int n, int m, int type);

// Charge (in q) of the state with the fewest electrons of a defect whose first level has type
// `aard`: -2, -1, 0, +1, +2, +3 for the types "2-/3-" .. "3+/2+"; 0 for a neutral level.
int ChargeOfStateZero(int aard);

// Fills one level record for the sample energy E (eV, in the reference of the level) on the points of
// its layer: capture and emission coefficients and the density (total density times peak-to-total
// factor times the weight of E in the distribution times the spatial profile).  `data.layer`,
// `data.level` and `data.n_levels` must be set; the occupations are left alone.
void r_input_energie(CalculationVariables& cv, double E, BulkRecombinationParameters& level,
                     RecLevelData& data);

// Builds the level records of all bulk defects of the parameters of `cv` on its mesh.  The sample
// densities of a distributed level are scaled so that their trapezoid sum over the energy axis is the
// total density the user gave.  With `old` the occupations and optical rates are carried over from
// that record (interpolated in position when its mesh differs); otherwise occupations start at 0.5
// and optical rates at 0.
void CreateRecdataStructures(CalculationVariables& cv, const RecombinationData* old);
void FreeRecdataStructures(CalculationVariables& cv);

// Fills one interface defect record for the sample energy E (eV, in the reference of the defect).
// `data.interface` must be set.
void ifr_input_energie(CalculationVariables& cv, double E, const InterfaceRecombinationParameters& params,
                       IfrLevelData& data);
// The same for the interface defects; with `old` the occupations are carried over.
void CreateIFRecdataStructures(CalculationVariables& cv, const RecombinationData* old);
void FreeIFRecdataStructures(CalculationVariables& cv);

// 1 when the level records of `cv` were built for its present mesh and parameters.
bool RecdataMatchesMesh(const CalculationVariables& cv);
// Rebuilds the level records after a change of the mesh, keeping occupations and optical rates.
void RefreshRecdataForMesh(CalculationVariables& cv);

} // namespace tervo
