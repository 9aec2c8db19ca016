// The small-signal response of bulk recombination and of the charge held in defects.
//
// A trap follows a slow signal and lags behind a fast one.  For each inner mesh point this gives the
// complex linear response, at angular frequency `omega` (normalised by L^2/D0), of the charge in the
// defects and of the net capture rates of electrons and of holes to the deviations (dpsi, dFn, dFp).
// At omega = 0 the rates reduce to the steady derivatives; far above every capture and emission rate
// the trap occupation no longer moves and the defect charge does not respond.
#pragma once

#include <array>
#include <vector>

#include "setup/parameter_sets.h"
#include "solver/small_linalg.h"

namespace tervo {

// One complex 3x3 block per mesh point: rows Poisson (charge, units of N_j), electrons and holes (the
// rate times -(h[i-1] + h[i])/2, as the rows of the small-signal system hold it); columns dpsi, dFn,
// dFp.
using AcTerms = std::vector<complex3x3>;

// Terms of one energy sample of one bulk defect, added to `out` on the inner points of its layer with
// the factor `weight` (the trapezoid weight of the sample).  The linearised rate equations of the K + 1
// charge states are solved at each point.  1, or -1 when the defect has no level records.
int acr_bijdrage_een_niveau_multilevel(const CalculationVariables& cv, int layer, int defect,
                                       int energy_index, double omega, double weight, AcTerms& out);

// Radiative and Auger recombination: their steady derivatives, real, with no charge.
void acr_bijdrage_radiative(const CalculationVariables& cv, AcTerms& out);
void acr_bijdrage_auger(const CalculationVariables& cv, AcTerms& out);

// The sum over all bulk defects (every energy sample with its trapezoid weight), radiative and Auger
// recombination; `out` is resized to the mesh and overwritten.  1, or the negative result of a
// defect that failed.
int totale_acr_bijdrage_multilevel(const CalculationVariables& cv, double omega, AcTerms& out);

// The response of the defects at interface j between the last point iL of layer j and the first point
// iR of layer j + 1: per side the row block of that side's point, with columns (dpsi, dFn, dFp) of iL
// (`*_left`) and of iR (`*_right`).  Row 0 of the left blocks is the change of the sheet charge,
// C/m^2; rows 1 and 2 are minus the net capture rates of electrons and holes from that side, in the
// units of the flux rows of that side's layer.  Row 0 of the right blocks stays 0: the sheet charge
// enters Gauss's law once, in the row of iL.
struct IfrAcBlock {
    complex3x3 left_left, left_right, right_left, right_right;
};
using IfrAcTerms = std::array<IfrAcBlock, MAX_INTERFACES>;

// One interface level (one energy sample), added with the factor `weight`: its occupation f relaxes
// at the sum of its four exchange rates with the bands of both sides, so that
// df = (dA (1 - f) - dB f) / (A + B + i omega).  A neutral level holds no charge and is taken with its
// steady response.  No capture by tunnelling enters here.
void ifracbijdrage_een_niveau(const CalculationVariables& cv, const IfrLevelData& data, double omega,
                              double weight, IfrAcTerms& out);

// All interface defects, every energy sample with its trapezoid weight; `out` is overwritten.
void totale_ifracbijdrage(const CalculationVariables& cv, double omega, IfrAcTerms& out);

} // namespace tervo
