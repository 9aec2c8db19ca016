// The discrete steady-state equations of the cell: Poisson's equation for the potential psi and the
// two continuity equations for the Slotboom variables u and v, in box integration with
// Scharfetter-Gummel fluxes, on the mesh of one state.
//
// Unknowns (normalised): psi in kT/q; n = Nc_eff exp(psi) (a_n + u), p = Nv_eff exp(-psi) (a_p + v),
// with a_n, a_p constant offsets during a solve.  Every routine here reads one CalculationVariables
// record and the normalised parameters it points to; the recombination sums (bulk and interface) and
// the tunnelling terms must have been formed at the same iterate before a residual or a Jacobian.
//
// Each residual row F is written so that a Newton step delta solves J delta = F with J = -dF/dx,
// and the update is x + delta.
#pragma once

#include <array>
#include <span>

#include "setup/parameter_sets.h"
#include "solver/small_linalg.h"

namespace tervo {

// Switches of the session that the equations read.  The driver and the problem loader set them; they
// live with the solver so that the solver needs nothing from the layers above it.
extern int Generation_Mode; // 0 generation from the internal optical model, 1 from a file
extern int IPV_Mode;        // 1 when a defect of the cell has optical capture data
extern int MIS_mode;        // 1: no carriers are solved, flat quasi-Fermi levels (MIS capacitance-voltage)
// How the current of a point is formed from the link currents: 0 the links as they are, 1 (default)
// point values as means of the two links, 2 the same with the generation-recombination inside the
// links taken into account.
extern int calculation_of_current;

// The element of the Poisson Jacobian in the row of the last point of layer j that couples to the
// second point of layer j+1, outside the tridiagonal band.
using InterfaceExtra = std::array<double, MAX_INTERFACES>;

// Bernoulli function x / (exp(x) - 1) and its derivative, in branches that keep full precision and
// never overflow.
double Bern(double x);
double Bern_deriv(double x);
// B(x), B(-x), B'(x) and B'(-x) of one link from one exponential (none for |x| < 0.01), each to
// nearly full precision.
void BernoulliOfLink(double x, double& Bplus, double& Bmin, double& dBplus, double& dBmin);

// exp(psi), exp(-psi) and the Bernoulli factors of every link (entry i: the link from i-1 to i), from
// psi and the band grading.  Runs after every change of psi.
void update_psivar(CalculationVariables& cv);

// u[a] - u[b] and v[a] - v[b], computed from the quasi-Fermi levels when the carrier variables span
// many decades, so that the difference keeps its relative precision.  One exponential at most, none
// where the levels differ by less than 1e-4 kT or by more than 1 kT; exactly antisymmetric in a, b.
double u_difference(const CalculationVariables& cv, int a, int b);
double v_difference(const CalculationVariables& cv, int a, int b);

// Residuals at every mesh point; `rhs` holds at least n_points values.
void bereken_stelsel_psi_Gummel(CalculationVariables& cv, std::span<double> rhs);
void bereken_stelsel_u_Gummel(CalculationVariables& cv, std::span<double> rhs);
void bereken_stelsel_v_Gummel(CalculationVariables& cv, std::span<double> rhs);

// Tridiagonal Jacobians (minus the derivative of the residual); `J` has at least n_points rows.
void bereken_jac_psi_Gummel(CalculationVariables& cv, trimatrix& J, InterfaceExtra& extra);
void bereken_jac_u_Gummel(CalculationVariables& cv, trimatrix& J);
void bereken_jac_v_Gummel(CalculationVariables& cv, trimatrix& J);

// The current of a solved state at every mesh point, mA/cm2.  Positive is the current that flows
// from the right contact to the left one inside the cell (electrons moving to the right, holes to the
// left).
struct CurrentProfiles {
    MeshArray j_n{};
    MeshArray j_p{};
    MeshArray jn_tunnel{};
    MeshArray jp_tunnel{};
    MeshArray j_tot{};
};

// Fills the first n_points places of `out` (the rest is not touched) from the state by the rule `mode`
// (see calculation_of_current), and sets J_median, J_spread and J_converged of the state.
void CalculateCurrentProfiles(CalculationVariables& cv, int mode, CurrentProfiles& out);

} // namespace tervo
