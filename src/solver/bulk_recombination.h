// Recombination in the bulk of the layers and the charge that it holds: what the equations need at
// every mesh point, with the derivatives by psi, u and v.
//
// Three mechanisms are summed here: recombination through defect levels (Shockley-Read-Hall, with
// the charge the defects hold; solver/defects on the level records of setup/defect_levels), radiative
// recombination B (np - ni^2) and Auger recombination (C_n n + C_p p)(np - ni^2).  The last two hold no
// charge.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// The terms of the recombination that a Newton step reads; the others are not formed.  The Poisson
// step reads the charge and its derivative by psi, a carrier step the rate and its derivative by its
// own carrier, the coupled step everything.  At an interface `charge` stands for the sheet charge and
// its derivative, `rate` for the four net rates, `rateByU` and `rateByV` for their derivatives by u
// and by v.
struct RecombinationTerms {
    bool charge = true;           // rho, drho_dpsi
    bool chargeByCarriers = true; // drho_du, drho_dv
    bool rate = true;             // R
    bool rateByPsi = true;        // dR_dpsi
    bool rateByU = true;          // dR_du
    bool rateByV = true;          // dR_dv
};
inline constexpr RecombinationTerms ALL_TERMS{};
inline constexpr RecombinationTerms POISSON_TERMS{true, false, false, false, false, false};
inline constexpr RecombinationTerms ELECTRON_TERMS{false, false, true, false, true, false};
inline constexpr RecombinationTerms HOLE_TERMS{false, false, true, false, false, true};
inline constexpr RecombinationTerms CARRIER_TERMS{false, false, true, false, true, true};
// No term at all: only the occupations of the levels are brought up to date.
inline constexpr RecombinationTerms OCCUPATION_ONLY{false, false, false, false, false, false};

// Zero, add and scale the eight arrays of a record over the first n points.
void rec_dc_initialisatie(RecDcTerms& terms, int n);
void tel_dc_termen_op(const RecDcTerms& a, const RecDcTerms& b, RecDcTerms& sum, int n);
void maal_dc_termen(double factor, const RecDcTerms& in, RecDcTerms& out, int n);

// Radiative and Auger terms at the inner points of every layer (the first and last point of a layer
// get 0).  `out` is overwritten on the whole mesh.
void rdcbijdrage_radiative(CalculationVariables& cv, RecDcTerms& out);
void rdcbijdrage_auger(CalculationVariables& cv, RecDcTerms& out);

// The bulk terms that `need` names at the present iterate into the state: `dc_defects` (charge in
// defects and their recombination), `dc_radiative`, `dc_auger` and their sum `dc`; the arrays that
// `need` leaves out keep what an earlier call left there.  The occupations of the levels go into
// their records.  A mechanism whose coefficients are all 0 is not evaluated.  The level records are
// rebuilt first when the mesh has changed since they were made.  1, or a negative number when a
// defect routine fails.
int totale_rdcbijdrage_multilevel(CalculationVariables& cv, const RecombinationTerms& need = ALL_TERMS);

// The optical emission rates of one level sample from the fluxes of the generation record of `cv`
// over `count` wavelengths from index `first`: g_n from the electron cross sections (occupied level
// to conduction band), g_p from the hole cross sections (valence band to empty level).
void CalculateGnpMax(CalculationVariables& cv, int count, int first, RecLevelData& data);

// Self-consistency of defect occupation and sub-gap optical absorption (impurity photovoltaic
// mode).  Active only with the internal optical model and IPV_Mode set; otherwise ft_iterations is
// 0 and the result 1.  Each pass sets the occupations under the present optical rates, carries the
// light of the wavelengths the levels absorb through the cell with the absorption of the levels added,
// and takes the optical rates from it.  Ends with the generation profile of that light.  1 when
// converged within maxiter_Ft, else 0; sets ft_iterations.
int IterateFt(CalculationVariables& cv);

} // namespace tervo
