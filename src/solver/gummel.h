// The steady state of one working point by passes of Newton iterations, repeated until nothing moves
// any more or the total current has settled.  The coupling scheme chooses what a pass does: 11 psi
// alone, then u, then v (Gummel's decoupled iteration); 12 psi, then u and v together in 2x2 blocks;
// 13 psi, u and v together in 3x3 blocks (solver/coupled_newton); 14 the passes of 11 up to
// gummelPassesFirst, then 13.
//
// A solve starts from whatever state the record holds and leaves the solution in it.  Success or
// failure stands in the iteration counters: `iteration_count` is the number of passes, -1 when the
// point did not converge.
#pragma once

#include <span>

#include "setup/parameter_sets.h"
#include "solver/bulk_recombination.h"
#include "solver/discrete_equations.h"
#include "solver/small_linalg.h"

namespace tervo {

// Set to 1 ahead of each solve stage; cleared when the adaptive mesh could not be refined further.
extern int issueMeshWarning;
// How many passes in a row the adaptive mesh may change while the solution itself stands still.
extern int meshPassesLimit;
// 0: the schemes 11 and 12 pass on until nothing moves.  N > 0: from pass N+1 on, they finish with
// the coupled Newton iteration.  The separate blocks converge linearly, and slowly where the carriers
// and the potential are strongly coupled (high injection): there the last update, which the
// termination test reads, underestimates the distance to the solution many times over, while the
// coupled iteration, once close, converges quadratically.
extern int gummelPassesBeforeNewton;

// The offsets a_n, a_p of the carrier variables for the voltage V_norm of the state.
void Set_an_And_ap(CalculationVariables& cv, double& a_n, double& a_p);

// Clears the tunnelling terms of the state: `which` -1 only those of electrons, 1 only those of
// holes, 0 all; the band-to-band arrays always.
void InitialiseTunnelCurrent(CalculationVariables& cv, int which);

// One working point: 0, or -1 at a hard failure (singular system, failed recombination routine, an
// inner iteration that failed by its policy).  `iteration_count` is -1 when the point did not
// converge, also after a hard failure.
int los_totaal_dc_stelsel_op_Gummel(CalculationVariables& cv);

// After the mesh of `cv` changed from `oldMesh` (its properties already expanded on the new one): the
// exponentials of psi, the quasi-Fermi levels and the generation profiles on the new points.
void RefreshAfterMeshChange(CalculationVariables& cv, const MeshBlock& oldMesh);

// Newton iteration on psi with the carriers' quasi-Fermi levels held.  `equilibrium` nonzero takes
// the limit of the start mode (maxiter_psi_start).  0, or -1 at a hard failure; `psi_iterations` is
// the count (0: psi did not move), -1 at failure.
int psi_iteratie_Gummel(CalculationVariables& cv, int equilibrium);
// Newton iteration on u (carrier -1) or on v (carrier 1) with psi held.  0 or -1.
int u_or_v_iteratie_Gummel(CalculationVariables& cv, int carrier);
// Newton iteration on u and v together, coupled through the recombination.  0 or -1.
int uv_iteratie_Gummel(CalculationVariables& cv);

// The Newton steps of the three systems.  The row scaling of the first two acts in place on J and
// rhs.  0, or -1 at a zero pivot (reported through LUDecompositionError).
int bereken_delta_psi_Gummel(CalculationVariables& cv, trimatrix& J, InterfaceExtra& extra,
                             std::span<double> rhs, std::span<double> delta);
int bereken_delta_u_of_v_Gummel(CalculationVariables& cv, trimatrix& J, std::span<double> rhs,
                                std::span<double> delta);
int bereken_delta_uv_Gummel(CalculationVariables& cv, const uv_trimatrix& J, const uv_row& rhs,
                            uv_row& delta);

// Block tridiagonal solve with 2x2 blocks over n points (n at most MAX_MESH_POINTS): 0, or -1 when
// a pivot block is exactly singular.
int tridiagonal_2x2(const uv_trimatrix& A, const uv_row& rhs, uv_row& x, int n);

// Largest absolute value of the first n entries; 0.0 for none.
double maximum_psi_array(std::span<const double> vec, int n);
// Scales the whole step by one factor so that its largest entry is `clamp` when `max` exceeds it.
void clamping_psi(CalculationVariables& cv, std::span<double> delta, double clamp, double max);
// Limits the step of u (carrier -1) or v (carrier 1) to a change of `clamp` kT of the quasi-Fermi
// level, applies it and refreshes EFn or EFp.  1 when the change is above the termination test.
int clamping_u_or_v(CalculationVariables& cv, std::span<double> delta, double clamp, int carrier);

// What every Newton step of an inner iteration starts from: the tunnelling terms cleared, the terms of
// the bulk and the interface recombination that the step reads (`need`) at the present iterate.
// False when a defect routine fails.
bool RefreshRecombination(CalculationVariables& cv, const RecombinationTerms& need = ALL_TERMS);

// One adaptive step of the mesh on the present iterate and, when the mesh changed, what derives from
// it (exponentials and Bernoulli factors, quasi-Fermi levels, generation); `previous` receives the
// mesh before the step when it changed (a step that keeps the mesh copies nothing).  1 changed, 0 not, -1 it
// could not be refined further (issueMeshWarning is then cleared).
int AdaptMeshToIterate(CalculationVariables& cv, MeshBlock& previous);

} // namespace tervo
