// The interfaces between layers: the exchange of carriers over each interface and the recombination
// through defects that sit at it.
//
// Carriers cross an interface by thermionic emission; the exchange enters the rows of the first and
// last point of the two layers (solver/discrete_equations) with the velocities of the normalised
// parameters.  Interface defects add a sheet charge and four net rates per interface (electrons and
// holes, from the left and from the right), collected in the record `ifr` of the state.
#pragma once

#include "setup/parameter_sets.h"

namespace tervo {

// Zero, add and scale every field of the record: the per-interface values of the first n_layers - 1
// interfaces and the tunnel currents over the first n_points points.
void ifr_dc_initialisatie(IfrDcTerms& terms, int n_layers, int n_points);
void tel_ifrdcbijdragen_op(const IfrDcTerms& a, const IfrDcTerms& b, IfrDcTerms& sum, int n_layers,
                           int n_points);
void maal_ifrdcbijdrage(double factor, const IfrDcTerms& in, IfrDcTerms& out, int n_layers, int n_points);

// All interface terms of the present iterate into `cv.recombination.ifr`, and their tunnel currents
// added to those of the state.
void totale_ifrdcbijdrage(CalculationVariables& cv);

// Thermionic current over interface j (between layers j and j+1) of the present state, mA/cm2, in
// the sign convention of the link currents (CurrentProfiles).
double thermionic_current_n(const CalculationVariables& cv, int interface);
double thermionic_current_p(const CalculationVariables& cv, int interface);

} // namespace tervo
