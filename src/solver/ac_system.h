// The small-signal system: the response of a solved steady state to a small sinusoidal voltage at
// the right contact, at one angular frequency.
//
// The equations of the steady state are linearised around the solved point in flux form: the rows of
// the carriers are balances of particle fluxes into the box of each point (normalised current
// densities), with the storage i omega n and i omega p of the free carriers and the complex response
// of the defects (solver/ac_recombination).  The unknowns at point i are the complex amplitudes of
// the deviations of the potential and of the two quasi-Fermi levels, (dpsi, dFn, dFp), all in kT/q.
// The signal raises the Fermi level of the right contact by `amplitude` (kT/q): the potential there
// moves by -amplitude, and both equilibrium carrier densities of the contact move with the contact's
// Fermi level.  The block-tridiagonal complex system, with one extra block per interface for the
// one-sided gradient of Gauss's law, is solved by a block LU sweep.
#pragma once

#include <array>
#include <vector>

#include "setup/parameter_sets.h"
#include "solver/ac_recombination.h"
#include "solver/small_linalg.h"

namespace tervo {

// The complex system and its factors, one problem at a time, sized for the largest mesh.
struct SmallSignalSystem {
    std::array<complex3x3, MAX_MESH_POINTS> a{}; // main block of each row of points
    std::array<complex3x3, MAX_MESH_POINTS> b{}; // couples to the point before
    std::array<complex3x3, MAX_MESH_POINTS> c{}; // couples to the point after
    std::array<complex3x3, MAX_LAYERS> d{};      // row last_point[j] to point first_point[j+1] + 1
    std::array<complex3, MAX_MESH_POINTS> R{};   // right-hand side
    std::array<complex3x3, MAX_MESH_POINTS> S{}; // inverse of a per row
    std::array<complex3x3, MAX_MESH_POINTS> ALFA_1{};
    std::array<complex3x3, MAX_MESH_POINTS> GAMMA{};
    std::array<complex3x3, MAX_LAYERS> DELTA{};
    std::array<complex3, MAX_MESH_POINTS> TUSSEN{};
    std::array<complex3, MAX_MESH_POINTS> KLEIN_X{}; // solution: dpsi, dFn, dFp
};

extern SmallSignalSystem kleinsignaal;

// Angular frequency in rad/s and normalised (omega_us L^2 / D0); size of the signal in kT/q.  The
// caller sets all three before a solve.
extern double omega_us;
extern double omega;
extern double amplitude;

// The solution split into real and imaginary parts.  del_Psi is the deviation of psi, del_v that of
// EFp; del_u is the deviation of EFn less `amplitude` (the shift that the signal gives the right
// contact), so that the true deviation of EFn is amplitude + del_u.
extern MeshArray del_Psi_re, del_Psi_im, del_u_re, del_u_im, del_v_re, del_v_im;

// Clears the blocks, the right-hand side and the factors.
void clear_ac();
// Fills a, b, c, d and R from the solved state `cv`, the per-point terms of the bulk defects `acr`
// (totale_acr_bijdrage_multilevel) and those of the interface defects `ifrac` (totale_ifracbijdrage).
void bereken_jacobiaan(const CalculationVariables& cv, const std::vector<complex3x3>& acr,
                       const IfrAcTerms& ifrac);
// Solves the filled system into KLEIN_X.
void los_stelsel_op(const CalculationVariables& cv);

// The whole small-signal calculation at the present omega: terms of the defects, system, solve and
// the six del_ arrays.  The currents follow from extraheer_kleinsignaalstroom
// (run/sweeps/small_signal_current), which the callers run next.  1, or -1 for a state without a usable mesh
// or a defect whose terms fail (reported).  A singular system gives non-finite results.
int bereken_klein_signaal(CalculationVariables& cv);

} // namespace tervo
