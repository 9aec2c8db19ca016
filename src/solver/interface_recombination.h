// The interfaces between layers: the exchange of carriers over each interface and the recombination
// through defects that sit at it.
//
// Carriers cross an interface by thermionic emission; the exchange enters the rows of the first and
// last point of the two layers (solver/discrete_equations) with the velocities of the normalised
// parameters.  Interface defects add a sheet charge and four net rates per interface (electrons and
// holes, from the left and from the right), collected in the record `ifr` of the state.  A trap at
// the interface captures and emits carriers of both sides, so its occupation follows from the balance
// of all eight capture and emission processes; the net rates of each side are what that side loses.
#pragma once

#include "setup/parameter_sets.h"
#include "solver/bulk_recombination.h"

namespace tervo {

// Zero, add and scale every field of the record: the per-interface values of the first n_layers - 1
// interfaces and the tunnel currents over the first n_points points.
void ifr_dc_initialisatie(IfrDcTerms& terms, int n_layers, int n_points);
void tel_ifrdcbijdragen_op(const IfrDcTerms& a, const IfrDcTerms& b, IfrDcTerms& sum, int n_layers,
                           int n_points);
void maal_ifrdcbijdrage(double factor, const IfrDcTerms& in, IfrDcTerms& out, int n_layers, int n_points);

// The terms of one interface defect sample `data` at the present iterate into the fields of its
// interface in `out` (overwritten there): the sheet charge (C/m^2) with its derivative by psi, the
// net capture rates of electrons and holes from the left and the right side (normalised by N L of
// that side) with their derivatives by u and v at both interface points, and the same rates with
// their tunnelling enhancement.  The occupation is stored in `data`.
void ifrdcbijdrage_een_niveau_tunnel(CalculationVariables& cv, IfrLevelData& data, IfrDcTerms& out,
                                     int defect, int energy_index);
// One interface defect summed over its energy axis (trapezoid rule); `out` is overwritten.
void ifrdcbijdrage_distributie(CalculationVariables& cv, int interface, int defect, IfrDcTerms& out);

// The interface terms that `need` names at the present iterate into `cv.recombination.ifr` (the other
// fields keep what the last call left there), and the occupations of all interface levels into their
// records.  Every energy sample enters once, with its trapezoid weight.  The level records are
// rebuilt first when the mesh has changed.
void totale_ifrdcbijdrage(CalculationVariables& cv, const RecombinationTerms& need = ALL_TERMS);

// Thermionic current over interface j (between layers j and j+1) of the present state, mA/cm2, in
// the sign convention of the link currents (CurrentProfiles).
double thermionic_current_n(const CalculationVariables& cv, int interface);
double thermionic_current_p(const CalculationVariables& cv, int interface);

} // namespace tervo
